#pragma once

#include <map>
#include <string>
#include <vector>

#include <utils/String8.h>

// Text forms of the fast game effect's list: which packages carry the switch, and their values.
// Both functions may run on any thread.

namespace android {

// Reads a list text, which is either
//   - a JSON object from package to integer, or
//   - lines "package value", where blank lines and lines that begin with '#' are skipped.
// Both outputs are replaced: `map` holds every package with its value (the last one if it is named
// twice), `pkgs` every package once, in order of first appearance. What cannot be read (a value
// that is no 32-bit integer, a line with more or fewer than two words, everything after a JSON
// syntax error or below 32 levels of nesting) is left out, with one log line a text.
void FastEffectString2PkgMapAndVec(String8 text, std::map<std::string, int>& map,
                                   std::vector<std::string>& pkgs);

// Writes the map as a JSON object, which FastEffectString2PkgMapAndVec reads back to the same map.
// Bytes that are not valid UTF-8 become U+FFFD. *out is replaced; null is a no-op.
void FastEffectPkgSwitchMap2String(std::map<std::string, int> map, String8* out);

}  // namespace android
