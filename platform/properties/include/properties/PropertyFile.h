#pragma once

#include <string>

namespace sonorel {

// Sets every property of a file of `key=value` lines; '#' begins a comment line and blanks around
// keys and values do not count. A line that is no property is logged with file and line and
// skipped. False, with the reason in outError, when the file cannot be read as a whole.
// Thread-safe.
[[nodiscard]] bool loadPropertyFile(const std::string& path, std::string* outError);

}  // namespace sonorel
