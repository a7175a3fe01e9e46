// GET and GETNEXT on the interface membership table and the membership summary.

#include "vsan_mib.h"

extern "C" {

// Both tables are registered, and have no rows yet.
u_char *get_vsanIfEntry(variable *, oid *, size_t *, int, size_t *, WriteMethod **) {
    return nullptr;
}

u_char *get_vsanMembershipSummaryEntry(variable *, oid *, size_t *, int, size_t *, WriteMethod **) {
    return nullptr;
}

} // extern "C"
