// Counts the allocations of this program: the C functions, under which C++'s operators lie too.

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "Roles.h"

extern "C" {
// The C library's own, under the names that it keeps for such wrappers.
void* __libc_malloc(size_t size);                // NOLINT(bugprone-reserved-identifier)
void* __libc_calloc(size_t count, size_t size);  // NOLINT(bugprone-reserved-identifier)
void* __libc_realloc(void* old, size_t size);    // NOLINT(bugprone-reserved-identifier)
}

namespace {

std::atomic<uint64_t> gCount{0};

void countOne() {
    gCount.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace

extern "C" void* malloc(size_t size) {
    countOne();
    return __libc_malloc(size);
}

extern "C" void* calloc(size_t count, size_t size) {
    countOne();
    return __libc_calloc(count, size);
}

extern "C" void* realloc(void* old, size_t size) {
    countOne();
    return __libc_realloc(old, size);
}

uint64_t sonorel::bench::mallocCount() {
    return gCount.load(std::memory_order_relaxed);
}
