// SPDX-License-Identifier: Apache-2.0
#include "tool/commands.h"

#include <algorithm>
#include <charconv>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include "tool/nearest.h"

namespace vswitchctl {

namespace {

// A number that can be one of so few is completed.
constexpr uint32_t few_values = 10;

} // namespace

void wrong_value(const std::string &option, const std::string &text, const std::string &wanted) {
    throw UsageError(fmt::format("{}: '{}' is not {}", option, text, wanted));
}

uint32_t read_number(const std::string &option, const std::string &text, Words words, Bounds range) {
    for (const auto &[word, value] : words) {
        if (text == word) {
            return value;
        }
    }
    const bool hexadecimal = text.starts_with("0x");
    const char *end = text.data() + text.size();
    uint32_t value = 0;
    const auto result = std::from_chars(text.data() + (hexadecimal ? 2 : 0), end, value, hexadecimal ? 16 : 10);
    if (result.ec == std::errc() && result.ptr == end) {
        return value;
    }
    std::string wanted = fmt::format("a number from {} to {}", range.least, range.greatest);
    for (const auto &[word, stands_for] : words) {
        wanted += fmt::format(", {}", word);
    }
    wrong_value(option, text, wanted + or_nearest(text, texts_of(words)));
}

bool read_on_or_off(const std::string &option, const std::string &text) {
    if (text != "on" && text != "off") {
        wrong_value(option, text, "on or off");
    }
    return text == "on";
}

Json read_port(const std::string &option, const std::string &text) {
    if (text.starts_with("fc") && text.size() > 2 && text.size() < 8 &&
        text.find_first_not_of("0123456789", 2) == std::string::npos) {
        return text;
    }
    if (text.find_first_not_of("0123456789") != std::string::npos) {
        wrong_value(option, text, "a port, which is an ifIndex or a name like fc3");
    }
    return read_number(option, text);
}

std::string read_word(const std::string &option, const std::string &text, const std::vector<std::string> &words) {
    if (std::find(words.begin(), words.end(), text) == words.end()) {
        wrong_value(option, text, fmt::format("one of {}{}", fmt::join(words, ", "), or_nearest(text, words)));
    }
    return text;
}

CLI::Option *Command::option(const std::string &option, const char *key, const std::string &help, const char *type,
                             Convert convert) {
    row_.options[key] = option;
    return row_.app
        ->add_option_function<std::string>(
            option,
            [&row = row_, key, option, convert = std::move(convert)](const std::string &text) {
                row.arguments[key] = convert(option, text);
            },
            help)
        ->type_name(type);
}

CLI::Option *Command::number(const std::string &option, const char *key, const std::string &help, Words words,
                             Bounds range) {
    CLI::Option *added =
        this->option(option, key, help, "N", [words, range](const std::string &name, const std::string &text) {
            return Json(read_number(name, text, words, range));
        });
    const bool is_vsan = range.least == vsan_number_bounds.least && range.greatest == vsan_number_bounds.greatest;
    Values values{is_vsan ? Values::Kind::vsans : Values::Kind::words, texts_of(words)};
    for (uint64_t value = range.least; range.greatest - range.least < few_values && value <= range.greatest; ++value) {
        values.words.push_back(fmt::format("{}", value));
    }
    return completes(added, std::move(values));
}

CLI::Option *Command::text(const std::string &option, const char *key, const std::string &help, const char *type) {
    return this->option(option, key, help, type, [](const std::string &name, const std::string &given) {
        if (!is_utf8(given)) {
            throw UsageError(fmt::format("{} is not UTF-8", name));
        }
        return Json(given);
    });
}

CLI::Option *Command::on_off(const std::string &option, const char *key, const std::string &help) {
    CLI::Option *added =
        this->option(option, key, help, "on|off", [](const std::string &name, const std::string &given) {
            return Json(read_on_or_off(name, given));
        });
    return completes(added, {Values::Kind::words, {"on", "off"}});
}

CLI::Option *Command::port(const std::string &option, const std::string &help) {
    return completes(this->option(option, "ifIndex", help, "PORT", read_port), {Values::Kind::ports, {}});
}

CLI::Option *Command::word(const std::string &option, const char *key, const std::string &help, const char *type,
                           const std::vector<std::string> &words) {
    CLI::Option *added =
        this->option(option, key, help, type, [words](const std::string &name, const std::string &given) {
            return Json(read_word(name, given, words));
        });
    return completes(added, {Values::Kind::words, words});
}

CLI::Option *Command::texts(const std::string &option, const char *key, const std::string &help, const char *type) {
    return this->option(option, key, help, type, [](const std::string &name, const std::string &given) {
        if (!is_utf8(given)) {
            throw UsageError(fmt::format("{} is not UTF-8", name));
        }
        Json list = Json::array();
        for (const std::string &item : CLI::detail::split(given, ',')) {
            list.push_back(item);
        }
        return list;
    });
}

CLI::Option *Command::words(const std::string &name, const char *key, const std::string &help, const char *type) {
    row_.options[key] = name;
    return row_.app
        ->add_option_function<std::vector<std::string>>(
            name, [&row = row_, key](const std::vector<std::string> &given) { row.arguments[key] = given; }, help)
        ->type_name(type);
}

void Command::flag(const std::string &option, const char *key, const std::string &help) {
    row_.options[key] = option;
    row_.app->add_flag_callback(
        option, [&row = row_, key] { row.arguments[key] = true; }, help);
}

void Command::looks(const char *command, const Printer &print) {
    run([command, print](const Json &arguments) { show(look(command, arguments), print); });
}

void Command::lists(const char *command, const char *key, const char *after, const Printer &print) {
    run([=](const Json &arguments) { show(list(command, key, after, arguments), print); });
}

void Command::changes(const char *command, const Printer &print) {
    row_.change = command;
    row_.print = print;
    orders(command, print);
}

void Command::orders(const char *command, const Printer &print) {
    run([command, print](const Json &arguments) { show(change(command, arguments), print); });
}

} // namespace vswitchctl
