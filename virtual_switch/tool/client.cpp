// SPDX-License-Identifier: Apache-2.0
#include "tool/client.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fmt/format.h>
#include <memory>
#include <pwd.h>
#include <unistd.h>

#include "contract/frames.h"
#include "contract/services.h"
#include "contract/status_codes.h"
#include "mts.h"
#include "run_directory.h"

namespace vswitchctl {

namespace {

constexpr uint32_t longest_wait = 40; // ten seconds
uint32_t wait_class = longest_wait;

// Who works with the tool; the switch notes who holds a distribution session.
std::string user_name() {
    const passwd *entry = getpwuid(geteuid());
    return entry ? entry->pw_name : fmt::format("{}", geteuid());
}

// What a refusal says, as the exception to be thrown.
[[noreturn]] void refuse(uint32_t status, const Json &reply, const std::string &command) {
    if (!reply.is_object() || !reply.contains("error") || !reply["error"].is_string()) {
        throw Refusal(fmt::format("The switch answered {} with status 0x{:08x} and no explanation.", command, status));
    }
    const std::string sentence = reply["error"];
    if (status == STATUS_NO_SUCH_PARCEL) {
        throw Dropped(sentence);
    }
    if (reply.contains("number")) {
        throw TransactionRefusal(sentence, reply["number"], reply.value("reason", sentence));
    }
    throw Refusal(sentence);
}

Json send(uint32_t kind, const std::string &command, Json arguments) {
    arguments["command"] = command;
    const std::string text = arguments.dump(-1, ' ', false, Json::error_handler_t::replace);
    if (text.size() > MTS_WIRE_MAX_PAYLOAD) {
        throw Refusal("The command is too long.");
    }
    const auto [status, data] = exchange(MTS_OP_SWITCH_COMMAND, kind, text);
    Json reply = Json::parse(data, nullptr, false);
    if (status != 0 || !reply.is_object()) {
        refuse(status, reply, command);
    }
    return reply;
}

} // namespace

Answer exchange(uint32_t opcode, uint32_t kind, const std::string &payload) {
    auto length = static_cast<uint32_t>(payload.size());
    void *data = nullptr;
    const uint32_t status = cmi_req_resp(opcode, kind, payload.data(), &data, &length, user_name().c_str(), 0,
                                         MTS_SERVICE_SWITCH, mts_response_q, wait_class);
    const int reason = errno;
    const std::unique_ptr<void, decltype(&std::free)> owner(data, std::free);
    if (status == UINT32_MAX) {
        throw_connection_problem(reason);
    }
    return {status, data ? std::string(static_cast<const char *>(data), length) : std::string()};
}

bool is_utf8(const std::string &text) {
    try {
        static_cast<void>(Json(text).dump());
        return true;
    } catch (const Json::exception &) {
        return false;
    }
}

std::string connection_problem(int reason) {
    const std::string socket = std::string(run_directory()) + "/" MTS_SOCKET_NAME;
    switch (reason) {
    case ENOENT:
    case ENOTDIR:
    case ECONNREFUSED:
        return fmt::format("No switch runs at {}; start vswitchd, or name its run directory with --run.", socket);
    case EACCES:
        return fmt::format("You may not connect to {}.", socket);
    case EPERM:
        return fmt::format("Who listens at {} is not trusted: neither root nor you, nor a user who alone can write in "
                           "that directory.",
                           socket);
    case ETIMEDOUT:
        return fmt::format("The switch at {} does not answer.", socket);
    case ECONNRESET:
    case EPIPE:
        return fmt::format("The switch at {} closed the connection.", socket);
    case ENAMETOOLONG:
        return fmt::format("The path {} is too long for a socket; choose a shorter run directory.", socket);
    default:
        return fmt::format("Cannot talk to the switch at {}: {}.", socket, std::strerror(reason));
    }
}

void throw_connection_problem(int reason) {
    switch (reason) {
    case ENOENT:
    case ENOTDIR:
    case ECONNREFUSED:
    case ETIMEDOUT:
    case ECONNRESET:
    case EPIPE:
        throw Away(connection_problem(reason));
    default:
        throw Unreachable(connection_problem(reason));
    }
}

Patience::Patience(std::chrono::milliseconds longest) : former_(wait_class) {
    const auto units = longest.count() / MTS_WIRE_WAIT_UNIT_MS;
    wait_class = static_cast<uint32_t>(std::clamp<decltype(longest.count())>(units, 1, longest_wait));
}

Patience::~Patience() {
    wait_class = former_;
}

Json look(const std::string &command, Json arguments) {
    return send(MTS_KIND_GET, command, std::move(arguments));
}

Json change(const std::string &command, Json arguments) {
    return send(MTS_KIND_SET, command, std::move(arguments));
}

Json list(const std::string &command, const char *key, const char *after, Json arguments) {
    Json rows = Json::array();
    for (;;) {
        Json reply = look(command, arguments);
        const bool more = reply.value("more", false);
        if (!reply.contains(key) || !reply[key].is_array() || (more && reply[key].empty())) {
            throw Refusal(fmt::format("The switch answered {} with something else.", command));
        }
        for (Json &row : reply[key]) {
            rows.push_back(std::move(row));
        }
        if (!more) {
            reply.erase("more");
            reply[key] = std::move(rows);
            return reply;
        }
        arguments["after"] = reply.contains(after) ? reply[after] : rows.back().at(after);
    }
}

uint32_t find_port(const Json &port) {
    return look("port.show", {{"ifIndex", port}}).at("ifIndex").get<uint32_t>();
}

} // namespace vswitchctl
