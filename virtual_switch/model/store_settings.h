// SPDX-License-Identifier: Apache-2.0
// How the settings of the whole switch are kept in the database: a row each.
#ifndef VSWITCH_STORE_SETTINGS_H
#define VSWITCH_STORE_SETTINGS_H

#include <cstdint>
#include <span>
#include <stdexcept>

#include "model/switch_data.h"

namespace vswitch {

// Something in the database is not as we write it.
class Damage : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// A setting's name, and its value as a 64-bit number both ways. `set` throws Damage for a
// number that the setting cannot have.
struct SettingRow {
    const char *name;
    int64_t (*get)(const Settings &);
    void (*set)(Settings &, int64_t);
};

std::span<const SettingRow> setting_rows();

} // namespace vswitch

#endif
