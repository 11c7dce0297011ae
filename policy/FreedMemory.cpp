#include "policy/FreedMemory.h"

#include <malloc.h>

namespace android {

void returnFreedMemory() {
    // Each C library has its own way, or none.
#if defined(M_PURGE)
    (void)mallopt(M_PURGE, 0);
#elif defined(__GLIBC__)
    // This library keeps the free end of each thread's heap up to a threshold, which it doubles
    // with the largest block that was ever freed unless it is set; this is what it begins with.
    constexpr int kThreshold = 128 * 1024;
    // Thread-safe in this library, which takes its own lock.
    static const int kIsSet =
            mallopt(M_TRIM_THRESHOLD, kThreshold);  // NOLINT(concurrency-mt-unsafe)
    (void)kIsSet;
    (void)malloc_trim(0);
#endif
}

}  // namespace android
