// Whether the product has the fast game effect: read once, while the library loads.
#pragma once

namespace android {

// The feature exists.
extern const bool gSupportFastGameEffect;
// Its switches are shown, so their values are kept in a store.
extern const bool gFastGameEffectShowUi;

}  // namespace android
