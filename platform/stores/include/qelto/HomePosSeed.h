// The product's home positions into the settings store. In a platform tree, whose store has only
// the platform's operations, service/tree holds a header of this name that makes do with them.
#pragma once

#include <array>
#include <map>

#include <qelto/MetaInfoSqliteUtil.h>

namespace android {

using HomePositions = std::map<int, std::array<float, 3>>;  // by scene

// Gives the store's current user and device class `device` (0 or 1) these positions, unless that
// was done before; positions that the user chose stay. One transaction, the mark included: when it
// fails, which is logged, the next call does it. The store's current device stays as it is. Costs
// one read once done. Thread-safe.
inline void seedHomePositions(const sp<MetaInfoSqliteUtil>& store, meta_devices_t device,
                              const HomePositions& positions) {
    store->seedHomePositions(device, positions);
}

}  // namespace android
