// The managers' events as notifications.

#include "vsan_mib.h"

extern "C" {

// Both callbacks are subscribed, and turn no event into a notification yet.
netsnmp_variable_list *handle_notifications(const mts_message *, oid *, size_t *, int *send) {
    *send = 0;
    return nullptr;
}

netsnmp_variable_list *handle_port_memb_change_notifications(const mts_message *, oid *, size_t *, int *send) {
    *send = 0;
    return nullptr;
}

} // extern "C"
