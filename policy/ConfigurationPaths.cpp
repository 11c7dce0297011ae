#include "policy/ConfigurationPaths.h"

#include <cutils/properties.h>

namespace android {
namespace {

std::vector<std::string> readConfigurationPaths() {
    const bool aidlVolume = property_get_bool("ro.qelto.audio.aidl_volume", 0) != 0;
    char sku[PROPERTY_VALUE_MAX] = {};
    char vaAosp[PROPERTY_VALUE_MAX] = {};
    if (property_get("ro.boot.product.vendor.sku", sku, "") <= 0) {
        return configurationPaths(aidlVolume, "", "");
    }
    (void)property_get("ro.vendor.qti.va_aosp.support", vaAosp, "");  // "" does as well
    return configurationPaths(aidlVolume, sku, vaAosp);
}

}  // namespace

std::vector<std::string> configurationPaths(bool aidlVolume, const std::string& sku,
                                            const std::string& vaAosp) {
    std::vector<std::string> paths{"/odm/etc"};
    if (aidlVolume) paths.emplace_back("/odm/etc/audio");
    paths.emplace_back("/my_product/etc");
    if (!sku.empty()) {
        const std::string skuDir = "/vendor/etc/audio/sku_" + sku;
        const bool hasVariant = !vaAosp.empty() && vaAosp.front() == '1';
        paths.push_back(hasVariant ? skuDir + "_qssi" : skuDir);
        paths.push_back(skuDir);
    }
    for (const char* path : {"/vendor/etc/audio", "/vendor/etc", "/system/etc"}) {
        paths.emplace_back(path);
    }
    return paths;
}

const std::vector<std::string>& audio_get_configuration_paths() {
    static const std::vector<std::string> kPaths = readConfigurationPaths();
    return kPaths;
}

}  // namespace android
