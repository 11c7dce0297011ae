// Device classes of the settings, as interface arguments and store operations carry them.
#pragma once

#include <cstdint>

namespace android {

inline constexpr int8_t kDeviceSpeaker = 0;
inline constexpr int8_t kDeviceHeadset = 1;
inline constexpr int8_t kDeviceNone = -1;     // no device given, in the WithDev methods
inline constexpr int8_t kDeviceCurrent = -2;  // the store's current device

}  // namespace android
