#include "policy/FreedMemory.h"

#include <malloc.h>

namespace android {

void returnFreedMemory() {
    // Each C library has its own way, or none.
#if defined(M_PURGE)
    (void)mallopt(M_PURGE, 0);
#elif defined(__GLIBC__)
    // This library keeps the free end of each thread's heap: 128 KiB of it whatever is trimmed,
    // which makes 2 MB for the threads of a pool, and all of it up to a threshold, which it doubles
    // with the largest block that was ever freed unless it is set.
    constexpr int kKept = 32 * 1024;
    constexpr int kThreshold = 128 * 1024;  // what it begins with
    const auto set = [](int what, int bytes) {
        // Once in the life of the process, and under the library's own lock.
        return mallopt(what, bytes) != 0;  // NOLINT(concurrency-mt-unsafe)
    };
    static const bool kAreSet = set(M_TOP_PAD, kKept) && set(M_TRIM_THRESHOLD, kThreshold);
    (void)kAreSet;
    (void)malloc_trim(0);
#endif
}

}  // namespace android
