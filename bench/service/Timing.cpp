#include "Timing.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace sonorel::bench {

namespace {

[[noreturn]] void die(const char* what) {
    std::perror(what);
    std::abort();
}

}  // namespace

int64_t now() {
    timespec time{};
    (void)clock_gettime(CLOCK_MONOTONIC, &time);  // cannot fail for this clock
    return time.tv_sec * kSecond + time.tv_nsec;
}

void sleepUntil(int64_t when) {
    const timespec time{when / kSecond, when % kSecond};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr) != 0) {
    }
}

int64_t percentile(std::vector<int64_t> samples, double share) {
    if (samples.empty()) return 0;
    const auto last = static_cast<double>(samples.size() - 1);
    const auto at = samples.begin() + static_cast<ptrdiff_t>(std::lround(share * last));
    std::nth_element(samples.begin(), at, samples.end());
    return *at;
}

double micros(int64_t nanoseconds) {
    return static_cast<double>(nanoseconds) / kMicrosecond;
}

OneCore::OneCore(bool wanted) : mWanted(wanted), mEarlier(sizeof(cpu_set_t)) {
    if (!mWanted) return;
    cpu_set_t cores;
    if (sched_getaffinity(0, sizeof(cores), &cores) != 0) die("sched_getaffinity");
    memcpy(mEarlier.data(), &cores, sizeof(cores));
    int last = CPU_SETSIZE - 1;
    while (last > 0 && !CPU_ISSET(static_cast<size_t>(last), &cores))
        --last;
    CPU_ZERO(&cores);
    CPU_SET(static_cast<size_t>(last), &cores);
    if (sched_setaffinity(0, sizeof(cores), &cores) != 0) die("sched_setaffinity");
}

OneCore::~OneCore() {
    if (!mWanted) return;
    cpu_set_t cores;
    memcpy(&cores, mEarlier.data(), sizeof(cores));
    if (sched_setaffinity(0, sizeof(cores), &cores) != 0) die("sched_setaffinity");
}

struct SampleTimes::Shared {
    // [way][sent, received]
    std::array<std::array<std::array<std::atomic<int64_t>, kSamples>, 2>, kWays> times;
    std::array<std::atomic<uint64_t>, kWays> count;
    std::array<std::atomic<uint64_t>, kWays> outOfOrder;
    std::array<std::atomic<uint32_t>, kWays> next;
};

SampleTimes::SampleTimes(const std::string& path) {
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (file < 0 || ftruncate(file, sizeof(Shared)) != 0) die(path.c_str());
    // A new file reads as zeros, which is a fresh Shared.
    void* memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE,
                        file, 0);
    if (memory == MAP_FAILED) die("mmap");
    close(file);
    mShared = static_cast<Shared*>(memory);
}

SampleTimes::~SampleTimes() {
    munmap(mShared, sizeof(Shared));
}

void SampleTimes::set(Way way, int column, uint32_t sample) {
    if (sample >= kSamples) return;
    mShared->times[way][static_cast<size_t>(column)][sample].store(now(),
                                                                   std::memory_order_relaxed);
}

void SampleTimes::received(Way way, uint32_t sample) {
    set(way, 1, sample);
    // One receiver a way: these are not contended.
    if (sample != mShared->next[way].exchange(sample + 1)) ++mShared->outOfOrder[way];
    ++mShared->count[way];
}

uint64_t SampleTimes::count(Way way) const {
    return mShared->count[way];
}

uint64_t SampleTimes::outOfOrder(Way way) const {
    return mShared->outOfOrder[way];
}

std::vector<int64_t> SampleTimes::delays(Way way, uint32_t samples) const {
    std::vector<int64_t> delays;
    for (uint32_t i = 0; i < std::min(samples, kSamples); ++i) {
        const int64_t sentAt = mShared->times[way][0][i];
        const int64_t receivedAt = mShared->times[way][1][i];
        if (sentAt != 0 && receivedAt != 0) delays.push_back(receivedAt - sentAt);
    }
    return delays;
}

}  // namespace sonorel::bench
