#include "commands.h"

#include <algorithm>
#include <charconv>

#include "command_table.h"
#include "mts/mts_wire.h"

namespace vswitch {

namespace {

using Json = JsonReader::Json;

constexpr std::size_t max_answer = MTS_WIRE_MAX_BODY - MTS_WIRE_REPLY_FIXED;

const Command *find_command(std::string_view name) {
    for (const auto table :
         {configuration_commands(), timer_commands(), status_commands(), fault_commands(), agent_file_commands()})
        for (const Command &command : table)
            if (name == command.name)
                return &command;
    return nullptr;
}

/* Runs a command and returns its reply's data. */
Json run(Switch &target, const Request &request) {
    const JsonReader unnamed("the command");
    const std::string_view text(reinterpret_cast<const char *>(request.payload.data()), request.payload.size());
    const Json json = unnamed.parse_object(text);
    const auto name_given = json.find("command");
    if (name_given == json.end())
        unnamed.fail("it has no \"command\"");
    const std::string &name = unnamed.text(*name_given, "\"command\"");
    const Command *command = find_command(name);
    if (!command)
        throw CommandRefused(STATUS_NO_SUCH_OPCODE,
                             fmt::format("There is no command \"{}\".", JsonReader::printable(name)));
    if (request.kind != command->kind)
        throw CommandRefused(STATUS_NO_SUCH_KIND,
                             fmt::format("The command {} is of kind {}, not {}.", name, command->kind, request.kind));
    const JsonReader reader(fmt::format("the command {}", name));
    for (const auto &[key, value] : json.items()) {
        bool known = key == "command";
        for (const std::string_view candidate : command->arguments)
            known = known || candidate == key;
        if (!known)
            reader.fail(fmt::format("it takes no \"{}\"", JsonReader::printable(key)));
    }
    Call call{target, {request.user, true}, Arguments(reader, json)};
    command->run(call);
    return std::move(call.reply);
}

Json refusal_json(std::uint32_t status, const char *sentence) {
    return {{"error", sentence}, {"status", fmt::format("0x{:08x}", status)}};
}

} // namespace

std::uint32_t answer_command(Switch &target, const Request &request, Buffer &data) {
    Json json;
    std::uint32_t status = STATUS_SUCCESS;
    try {
        json = run(target, request);
    } catch (const CommandRefused &refused) {
        status = refused.status;
        json = refusal_json(status, refused.what());
    } catch (const Refusal &refusal) {
        status = STATUS_BAD_RECORD;
        json = refusal_json(status, refusal.what());
    }
    /* Names of VSANs and trace texts come from outside and may be no UTF-8. */
    std::string text = json.dump(-1, ' ', false, Json::error_handler_t::replace);
    if (text.size() > max_answer) {
        status = STATUS_BAD_LENGTH;
        text = refusal_json(status, "The answer is longer than a reply can be.").dump();
    }
    data.insert(data.end(), text.begin(), text.end());
    return status;
}

const char *status_text(std::uint32_t status) {
    switch (status) {
#define PLATFORM_STATUS_CASE(code, name, text)                                                                         \
    case code:                                                                                                         \
        return text;
        PLATFORM_STATUS_CODES(PLATFORM_STATUS_CASE)
#undef PLATFORM_STATUS_CASE
    default:
        return "unknown reason";
    }
}

void require(std::uint32_t status, const std::string &what) {
    if (status != STATUS_SUCCESS)
        throw CommandRefused(status, fmt::format("{}: {}.", what, status_text(status)));
}

const Json *Arguments::find(const char *key) const {
    const auto found = json_.find(key);
    return found == json_.end() ? nullptr : &*found;
}

void Arguments::fail_missing(const char *key) const {
    reader_.fail(fmt::format("it needs \"{}\"", key));
}

std::optional<std::uint32_t> Arguments::number(const char *key, std::uint32_t lowest, std::uint32_t highest) const {
    const Json *value = find(key);
    if (!value)
        return std::nullopt;
    return reader_.number(*value, fmt::format("\"{}\"", key), lowest, highest);
}

std::uint32_t Arguments::required_number(const char *key, std::uint32_t lowest, std::uint32_t highest) const {
    const auto value = number(key, lowest, highest);
    if (!value)
        fail_missing(key);
    return *value;
}

std::optional<std::string> Arguments::text(const char *key, std::size_t longest) const {
    const Json *value = find(key);
    if (!value)
        return std::nullopt;
    const std::string &found = reader_.text(*value, fmt::format("\"{}\"", key));
    if (found.size() > longest)
        reader_.fail(fmt::format("\"{}\" must have at most {} characters", key, longest));
    return found;
}

std::string Arguments::required_text(const char *key, std::size_t longest) const {
    auto value = text(key, longest);
    if (!value)
        fail_missing(key);
    return std::move(*value);
}

std::optional<bool> Arguments::flag(const char *key) const {
    const Json *value = find(key);
    if (!value)
        return std::nullopt;
    if (!value->is_boolean())
        reader_.fail(fmt::format("\"{}\" must be true or false", key));
    return value->get<bool>();
}

bool Arguments::required_flag(const char *key) const {
    const auto value = flag(key);
    if (!value)
        fail_missing(key);
    return *value;
}

std::optional<std::uint32_t> Arguments::word(const char *key, Words words) const {
    const Json *given = find(key);
    if (!given)
        return std::nullopt;
    std::string choices;
    for (const auto &[name, value] : words) {
        if (*given == name)
            return value;
        choices += fmt::format("{}\"{}\"", choices.empty() ? "" : ", ", name);
    }
    reader_.fail(fmt::format("\"{}\" must be one of {}", key, choices));
}

std::uint32_t Arguments::required_word(const char *key, Words words) const {
    const auto value = word(key, words);
    if (!value)
        fail_missing(key);
    return *value;
}

const SwitchModel::PortRow &Arguments::required_port(const Switch &target) const {
    const Json *given = find("ifIndex");
    if (!given)
        fail_missing("ifIndex");
    const SwitchModel::PortRow *row = nullptr;
    if (given->is_string()) {
        const auto &name = given->get_ref<const std::string &>();
        std::uint32_t position = 0;
        const char *end = name.data() + name.size();
        if (name.size() < 3 || !name.starts_with("fc") || std::from_chars(name.data() + 2, end, position).ptr != end ||
            position == 0)
            reader_.fail("\"ifIndex\" must be a number, or \"fc\" with the port's position, counted from 1");
        if (position <= target.model.port_count()) {
            row = target.model.port_after(0);
            while (row && --position > 0)
                row = target.model.port_after(row->first);
        }
    } else {
        row = target.model.port(reader_.number(*given, "\"ifIndex\"", 1, UINT32_MAX));
    }
    if (!row)
        throw CommandRefused(STATUS_NO_SUCH_INTERFACE, fmt::format("There is no port {}.", given->dump()));
    return *row;
}

Page::Page(Call &call, const char *key) : reply_(call.reply), key_(key) {
    rows_left_ = call.arguments.number("limit", 1, max_rows).value_or(max_rows);
    reply_[key] = Json::array();
    reply_["more"] = false;
}

bool Page::add(Json row) {
    const std::size_t size = row.dump(-1, ' ', false, Json::error_handler_t::replace).size() + 1;
    /* A single row always fits. */
    if (rows_left_ == 0 || (size > bytes_left_ && !reply_[key_].empty())) {
        reply_["more"] = true;
        return false;
    }
    --rows_left_;
    bytes_left_ -= std::min(size, bytes_left_);
    reply_[key_].push_back(std::move(row));
    return true;
}

const std::pair<const char *, Timer> timer_words[timer_count] = {
    {"edtov", Timer::e_d_tov}, {"ratov", Timer::r_a_tov}, {"dstov", Timer::d_s_tov}, {"fstov", Timer::f_s_tov}};

} // namespace vswitch
