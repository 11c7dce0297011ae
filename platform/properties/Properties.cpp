#define LOG_TAG "Properties"

#include <cutils/properties.h>
#include <log/log.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstring>
#include <limits>
#include <string>

#include "PropertyStore.h"

namespace {

// The value, "" when the property is not set.
std::string valueOf(const char* key) {
    if (key == nullptr) return "";
    return sonorel::PropertyStore::get().find(key).value_or("");
}

template <typename Int>
Int integerOf(const char* key, Int defaultValue) {
    const std::string text = valueOf(key);
    char* end = nullptr;
    errno = 0;
    const intmax_t value = strtoimax(text.c_str(), &end, 0);
    const bool fits = errno != ERANGE && value >= std::numeric_limits<Int>::min() &&
                      value <= std::numeric_limits<Int>::max();
    return end != text.c_str() && fits ? static_cast<Int>(value) : defaultValue;
}

}  // namespace

int property_get(const char* key, char* value, const char* default_value) {
    std::string text = valueOf(key);
    if (text.empty() && default_value != nullptr) text = default_value;
    const size_t length = std::min(text.size(), size_t{PROPERTY_VALUE_MAX - 1});
    memcpy(value, text.data(), length);
    value[length] = '\0';
    return static_cast<int>(length);
}

int8_t property_get_bool(const char* key, int8_t default_value) {
    const std::string text = valueOf(key);
    for (const char* word : {"1", "y", "yes", "on", "true"}) {
        if (text == word) return 1;
    }
    for (const char* word : {"0", "n", "no", "off", "false"}) {
        if (text == word) return 0;
    }
    return default_value;
}

int32_t property_get_int32(const char* key, int32_t default_value) {
    return integerOf<int32_t>(key, default_value);
}

int64_t property_get_int64(const char* key, int64_t default_value) {
    return integerOf<int64_t>(key, default_value);
}

int property_set(const char* key, const char* value) {
    std::string error = "no property name";
    if (key != nullptr &&
        sonorel::PropertyStore::get().set(key, value == nullptr ? "" : value, &error)) {
        return 0;
    }
    ALOGE("property_set refused: %s", error.c_str());
    return -1;
}
