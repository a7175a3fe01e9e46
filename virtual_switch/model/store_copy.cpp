// SPDX-License-Identifier: Apache-2.0
#include "model/store_copy.h"

#include <memory>
#include <sqlite3.h>

namespace vswitch {

std::optional<std::string> StoreCopy::copy_more() {
    if (backup_.executeStep(pages_a_step) != SQLITE_DONE) {
        return std::nullopt;
    }
    sqlite3_int64 size = 0;
    const std::unique_ptr<unsigned char, decltype(&sqlite3_free)> bytes(
        sqlite3_serialize(target_.getHandle(), "main", &size, 0), sqlite3_free);
    if (!bytes) {
        throw SQLite::Exception("no memory for it", SQLITE_NOMEM);
    }
    return std::string(bytes.get(), bytes.get() + static_cast<size_t>(size));
}

} // namespace vswitch
