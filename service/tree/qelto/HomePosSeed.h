// The product's home positions into the platform's settings store: the twin, for a platform tree,
// of the host library's header of this name, which does it in one transaction.
#pragma once

#include <algorithm>
#include <array>
#include <map>

#include <qelto/MetaInfoSqliteUtil.h>

namespace android {

using HomePositions = std::map<int, std::array<float, 3>>;  // by scene

// Gives the store's current user and device class `device` (0 or 1) these positions, unless that
// was done before. Another device than the store's current one is made current for the moment.
inline void seedHomePositions(const sp<MetaInfoSqliteUtil>& store, meta_devices_t device,
                              const HomePositions& positions) {
    const meta_devices_t current = store->getCurrentDevice();
    if (device != current) store->setCurrentDevice(device);
    if (store->needInitDefaultHomePos()) {
        for (const auto& [scene, position] : positions) {
            float xyz[3];
            std::copy(position.begin(), position.end(), xyz);
            store->updateMetaInfoByScene(scene, xyz, static_cast<meta_devices_t>(-2));
        }
        store->customDefaultHomePosInited();
    }
    if (device != current) store->setCurrentDevice(current);
}

}  // namespace android
