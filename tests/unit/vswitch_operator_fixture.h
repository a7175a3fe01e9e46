// SPDX-License-Identifier: Apache-2.0
// A switch with its database and its roles, and an operator who sends it commands.
#ifndef VSWITCH_OPERATOR_FIXTURE_H
#define VSWITCH_OPERATOR_FIXTURE_H

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>

#include "vswitch_changes_fixture.h"

namespace vswitch_test {

using Json = nlohmann::json;

class OperatorTest : public ChangeTest {
  protected:
    uint32_t ask(uint32_t opcode, uint32_t kind, const Buffer &payload, const std::string &user = "admin") {
        return ask_service(MTS_SERVICE_SWITCH, opcode, kind, payload, user);
    }

    // A command of either kind, which must succeed.
    Json command(const std::string &name, Json arguments = Json::object(), uint32_t kind = MTS_KIND_SET) {
        arguments["command"] = name;
        EXPECT_EQ(ask(MTS_OP_SWITCH_COMMAND, kind, text_bytes(arguments.dump())), STATUS_SUCCESS)
            << std::string(reply_.data.begin(), reply_.data.end());
        return Json::parse(reply_.data);
    }
    Json look(const std::string &name, Json arguments = Json::object()) {
        return command(name, std::move(arguments), MTS_KIND_GET);
    }

    // The reply to a command that must be refused, its status a number.
    Json refused(const std::string &name, Json arguments) {
        arguments["command"] = name;
        EXPECT_NE(ask(MTS_OP_SWITCH_COMMAND, MTS_KIND_SET, text_bytes(arguments.dump())), STATUS_SUCCESS);
        Json reply = Json::parse(reply_.data);
        reply["status"] = reply_.status;
        EXPECT_TRUE(reply.at("error").get<std::string>().ends_with('.')) << reply;
        return reply;
    }

    uint32_t upload(const std::string &text) {
        const uint32_t number = command("upload.begin").at("upload");
        for (size_t at = 0; at < text.size(); at += 60000) {
            Buffer part = words({number, static_cast<uint32_t>(at)});
            const Buffer bytes = text_bytes(text.substr(at, 60000));
            part.insert(part.end(), bytes.begin(), bytes.end());
            EXPECT_EQ(ask(MTS_OP_SWITCH_PARCEL, MTS_KIND_SET, part), STATUS_SUCCESS);
        }
        return number;
    }

    std::string download(const Json &reply) {
        std::string content;
        while (content.size() < reply.at("size").get<size_t>()) {
            const Buffer place = words({reply.at("download"), static_cast<uint32_t>(content.size())});
            if (ask(MTS_OP_SWITCH_PARCEL, MTS_KIND_GET, place) != STATUS_SUCCESS || reply_.data.empty()) {
                ADD_FAILURE() << "no part at " << content.size();
                break;
            }
            content.append(reply_.data.begin(), reply_.data.end());
        }
        return content;
    }

    Json transaction(const Json &commands) { return command("transaction", {{"commands", commands}}); }
};

} // namespace vswitch_test

#endif
