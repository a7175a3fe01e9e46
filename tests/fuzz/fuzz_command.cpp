// SPDX-License-Identifier: Apache-2.0
// Whatever bytes come as an operator's command: the switch answers one JSON object that fits
// a frame, and a refusal says why and changes nothing.
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "contract/frames.h"
#include "contract/status_codes.h"
#include "model/configuration.h"
#include "services/services.h"

using namespace vswitch;

namespace {

SwitchData make_data() {
    return parse_configuration(R"({
        "vsans": [{"id": 10, "timers": {"ratov": 20000}}, {"id": 4095, "state": "suspended"}],
        "ports": [{"ifIndex": 1}, {"ifIndex": 16777216, "vsan": 10}, {"ifIndex": 4294967295, "vsan": 4095}],
        "tdx": {"fctimer": {"enabled": true, "timers": {"10": {"ratov": 30000}}}}})",
                               "fuzz");
}

// What a refused command must leave as it was.
bool is_unchanged(const ServedSwitch &target, const SwitchData &data) {
    const SwitchModel &model = target.model;
    if (model.settings() != data.settings || model.vsan_count() != data.vsans.size() ||
        model.port_count() != data.ports.size() || model.session() || !target.events.staged().empty() ||
        !target.faults.list().empty() || !target.client_faults.list().empty() || !target.roles.list().empty()) {
        return false;
    }
    for (const auto &[id, vsan] : data.vsans) {
        if (!model.vsan(id) || *model.vsan(id) != vsan) {
            return false;
        }
    }
    for (const auto &[if_index, port] : data.ports) {
        if (!model.port(if_index) || *model.port(if_index) != port) {
            return false;
        }
    }
    return true;
}

} // namespace

// The first byte is the kind, as a digit.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    static const SwitchData data = make_data();
    if (size == 0) {
        return 0;
    }
    ServedSwitch target(data, Roles());
    Request request;
    request.service = MTS_SERVICE_SWITCH;
    request.opcode = MTS_OP_SWITCH_COMMAND;
    request.kind = bytes[0] - uint32_t{'0'};
    request.payload = Bytes(bytes + 1, size - 1);
    request.length = static_cast<uint32_t>(size - 1);
    request.user = "operator";
    Reply reply;
    answer_request(target, request, reply);
    const uint32_t status = reply.status;
    if (request.kind != MTS_KIND_GET && request.kind != MTS_KIND_SET) {
        // No command at all, so that nobody explains it.
        if (status != STATUS_NO_SUCH_KIND) {
            abort();
        }
        return 0;
    }
    if (reply.data.size() > MTS_WIRE_MAX_BODY - MTS_WIRE_REPLY_FIXED) {
        abort();
    }
    const auto json = nlohmann::json::parse(reply.data.begin(), reply.data.end(), nullptr, false);
    if (!json.is_object()) {
        abort();
    }
    if (status != 0 && (!json.contains("error") || !json["error"].is_string() || !is_unchanged(target, data))) {
        abort();
    }
    return 0;
}
