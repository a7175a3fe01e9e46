// SPDX-License-Identifier: Apache-2.0
#include "tool/words.h"

#include "contract/status_codes.h"

namespace vswitchctl {

namespace {

struct NamedStatus {
    uint32_t code;
    std::string name;
};

// STATUS_NO_SUCH_VSAN is "no-such-vsan" to the operator.
std::string operator_name(std::string_view name) {
    std::string result;
    for (const char c : name.substr(sizeof "STATUS_" - 1)) {
        result += c == '_' ? '-' : static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    }
    return result;
}

} // namespace

std::string word_of(Words words, uint32_t number) {
    for (const auto &[word, value] : words) {
        if (value == number) {
            return std::string(word);
        }
    }
    return "none";
}

std::vector<std::string> texts_of(Words words) {
    std::vector<std::string> texts;
    for (const auto &[word, value] : words) {
        texts.emplace_back(word);
    }
    return texts;
}

std::vector<std::string> setting_words() {
    std::vector<std::string> words(std::begin(timer_words), std::end(timer_words));
    for (const Setting &latency : latencies) {
        words.emplace_back(latency.word);
    }
    words.emplace_back(inorder_delivery.word);
    return words;
}

Words status_words() {
    static const std::vector<NamedStatus> names = {
#define NAMED_STATUS(code, name, text) {code, operator_name(#name)},
        PLATFORM_STATUS_CODES(NAMED_STATUS)
#undef NAMED_STATUS
    };
    static const std::vector<Word> words = [] {
        std::vector<Word> list;
        list.reserve(names.size());
        for (const NamedStatus &status : names) {
            list.emplace_back(status.name, status.code);
        }
        return list;
    }();
    return words;
}

} // namespace vswitchctl
