#pragma once

#include <string>

namespace android {

// Where a device's file lies on this system. On a host $SONOREL_DEVICE_ROOT names the folder that
// stands for the device's "/"; an absolute path is mapped below it and cannot leave it by "..".
// Relative paths, and every path while the variable is unset, come back as they are. Call it where
// a file is opened; paths that are logged or stored stay the device's. Thread-safe.
std::string mapDevicePath(const std::string& devicePath);

}  // namespace android
