#pragma once

#include <stdint.h>

// The platform's property interface, on a host. Properties are short texts under dotted names, one
// table a process. Its sources, later ones win:
//   1. <root>/build.prop, where root is $SONOREL_DEVICE_ROOT;
//   2. the file that $SONOREL_PROPERTIES names;
//   3. property_set and the files that sonorel::loadPropertyFile() reads.
// The first two are read once, at the first use of any function here, which may be during the
// static initialisation of a library. Everything here is thread-safe.

// The platform's bound on a name in its oldest form; longer names are accepted.
#define PROPERTY_KEY_MAX 32
// The bound on a value, its terminating zero included. Longer values are refused, not cut.
#define PROPERTY_VALUE_MAX 92

extern "C" {

// Copies the value of `key` to `value`, which has room for PROPERTY_VALUE_MAX bytes, and returns
// its length. A property that is not set, or empty, gives `default_value` (cut to fit) or, when
// that is null, the empty text.
int property_get(const char* key, char* value, const char* default_value);

// 1 for "1", "y", "yes", "on", "true"; 0 for "0", "n", "no", "off", "false"; the default for
// everything else. Case and blanks count.
int8_t property_get_bool(const char* key, int8_t default_value);

// The value as an integer, in decimal, hexadecimal (0x) or octal (0). The default when the property
// is not set, does not begin with a number or is out of the type's range.
int32_t property_get_int32(const char* key, int32_t default_value);
int64_t property_get_int64(const char* key, int64_t default_value);

// Sets a property; null stands for the empty text. Returns 0, or -1 with a log line when the name
// or the value is not one. Unlike a device's, "ro." properties can be set again.
int property_set(const char* key, const char* value);
}
