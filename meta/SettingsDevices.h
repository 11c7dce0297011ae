// Device classes of the settings, as interface arguments and store operations carry them.
#pragma once

#include <cstdint>

#include <qelto/MetaInfoSqliteUtil.h>

namespace android {

// The store's type may be an enumeration of any names, or a plain integer.
inline constexpr auto kDeviceSpeaker = static_cast<meta_devices_t>(0);
inline constexpr auto kDeviceHeadset = static_cast<meta_devices_t>(1);
// No device given, in the WithDev methods.
inline constexpr auto kDeviceNone = static_cast<meta_devices_t>(-1);
// The store's current device.
inline constexpr auto kDeviceCurrent = static_cast<meta_devices_t>(-2);

}  // namespace android
