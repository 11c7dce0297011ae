// Where configuration files are looked for.
#pragma once

#include <string>
#include <vector>

namespace android {

// The configuration folders of a product, in search order, without trailing "/". `vaAosp` is the
// value of ro.vendor.qti.va_aosp.support; only its first character counts. The plain folder of a
// SKU stands twice when it has no variant, as a first-match search may.
std::vector<std::string> configurationPaths(bool aidlVolume, const std::string& sku,
                                            const std::string& vaAosp);

// The same list from this product's properties: read at the first call, kept to the end of the
// process. Thread-safe.
const std::vector<std::string>& audio_get_configuration_paths();

}  // namespace android
