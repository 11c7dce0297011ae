#pragma once

/**
 * With SONOREL_FLAKE_DELAYS, waits a short random time around each socket operation now and then,
 * so that orders which a quiet machine never shows come up in tests. Otherwise nothing.
 */
#ifdef SONOREL_FLAKE_DELAYS

#include <time.h>

#include <random>

namespace android::transport {

inline void flakeDelay() {
    thread_local std::minstd_rand random(std::random_device{}());
    if (random() % 16 != 0) return;
    const timespec pause = {0, static_cast<long>(random() % 1000000)};
    nanosleep(&pause, nullptr);
}

}  // namespace android::transport

#else

namespace android::transport {

inline void flakeDelay() {}

}  // namespace android::transport

#endif
