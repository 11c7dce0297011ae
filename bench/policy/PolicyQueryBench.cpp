// What a query costs beside the copy of its text, at rest and while another thread reloads.
#include <android/log.h>
#include <benchmark/benchmark.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "service/SonorelService.h"
#include "support/TempDir.h"
#include "tests/policy/GeneratedPolicy.h"

namespace {

using android::SonorelService;
using Clock = std::chrono::steady_clock;
using Nanoseconds = std::chrono::duration<double, std::nano>;

// The processor time of this thread: what else runs would only blur the cost of a query.
Nanoseconds processorTime() {
    timespec time{};
    (void)clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);  // this clock is always there
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

// One service for all benchmarks, on a device root with a large policy file in both places.
class Service {
public:
    Service() {
        __android_log_set_minimum_priority(ANDROID_LOG_FATAL);
        const std::string text =
                sonorel::test::generatePolicy({5000, 13, 200, 100, 100}, "20240601");
        (void)mRoot.write("system_ext/etc/Meta_Audio_Policy.xml", text);
        (void)mRoot.write("data/qelto/multimedia/Meta_Audio_Policy_Online.xml", text);
        if (setenv("SONOREL_DEVICE_ROOT", mRoot.path().c_str(), 1) != 0 ||
            chdir(mRoot.path().c_str()) != 0) {
            std::abort();
        }
        mService = SonorelService::testInstantiate();
    }

    SonorelService& operator*() { return *mService; }

private:
    sonorel::test::TempDir mRoot;
    android::sp<SonorelService> mService;
};

SonorelService& service() {
    static Service instance;
    return *instance;
}

template <typename Query>
void measure(benchmark::State& state, const Query& query) {
    std::string answer;
    query(&answer);
    const std::string text = answer;
    Nanoseconds queryTime{}, copyTime{};
    constexpr int kEach = 100;
    for (auto _ : state) {
        const auto start = processorTime();
        for (int i = 0; i < kEach; ++i) {
            query(&answer);
            benchmark::DoNotOptimize(answer.data());
        }
        const auto asked = processorTime();
        for (int i = 0; i < kEach; ++i) {
            answer.assign(text.data(), text.size());
            benchmark::DoNotOptimize(answer.data());
        }
        queryTime += asked - start;
        copyTime += processorTime() - asked;
    }
    const double count = static_cast<double>(state.iterations()) * kEach;
    state.counters["bytes"] = static_cast<double>(text.size());
    state.counters["query_ns"] = queryTime.count() / count;
    state.counters["beside_copy_ns"] = (queryTime - copyTime).count() / count;
}

void SceneMap(benchmark::State& state) {
    measure(state, [](std::string* answer) { (void)service().getMetaAudioSceMap(answer); });
}
BENCHMARK(SceneMap);

void ProcessorMap(benchmark::State& state) {
    measure(state, [](std::string* answer) { (void)service().getDynamicProcessorInfMap(answer); });
}
BENCHMARK(ProcessorMap);

void PackageInfo(benchmark::State& state) {
    measure(state, [](std::string* answer) {
        (void)service().getMetaInfoByPkgName("com.example.p0.app", answer);
    });
}
BENCHMARK(PackageInfo);

void UnsupportedDevice(benchmark::State& state) {
    measure(state, [](std::string* answer) {
        bool listed = false;
        (void)service().isUnsupportDevice("device-150", &listed);
        answer->clear();
    });
}
BENCHMARK(UnsupportedDevice);

// The slowest of all answers while the file is read again and again; a reload takes as long as
// "reload_us". Only meaningful with a processor for each of the two threads.
void SceneMapDuringReloads(benchmark::State& state) {
    std::atomic<bool> done{false};
    std::atomic<int64_t> reloads{0};
    const auto begin = Clock::now();
    (void)service();
    std::thread loader([&] {
        while (!done) {
            bool reloaded = false;
            (void)service().checkAndUpdatePolicy(&reloaded);
            ++reloads;
        }
    });
    Nanoseconds slowest{};
    std::string answer;
    for (auto _ : state) {
        const auto start = Clock::now();
        (void)service().getMetaAudioSceMap(&answer);
        slowest = std::max(slowest, Nanoseconds(Clock::now() - start));
    }
    done = true;
    loader.join();
    const Nanoseconds all = Clock::now() - begin;
    state.counters["slowest_us"] = slowest.count() / 1e3;
    state.counters["reload_us"] = all.count() / 1e3 / static_cast<double>(reloads);
}
BENCHMARK(SceneMapDuringReloads)->MinTime(2.0);

}  // namespace

BENCHMARK_MAIN();
