#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace sonorel::bench {

// Nanoseconds on the monotonic clock, which all processes share.
int64_t now();
void sleepUntil(int64_t when);

constexpr int64_t kMicrosecond = 1000;
constexpr int64_t kMillisecond = 1000 * kMicrosecond;
constexpr int64_t kSecond = 1000 * kMillisecond;

// The value below which `share` of the samples lie. The samples may be in any order.
int64_t percentile(std::vector<int64_t> samples, double share);
double micros(int64_t nanoseconds);

// Puts this process and the children that it starts from now on onto one core; the destructor gives
// the earlier cores back to this process.
class OneCore {
public:
    explicit OneCore(bool wanted);
    ~OneCore();
    OneCore(const OneCore&) = delete;
    OneCore& operator=(const OneCore&) = delete;

private:
    const bool mWanted;
    std::vector<uint8_t> mEarlier;
};

// When each sample of a series was sent and received, in memory that several processes map.
class SampleTimes {
public:
    static constexpr uint32_t kSamples = 1 << 18;
    // One-way over raw sockets; the same where the relay answers each sample, as the service must
    // answer a call; through the service.
    enum Way { kRaw, kRawAnswered, kService, kWays };

    // A file that every process of the measurement names.
    explicit SampleTimes(const std::string& path);
    ~SampleTimes();
    SampleTimes(const SampleTimes&) = delete;
    SampleTimes& operator=(const SampleTimes&) = delete;

    void sent(Way way, uint32_t sample) { set(way, 0, sample); }
    void received(Way way, uint32_t sample);
    // Samples that came so far, and those that did not follow the one before them.
    uint64_t count(Way way) const;
    uint64_t outOfOrder(Way way) const;
    // How long each took that was sent and received.
    std::vector<int64_t> delays(Way way, uint32_t samples) const;

private:
    struct Shared;
    void set(Way way, int column, uint32_t sample);

    Shared* mShared;
};

}  // namespace sonorel::bench
