// In a platform tree a device path is the path: the twin of the host library's header of this name,
// which maps device paths below a device root.
#pragma once

#include <string>

namespace android {

inline std::string mapDevicePath(const std::string& devicePath) {
    return devicePath;
}

}  // namespace android
