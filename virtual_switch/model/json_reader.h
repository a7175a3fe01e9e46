// SPDX-License-Identifier: Apache-2.0
// Reads the operator's JSON files strictly: a key that nobody asked for, a key given
// twice, a value of the wrong type or outside its range is an error that names the
// place. Included by the readers of such files only; the JSON library is heavy.
#ifndef VSWITCH_JSON_READER_H
#define VSWITCH_JSON_READER_H

#include <algorithm>
#include <cstdint>
#include <fmt/format.h>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "model/refusal.h"
#include "model/rules.h"

namespace vswitch {

class JsonReader {
  public:
    using Json = nlohmann::json;

    // Far more than anything here needs; copying a value takes stack for each level.
    static constexpr int max_depth = 32;

    explicit JsonReader(std::string source) : source_(std::move(source)) {}

    // Parses a whole text whose top is an object. Throws Refusal, as all functions here.
    Json parse_object(std::string_view text) const {
        Check check(*this, text);
        Json::sax_parse(text, &check);
        Json json = Json::parse(text);
        if (!json.is_object()) {
            fail("it must hold one JSON object");
        }
        return json;
    }

    // `json` must be an object with none but these keys. `place` names it in errors.
    void expect_object(const Json &json, const std::string &place, std::initializer_list<std::string_view> keys) const {
        if (!json.is_object()) {
            fail(place + " must be an object");
        }
        for (const auto &[key, value] : json.items()) {
            bool known = false;
            for (const std::string_view candidate : keys) {
                known = known || candidate == key;
            }
            if (!known) {
                fail(fmt::format("{} has the unknown key \"{}\"", place, printable(key)));
            }
        }
    }

    void expect_array(const Json &json, const std::string &place) const {
        if (!json.is_array()) {
            fail(place + " must be a list");
        }
    }

    uint32_t number(const Json &json, const std::string &place, Range allowed) const {
        if (json.is_number_unsigned()) {
            const auto value = json.get<uint64_t>();
            if (value >= allowed.least && value <= allowed.greatest) {
                return static_cast<uint32_t>(value);
            }
        }
        fail(fmt::format("{} must be a whole number from {} to {}", place, allowed.least, allowed.greatest));
    }

    // Like number, for a key that may be left out.
    void optional_number(const Json &object, const char *key, const std::string &place, Range allowed,
                         uint32_t &value) const {
        const auto found = object.find(key);
        if (found != object.end()) {
            value = number(*found, fmt::format("{}: \"{}\"", place, key), allowed);
        }
    }

    void optional_boolean(const Json &object, const char *key, const std::string &place, bool &value) const {
        const auto found = object.find(key);
        if (found == object.end()) {
            return;
        }
        if (!found->is_boolean()) {
            fail(fmt::format("{}: \"{}\" must be true or false", place, key));
        }
        value = found->get<bool>();
    }

    const std::string &text(const Json &json, const std::string &place) const {
        if (!json.is_string()) {
            fail(place + " must be a text");
        }
        return json.get_ref<const std::string &>();
    }

    [[noreturn]] void fail(const std::string &reason) const {
        throw Refusal(fmt::format("Cannot use {}: {}.", source_, reason));
    }

    // A text as it may stand in an error message: one line, not too long.
    static std::string printable(std::string_view text) {
        std::string shown;
        for (const char c : text.substr(0, 64)) {
            shown += c >= ' ' && c < 0x7f ? c : '?';
        }
        return text.size() > 64 ? shown + "..." : shown;
    }

  private:
    // Refuses what is no JSON, and what JSON allows and nobody means. The library's own
    // parser with a callback looks at a whole list again behind each object in it.
    class Check final : public nlohmann::json_sax<Json> {
      public:
        Check(const JsonReader &reader, std::string_view text) : reader_(reader), text_(text) {}

        bool null() override { return true; }
        bool boolean(bool) override { return true; }
        bool number_integer(Json::number_integer_t) override { return true; }
        bool number_unsigned(Json::number_unsigned_t) override { return true; }
        bool number_float(Json::number_float_t, const std::string &) override { return true; }
        bool string(std::string &) override { return true; }
        bool binary(Json::binary_t &) override { return true; }
        bool start_object(size_t) override { return open(); }
        bool end_object() override { return close(); }
        bool start_array(size_t) override { return open(); }
        bool end_array() override { return close(); }

        bool key(std::string &name) override {
            if (keys_.back().contains(name)) {
                reader_.fail(fmt::format("the key \"{}\" is given twice in one object", printable(name)));
            }
            keys_.back().insert(name);
            return true;
        }

        bool parse_error(size_t, const std::string &, const Json::exception &error) override {
            const auto *syntax = dynamic_cast<const Json::parse_error *>(&error);
            if (!syntax) {
                reader_.fail("it holds a number that is too large");
            }
            const std::string_view before = text_.substr(0, syntax->byte > 0 ? syntax->byte - 1 : 0);
            const auto line = std::count(before.begin(), before.end(), '\n') + 1;
            reader_.fail(fmt::format("it is not valid JSON near byte {}, in line {}", syntax->byte, line));
            return false;
        }

      private:
        bool open() {
            if (keys_.size() > max_depth) {
                reader_.fail("it is nested too deeply");
            }
            keys_.emplace_back();
            return true;
        }
        bool close() {
            keys_.pop_back();
            return true;
        }

        const JsonReader &reader_;
        std::string_view text_;
        std::vector<std::set<std::string>> keys_; // of each object that is open; of a list, none
    };

    std::string source_;
};

} // namespace vswitch

#endif
