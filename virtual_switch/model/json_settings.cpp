// SPDX-License-Identifier: Apache-2.0
#include "model/json_settings.h"

#include <optional>

namespace vswitch {

namespace {

using Json = JsonReader::Json;

#define COUNTER_WORD(name, word, tool_word) word,
constexpr const char *counter_words[] = {PORT_COUNTERS(COUNTER_WORD)};
#define TEXT_WORD(number, name, word, initial) word,
constexpr const char *text_words[] = {SYSTEM_TEXTS(TEXT_WORD)};
#undef TEXT_WORD

// A text that is one by `is_allowed`, or nothing when there is no such key.
std::optional<std::string> read_text(const JsonReader &reader, const Json &object, const char *key,
                                     const std::string &place, size_t longest, bool (*is_allowed)(std::string_view)) {
    const auto found = object.find(key);
    if (found == object.end()) {
        return std::nullopt;
    }
    const std::string what = fmt::format("{}\"{}\"", place, key);
    const std::string &text = reader.text(*found, what);
    if (!is_allowed(text)) {
        reader.fail(fmt::format("{} must be at most {} bytes of UTF-8 without control characters", what, longest));
    }
    return text;
}

void read_flag(const JsonReader &reader, const Json &object, const char *key, const std::string &place, bool &flag) {
    const auto found = object.find(key);
    if (found == object.end()) {
        return;
    }
    if (!found->is_boolean()) {
        reader.fail(fmt::format("{}\"{}\" must be true or false", place, key));
    }
    flag = found->get<bool>();
}

void read_speed(const JsonReader &reader, const Json &object, const std::string &place, Port &port) {
    const auto found = object.find("speedMbps");
    if (found == object.end()) {
        return;
    }
    const uint32_t speed = found->is_number_unsigned() && *found <= UINT32_MAX ? found->get<uint32_t>() : 0;
    if (!is_port_speed(speed)) {
        std::string speeds;
#define LIST_SPEED(one) speeds += fmt::format("{}{}", speeds.empty() ? "" : ", ", one);
        PORT_SPEEDS(LIST_SPEED)
#undef LIST_SPEED
        reader.fail(fmt::format("{}\"speedMbps\" must be one of {}", place, speeds));
    }
    port.speed = speed;
}

void read_traffic(const JsonReader &reader, const Json &object, const std::string &place, Port &port) {
    const auto found = object.find("traffic");
    if (found == object.end()) {
        return;
    }
    const std::string what = place + "\"traffic\"";
    reader.expect_object(*found, what, {PORT_COUNTERS(COUNTER_WORD)});
    for (size_t counter = 0; counter < port.traffic.size(); ++counter) {
        reader.optional_number(*found, counter_words[counter], what, any_number, port.traffic[counter]);
    }
}
#undef COUNTER_WORD

} // namespace

void read_port_settings(const JsonReader &reader, const Json &object, const std::string &place, Port &port) {
    if (auto alias = read_text(reader, object, "alias", place, PORT_ALIAS_MAX, is_port_alias)) {
        port.alias = std::move(*alias);
    }
    read_flag(reader, object, "enabled", place, port.enabled);
    read_speed(reader, object, place, port);
    read_flag(reader, object, "traps", place, port.traps);
    read_traffic(reader, object, place, port);
}

void read_system_texts(const JsonReader &reader, const Json &object, const std::string &place, SystemTexts &texts) {
    for (size_t text = 0; text < texts.size(); ++text) {
        if (auto given = read_text(reader, object, text_words[text], place, SYSTEM_TEXT_MAX, is_system_text)) {
            texts[text] = std::move(*given);
        }
    }
}

Json port_settings_json(const Port &port) {
    Json json = {{"enabled", port.enabled}, {"alias", port.alias}, {"speedMbps", port.speed}, {"traps", port.traps}};
    for (size_t counter = 0; counter < port.traffic.size(); ++counter) {
        if (port.traffic[counter] != 0) {
            json["traffic"][counter_words[counter]] = port.traffic[counter];
        }
    }
    return json;
}

Json system_texts_json(const SystemTexts &texts) {
    Json json = Json::object();
    for (size_t text = 0; text < texts.size(); ++text) {
        json[text_words[text]] = texts[text];
    }
    return json;
}

} // namespace vswitch
