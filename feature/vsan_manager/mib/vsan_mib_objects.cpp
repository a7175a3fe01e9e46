// SPDX-License-Identifier: Apache-2.0
// From an object's number to its row.

#include "vsan_mib_objects.h"

namespace {

constexpr int last_magic = VSANFCTIMERFSTOV;

// For each number the place of its row, counted from 1; 0 where there is none.
struct object_places {
    uint8_t of[last_magic + 1] = {};

    constexpr object_places() {
        uint8_t place = 0;
        for (const vsan_object &object : vsan_objects) {
            of[object.magic] = ++place;
        }
    }
};

constexpr object_places places;

} // namespace

const vsan_object *find_object(int magic, object_table table) {
    const int place = magic >= 0 && magic <= last_magic ? places.of[magic] : 0;
    const vsan_object *object = place != 0 ? &vsan_objects[place - 1] : nullptr;
    return object != nullptr && object->table == table ? object : nullptr;
}
