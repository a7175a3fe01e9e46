// SPDX-License-Identifier: Apache-2.0
#include "channel.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "mts.h"
#include "netsnmpagent_oryx.h"

namespace switch_agent {

uint32_t exchange(const Request &request, void *record, size_t size) {
    void *reply = nullptr;
    uint32_t length = request.length;
    uint32_t status = cmi_req_resp(request.opcode, request.kind, request.payload, &reply, &length, get_snmp_username(0),
                                   get_snmp_sessionid(0), request.service, mts_response_q, WAIT_CLASS);
    if (status == 0 && record) {
        if (reply && length == size) {
            memcpy(record, reply, size);
        } else {
            status = UINT32_MAX;
            errno = EPROTO;
        }
    }
    const int reason = errno;
    free(reply);
    errno = reason;
    return status;
}

} // namespace switch_agent
