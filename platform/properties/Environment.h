#pragma once

#include <cstdlib>

namespace sonorel {

// A variable of the environment, null when it is unset or empty.
inline const char* environmentVariable(const char* name) {
    // Whoever changes the environment does so before it starts threads.
    const char* value = getenv(name);  // NOLINT(concurrency-mt-unsafe)
    return value == nullptr || *value == '\0' ? nullptr : value;
}

}  // namespace sonorel
