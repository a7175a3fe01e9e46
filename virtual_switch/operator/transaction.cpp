// SPDX-License-Identifier: Apache-2.0
// Several commands as one change, and what else comes in or goes out in parts.
#include "operator/transaction.h"

#include <chrono>
#include <ctime>

#include "contract/limits.h"

namespace vswitch {

namespace {

using Json = JsonReader::Json;

constexpr size_t max_replies = 16u << 20; // bytes, all together
constexpr size_t max_reply = 90000;       // what fits into one reply for sure

// That of the processor, so that a busy machine refuses nothing.
std::chrono::nanoseconds processor_time() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

// The name that a command has, or "" where it is none.
std::string name_of(const Json &command) {
    const auto name = command.is_object() ? command.find("command") : command.end();
    return command.is_object() && name != command.end() && name->is_string() ? name->get<std::string>() : "";
}

// Runs the commands on a draft, and returns their replies. Throws CommandRefusal.
class Rehearsal {
  public:
    Rehearsal(ServedSwitch &draft, const Call &call) : draft_(draft), call_(call) {}

    Json run(const Json &commands) {
        const auto begin = processor_time();
        Json replies = Json::array();
        size_t size = 0;
        for (const Json &command : commands) {
            replies.push_back(run_one(replies.size() + 1, command));
            size += replies.back().dump(-1, ' ', false, Json::error_handler_t::replace).size() + 1;
            // Nobody hears of these.
            draft_.events.deliver();
            if (size > max_replies || processor_time() - begin > call_.the_switch.transaction_time) {
                throw Refusal(STATUS_BAD_LENGTH, "The transaction is too large; make it several.");
            }
        }
        return replies;
    }

  private:
    Json run_one(size_t number, const Json &command) {
        const std::string name = name_of(command);
        try {
            if (!command.is_object()) {
                throw Refusal("It must be an object.");
            }
            const Command *known = find_command(name);
            if (known && !known->configures) {
                throw Refusal("It does not change the configuration alone, and cannot be part of a transaction.");
            }
            if (name.starts_with("role.")) {
                draft_roles(draft_, call_.the_switch);
            }
            return run_command(draft_, call_.requester.user, MTS_KIND_SET, command);
        } catch (const Refusal &refusal) {
            const std::string shown = name.empty() ? "" : fmt::format(" ({})", JsonReader::printable(name));
            throw CommandRefusal(number, refusal, fmt::format("Command {}{}: {}", number, shown, refusal.what()));
        }
    }

    ServedSwitch &draft_;
    const Call &call_;
};

// The commands, from the command itself or from an upload.
Json read_commands(Call &call) {
    const Arguments &arguments = call.arguments;
    Json holder = arguments.json();
    if (holder.contains("upload")) {
        if (holder.contains("commands")) {
            arguments.reader().fail("\"commands\" and \"upload\" exclude each other");
        }
        const JsonReader reader("the upload");
        holder = reader.parse_object(take_upload(call));
        reader.expect_object(holder, "it", {"commands"});
    }
    const auto commands = holder.find("commands");
    if (commands == holder.end()) {
        arguments.reader().fail("it needs \"commands\"");
    }
    arguments.reader().expect_array(*commands, "\"commands\"");
    if (commands->size() > TRANSACTION_COMMANDS_MAX) {
        arguments.reader().fail(fmt::format("\"commands\" must hold at most {}, and there are {}",
                                            TRANSACTION_COMMANDS_MAX, commands->size()));
    }
    return std::move(*commands);
}

void run_transaction(Call &call) {
    const Json commands = read_commands(call);
    ServedSwitch draft(call.the_switch.model.data(), Roles());
    begin_draft(draft, call.the_switch);
    call.reply["replies"] = Rehearsal(draft, call).run(commands);
    const Wanted wanted{draft.model.data(), draft.drafted_roles ? &*draft.drafted_roles : nullptr};
    change_or_tell(call, wanted, "The transaction");
    shorten(call);
}

void begin_upload(Call &call) {
    call.reply["upload"] = call.the_switch.parcels.begin();
}

const Command commands[] = {
    {"upload.begin", MTS_KIND_SET, begin_upload, {}},
    {"transaction", MTS_KIND_SET, run_transaction, {"commands", "upload", "dryRun"}},
};

} // namespace

std::string take_upload(Call &call) {
    const uint32_t number = call.arguments.required_number("upload", any_number);
    auto content = call.the_switch.parcels.take(number);
    if (!content) {
        throw Refusal(STATUS_NO_SUCH_PARCEL, "The upload is gone, since others needed its room; try again.");
    }
    return std::move(*content);
}

void shorten(Call &call) {
    std::string text = call.reply.dump(-1, ' ', false, Json::error_handler_t::replace);
    if (text.size() > max_reply) {
        const size_t size = text.size();
        call.reply = {{"download", call.the_switch.parcels.keep(std::move(text))}, {"size", size}};
    }
}

std::span<const Command> transaction_commands() {
    return commands;
}

} // namespace vswitch
