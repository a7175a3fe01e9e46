/* Reads the operator's JSON files strictly: a key that nobody asked for, a key given
 * twice, a value of the wrong type or outside its range is an error that names the
 * place. Included by the readers of such files only; the JSON library is heavy. */
#ifndef VSWITCH_JSON_READER_H
#define VSWITCH_JSON_READER_H

#include <cstdint>
#include <fmt/format.h>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "switch_data.h"

namespace vswitch {

class JsonReader {
  public:
    using Json = nlohmann::json;

    /* Far more than anything here needs; copying a value takes stack for each level. */
    static constexpr int max_depth = 32;

    explicit JsonReader(std::string source) : source_(std::move(source)) {}

    /* Parses a whole text whose top is an object. Throws Refusal, as all functions here. */
    Json parse_object(std::string_view text) const {
        std::vector<std::set<std::string>> open_objects;
        const auto refuse_repeated_keys = [&](int depth, Json::parse_event_t event, Json &parsed) {
            if (depth > max_depth)
                fail("it is nested too deeply");
            if (event == Json::parse_event_t::object_start) {
                open_objects.emplace_back();
            } else if (event == Json::parse_event_t::object_end) {
                open_objects.pop_back();
            } else if (event == Json::parse_event_t::key) {
                const auto key = parsed.get<std::string>();
                if (!open_objects.back().insert(key).second)
                    fail(fmt::format("the key \"{}\" is given twice in one object", printable(key)));
            }
            return true;
        };
        Json json;
        try {
            json = Json::parse(text, refuse_repeated_keys);
        } catch (const Json::parse_error &error) {
            fail(fmt::format("it is not valid JSON near byte {}", error.byte));
        } catch (const Json::exception &) {
            fail("it holds a number that is too large");
        }
        if (!json.is_object())
            fail("it must hold one JSON object");
        return json;
    }

    /* `json` must be an object with none but these keys. `place` names it in errors. */
    void expect_object(const Json &json, const std::string &place, std::initializer_list<std::string_view> keys) const {
        if (!json.is_object())
            fail(place + " must be an object");
        for (const auto &[key, value] : json.items()) {
            bool known = false;
            for (const std::string_view candidate : keys)
                known = known || candidate == key;
            if (!known)
                fail(fmt::format("{} has the unknown key \"{}\"", place, printable(key)));
        }
    }

    void expect_array(const Json &json, const std::string &place) const {
        if (!json.is_array())
            fail(place + " must be a list");
    }

    std::uint32_t number(const Json &json, const std::string &place, std::uint32_t lowest,
                         std::uint32_t highest) const {
        if (json.is_number_unsigned()) {
            const auto value = json.get<std::uint64_t>();
            if (value >= lowest && value <= highest)
                return static_cast<std::uint32_t>(value);
        }
        fail(fmt::format("{} must be a whole number from {} to {}", place, lowest, highest));
    }

    /* Like number, for a key that may be left out. */
    void optional_number(const Json &object, const char *key, const std::string &place, std::uint32_t lowest,
                         std::uint32_t highest, std::uint32_t &value) const {
        const auto found = object.find(key);
        if (found != object.end())
            value = number(*found, fmt::format("{}: \"{}\"", place, key), lowest, highest);
    }

    void optional_boolean(const Json &object, const char *key, const std::string &place, bool &value) const {
        const auto found = object.find(key);
        if (found == object.end())
            return;
        if (!found->is_boolean())
            fail(fmt::format("{}: \"{}\" must be true or false", place, key));
        value = found->get<bool>();
    }

    const std::string &text(const Json &json, const std::string &place) const {
        if (!json.is_string())
            fail(place + " must be a text");
        return json.get_ref<const std::string &>();
    }

    [[noreturn]] void fail(const std::string &reason) const {
        throw Refusal(fmt::format("Cannot use {}: {}.", source_, reason));
    }

    /* A text as it may stand in an error message: one line, not too long. */
    static std::string printable(std::string_view text) {
        std::string shown;
        for (const char c : text.substr(0, 64))
            shown += c >= ' ' && c < 0x7f ? c : '?';
        return text.size() > 64 ? shown + "..." : shown;
    }

  private:
    std::string source_;
};

} // namespace vswitch

#endif
