// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <charconv>
#include <iterator>

#include "contract/frames.h"
#include "operator/command_table.h"

namespace vswitch {

namespace {

using Json = JsonReader::Json;

constexpr size_t max_answer = MTS_WIRE_MAX_BODY - MTS_WIRE_REPLY_FIXED;

// Runs what a request asks for and returns the reply's data.
Json run(ServedSwitch &the_switch, const Request &request) {
    const std::string_view text(reinterpret_cast<const char *>(request.payload.data()), request.payload.size());
    const Json json = JsonReader("the command").parse_object(text);
    return run_command(the_switch, request.user, request.kind, json);
}

Json refusal_json(uint32_t status, const char *sentence) {
    return {{"error", sentence}, {"status", fmt::format("0x{:08x}", status)}};
}

uint32_t answer_counters(const ServedSwitch &the_switch, const Request &, Buffer &data) {
    auto out = std::back_inserter(data);
    fmt::format_to(out, "{{\"requests\": [");
    const char *separator = "";
    for (const auto &[key, count] : the_switch.counters.requests) {
        fmt::format_to(out, "{}{{\"service\": {}, \"opcode\": {}, \"kind\": {}, \"count\": {}}}", separator,
                       key.service, key.opcode, key.kind, count);
        separator = ", ";
    }
    fmt::format_to(out, "], \"connections\": {}, \"dropped_connections\": {}, \"subscriptions\": {}}}",
                   the_switch.counters.connections, the_switch.counters.dropped_connections,
                   the_switch.counters.subscriptions);
    return STATUS_SUCCESS;
}

// Appends the reply's data and returns the status.
uint32_t answer_command(ServedSwitch &the_switch, const Request &request, Buffer &data) {
    Json json;
    uint32_t status = STATUS_SUCCESS;
    try {
        json = run(the_switch, request);
    } catch (const CommandRefusal &refusal) {
        status = refusal.status;
        json = refusal_json(status, refusal.what());
        json["number"] = refusal.number;
        json["reason"] = refusal.reason;
    } catch (const Refusal &refusal) {
        status = refusal.status;
        json = refusal_json(status, refusal.what());
    }
    // Names of VSANs and trace texts come from outside and may be no UTF-8.
    std::string text = json.dump(-1, ' ', false, Json::error_handler_t::replace);
    if (text.size() > max_answer) {
        status = STATUS_BAD_LENGTH;
        text = refusal_json(status, "The answer is longer than a reply can be.").dump();
    }
    data.insert(data.end(), text.begin(), text.end());
    return status;
}

uint32_t hand_client_faults_over(ServedSwitch &the_switch, const Request &request, Buffer &data) {
    return the_switch.client_faults.hand_over(request.payload, data);
}

uint32_t take_client_fault_counts(ServedSwitch &the_switch, const Request &request, Buffer &) {
    const size_t before = the_switch.client_faults.list().size();
    const uint32_t status = the_switch.client_faults.take_counts(request.payload);
    if (the_switch.client_faults.list().size() != before) {
        the_switch.events.note_change();
    }
    return status;
}

// `payload` has both words.
uint32_t add_part(ServedSwitch &the_switch, const Request &request, Buffer &) {
    return the_switch.parcels.add(*load_word(request.payload, MTS_PARCEL_NUMBER),
                                  *load_word(request.payload, MTS_PARCEL_OFFSET),
                                  request.payload.subspan(MTS_PARCEL_FIXED));
}

uint32_t read_part(ServedSwitch &the_switch, const Request &request, Buffer &data) {
    return the_switch.parcels.read(*load_word(request.payload, MTS_PARCEL_NUMBER),
                                   *load_word(request.payload, MTS_PARCEL_OFFSET), max_answer, data);
}

constexpr uint32_t most_counts = CLIENT_FAULT_COUNTS_FIXED + CLIENT_FAULTS_MAX * CLIENT_FAULT_COUNT_SIZE;

constexpr Operation operations[] = {
    {MTS_OP_SWITCH_COUNTERS, MTS_KIND_GET, false, 0, 0, answer_counters},
    {MTS_OP_SWITCH_COMMAND, MTS_KIND_GET, true, 0, MTS_WIRE_MAX_PAYLOAD, nullptr, answer_command},
    {MTS_OP_SWITCH_COMMAND, MTS_KIND_SET, true, 0, MTS_WIRE_MAX_PAYLOAD, nullptr, answer_command},
    {MTS_OP_SWITCH_PARCEL, MTS_KIND_SET, true, MTS_PARCEL_FIXED, MTS_WIRE_MAX_PAYLOAD, nullptr, add_part},
    {MTS_OP_SWITCH_PARCEL, MTS_KIND_GET, true, MTS_PARCEL_FIXED, MTS_PARCEL_FIXED, nullptr, read_part},
    {MTS_OP_CLIENT_FAULTS, MTS_KIND_GET, true, CLIENT_FAULT_AGENT_SIZE, CLIENT_FAULT_AGENT_SIZE, nullptr,
     hand_client_faults_over},
    {MTS_OP_CLIENT_FAULTS, MTS_KIND_SET, true, CLIENT_FAULT_COUNTS_FIXED, most_counts, nullptr,
     take_client_fault_counts},
};

} // namespace

const Command *find_command(std::string_view name) {
    for (const auto table :
         {configuration_commands(), timer_commands(), status_commands(), fault_commands(), client_fault_commands(),
          agent_file_commands(), transaction_commands(), transfer_commands()}) {
        for (const Command &command : table) {
            if (name == command.name) {
                return &command;
            }
        }
    }
    return nullptr;
}

Json run_command(ServedSwitch &the_switch, std::string_view user, uint32_t kind, const Json &json) {
    const JsonReader unnamed("the command");
    const auto name_given = json.find("command");
    if (name_given == json.end()) {
        unnamed.fail("it has no \"command\"");
    }
    const std::string &name = unnamed.text(*name_given, "\"command\"");
    const Command *command = find_command(name);
    if (!command) {
        throw Refusal(STATUS_NO_SUCH_OPCODE, fmt::format("There is no command \"{}\".", JsonReader::printable(name)));
    }
    if (kind != command->kind) {
        throw Refusal(STATUS_NO_SUCH_KIND,
                      fmt::format("The command {} is of kind {}, not {}.", name, command->kind, kind));
    }
    const JsonReader reader(fmt::format("the command {}", name));
    for (const auto &[key, value] : json.items()) {
        bool known = key == "command";
        for (const std::string_view candidate : command->arguments) {
            known = known || candidate == key;
        }
        if (!known) {
            reader.fail(fmt::format("it takes no \"{}\"", JsonReader::printable(key)));
        }
    }
    Call call{the_switch, {user, true}, Arguments(reader, json)};
    command->run(call);
    return std::move(call.reply);
}

std::span<const Operation> operator_operations() {
    return operations;
}

const char *status_text(uint32_t status) {
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

void require(uint32_t status, const std::string &what) {
    if (status != STATUS_SUCCESS) {
        throw Refusal(status, fmt::format("{}: {}.", what, status_text(status)));
    }
}

const Vsan &require_vsan(const Switch &the_switch, uint32_t id) {
    const Vsan *vsan = the_switch.model.vsan(id);
    if (!vsan) {
        throw Refusal(STATUS_NO_SUCH_VSAN, fmt::format("VSAN {} does not exist.", id));
    }
    return *vsan;
}

const Json *Arguments::find(const char *key) const {
    const auto found = json_.find(key);
    return found == json_.end() ? nullptr : &*found;
}

void Arguments::fail_missing(const char *key) const {
    reader_.fail(fmt::format("it needs \"{}\"", key));
}

std::optional<uint32_t> Arguments::number(const char *key, Range allowed) const {
    const Json *value = find(key);
    if (!value) {
        return std::nullopt;
    }
    return reader_.number(*value, fmt::format("\"{}\"", key), allowed);
}

uint32_t Arguments::required_number(const char *key, Range allowed) const {
    const auto value = number(key, allowed);
    if (!value) {
        fail_missing(key);
    }
    return *value;
}

std::optional<std::string> Arguments::text(const char *key, size_t longest) const {
    const Json *value = find(key);
    if (!value) {
        return std::nullopt;
    }
    const std::string &found = reader_.text(*value, fmt::format("\"{}\"", key));
    if (found.size() > longest) {
        reader_.fail(fmt::format("\"{}\" must have at most {} characters", key, longest));
    }
    return found;
}

std::string Arguments::required_text(const char *key, size_t longest) const {
    auto value = text(key, longest);
    if (!value) {
        fail_missing(key);
    }
    return std::move(*value);
}

std::optional<bool> Arguments::flag(const char *key) const {
    const Json *value = find(key);
    if (!value) {
        return std::nullopt;
    }
    if (!value->is_boolean()) {
        reader_.fail(fmt::format("\"{}\" must be true or false", key));
    }
    return value->get<bool>();
}

bool Arguments::required_flag(const char *key) const {
    const auto value = flag(key);
    if (!value) {
        fail_missing(key);
    }
    return *value;
}

std::optional<uint32_t> Arguments::word(const char *key, Words words) const {
    const Json *given = find(key);
    if (!given) {
        return std::nullopt;
    }
    if (given->is_string()) {
        if (const auto value = value_of(words, given->get_ref<const std::string &>())) {
            return value;
        }
    }
    std::string choices;
    for (const Word &word : words) {
        choices += fmt::format("{}\"{}\"", choices.empty() ? "" : ", ", word.text);
    }
    reader_.fail(fmt::format("\"{}\" must be one of {}", key, choices));
}

uint32_t Arguments::required_word(const char *key, Words words) const {
    const auto value = word(key, words);
    if (!value) {
        fail_missing(key);
    }
    return *value;
}

namespace {

// The position in a port's name, or nothing when it is no such name. Positions are counted from 1.
std::optional<uint32_t> position_of(const std::string &name) {
    uint32_t position = 0;
    const char *end = name.data() + name.size();
    if (name.size() < 3 || !name.starts_with("fc") || std::from_chars(name.data() + 2, end, position).ptr != end) {
        return std::nullopt;
    }
    return position;
}

// Which ports there are, as the end of a sentence.
std::string ports_of(const SwitchModel &model) {
    if (model.port_count() < 2) {
        return model.port_count() == 0 ? "the switch has none" : "the switch has fc1 alone";
    }
    return fmt::format("the switch has fc1 to fc{}", model.port_count());
}

} // namespace

uint32_t Arguments::required_port(const Switch &the_switch) const {
    const Json *given = find("ifIndex");
    if (!given) {
        fail_missing("ifIndex");
    }
    const SwitchModel &model = the_switch.model;
    std::optional<uint32_t> if_index;
    if (given->is_string()) {
        const auto position = position_of(given->get_ref<const std::string &>());
        if (!position) {
            reader_.fail("\"ifIndex\" must be a number, or \"fc\" with the port's position, counted from 1");
        }
        if_index = model.port_numbered(*position);
    } else {
        if_index = reader_.number(*given, "\"ifIndex\"", if_indexes);
    }
    if (!if_index || !model.port(*if_index)) {
        throw Refusal(STATUS_NO_SUCH_INTERFACE,
                      given->is_string()
                          ? fmt::format("There is no port {}; {}.", given->get<std::string>(), ports_of(model))
                          : fmt::format("There is no port of ifIndex {}; {}.", given->dump(), ports_of(model)));
    }
    return *if_index;
}

Page::Page(Call &call, const char *key) : reply_(call.reply), key_(key) {
    rows_left_ = call.arguments.number("limit", {1, max_rows}).value_or(max_rows);
    reply_[key] = Json::array();
    reply_["more"] = false;
}

bool Page::add(Json row) {
    const size_t size = row.dump(-1, ' ', false, Json::error_handler_t::replace).size() + 1;
    // A single row always fits.
    if (rows_left_ == 0 || (size > bytes_left_ && !reply_[key_].empty())) {
        reply_["more"] = true;
        return false;
    }
    --rows_left_;
    bytes_left_ -= std::min(size, bytes_left_);
    reply_[key_].push_back(std::move(row));
    return true;
}

} // namespace vswitch
