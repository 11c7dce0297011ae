#include <qelto/DevicePath.h>

#include <filesystem>

#include "Environment.h"

namespace android {

std::string mapDevicePath(const std::string& devicePath) {
    // Read at every call, so that a program may choose its root before it opens the first file.
    const char* variable = sonorel::environmentVariable("SONOREL_DEVICE_ROOT");
    if (variable == nullptr) return devicePath;
    const std::filesystem::path path(devicePath);
    if (!path.is_absolute()) return devicePath;
    // In its normal form an absolute path has no ".." left.
    std::string root(variable);
    while (!root.empty() && root.back() == '/')
        root.pop_back();
    return root + path.lexically_normal().string();
}

}  // namespace android
