// GET and GETNEXT on the per-VSAN Fibre Channel timer table.

#include "vsan_mib.h"

extern "C" {

// The table is registered, and has no rows yet.
u_char *get_vsanFcTimerEntry(variable *, oid *, size_t *, int, size_t *, WriteMethod **) {
    return nullptr;
}

} // extern "C"
