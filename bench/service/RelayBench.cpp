// Head data from a tracker process through the service to a renderer process.

#include <memory>

#include <benchmark/benchmark.h>
#include <signal.h>

#include <algorithm>
#include <cstdio>

#include "Processes.h"
#include "Timing.h"
#include "support/TempDir.h"

namespace sonorel::bench {
namespace {

using test::TempDir;

std::string number(int value) {
    return std::to_string(value);
}

// The processes of the raw ways: for each, a relay and a renderer, connected.
class RawWays {
public:
    RawWays(const TempDir& folder, const std::string& times) {
        for (const auto way : {SampleTimes::kRaw, SampleTimes::kRawAnswered}) {
            const std::string last = folder.path("renderer" + number(way));
            mPaths.push_back(folder.path("relay" + number(way)));
            mChildren.push_back(startRole({"raw-renderer", times, number(way), last}));
            std::vector<std::string> relay = {"raw-relay", mPaths.back(), last};
            if (way == SampleTimes::kRawAnswered) relay.emplace_back("answer");
            mChildren.push_back(startRole(relay));
        }
    }
    const std::string& path(SampleTimes::Way way) const { return mPaths[way]; }

private:
    std::vector<std::string> mPaths;
    std::vector<std::unique_ptr<test::ChildProcess>> mChildren;
};

// Six floats, tracker to service to renderer, in turns with the same two hops over raw stream
// sockets. range(0): all on one core; range(1): samples a second. A fast series finds its code and
// data in the caches, one of 1 kHz seldom does.
void relayPaced(benchmark::State& state) {
    constexpr uint32_t kSamples = 5000;
    for (auto _ : state) {
        const OneCore core(state.range(0) != 0);
        const TempDir folder;
        const std::string times = folder.path("times");
        SampleTimes samples(times);
        const ServiceRun run;
        const auto renderer = startRole({"renderer", times});
        const RawWays raw(folder, times);
        test::ChildProcess tracker(role({"tracker", times, raw.path(SampleTimes::kRaw),
                                         raw.path(SampleTimes::kRawAnswered), number(kSamples),
                                         number(static_cast<int>(1000000 / state.range(1)))}));
        require(tracker.waitForLine("done", std::chrono::minutes(2)), tracker.errors());
        for (int way = 0; way < SampleTimes::kWays; ++way) {
            const auto which = static_cast<SampleTimes::Way>(way);
            require(test::eventually([&] { return samples.count(which) == kSamples; }),
                    "samples were lost");
            require(samples.outOfOrder(which) == 0, "samples out of order");
        }
        for (const auto& [name, share] : {std::pair{"p50", 0.5}, std::pair{"p99", 0.99}}) {
            const auto time = [&, at = share](SampleTimes::Way way) {
                return micros(percentile(samples.delays(way, kSamples), at));
            };
            const std::string suffix = std::string("_") + name;
            state.counters["raw_us" + suffix] = time(SampleTimes::kRaw);
            state.counters["raw_answered_us" + suffix] = time(SampleTimes::kRawAnswered);
            state.counters["service_us" + suffix] = time(SampleTimes::kService);
            state.counters["ratio" + suffix] =
                    time(SampleTimes::kService) / time(SampleTimes::kRaw);
            state.counters["ratio_answered" + suffix] =
                    time(SampleTimes::kService) / time(SampleTimes::kRawAnswered);
        }
    }
}
BENCHMARK(relayPaced)
        ->ArgNames({"one_core", "hz"})
        ->ArgsProduct({{1, 0}, {1000, 5000}})
        ->Iterations(1)
        ->Unit(benchmark::kSecond)
        ->UseRealTime();

// As fast as the tracker can, to a renderer that reads.
void relayFlatOut(benchmark::State& state) {
    constexpr uint32_t kSamples = 100000;
    for (auto _ : state) {
        const OneCore core(state.range(0) != 0);
        const TempDir folder;
        SampleTimes samples(folder.path("times"));
        HostRun run;
        const auto renderer = startRole({"renderer", folder.path("times")});
        const HostRun::Figures before = run.ask();
        test::ChildProcess flood(role({"flood", std::to_string(kSamples)}));
        std::string done;
        require(flood.waitForLine("done", std::chrono::minutes(2), &done), flood.errors());
        HostRun::Figures after{};
        require(test::eventually([&] {
                    after = run.ask();
                    return after.sent == after.delivered;
                }),
                "one-way calls are stuck");
        const uint64_t refused = after.failed - before.failed;
        require(samples.count(SampleTimes::kService) + refused == kSamples,
                "a sample was lost or doubled without being counted");
        require(samples.outOfOrder(SampleTimes::kService) <= refused, "samples out of order");
        state.counters["per_second"] =
                kSamples * 1e9 / static_cast<double>(std::stoll(done.substr(sizeof("done"))));
        state.counters["refused"] = static_cast<double>(refused);
    }
}
BENCHMARK(relayFlatOut)
        ->ArgName("one_core")
        ->Arg(1)
        ->Arg(0)
        ->Iterations(1)
        ->Unit(benchmark::kSecond)
        ->UseRealTime();

// To a renderer that does not read: what fits its bound comes later, in order; the rest is counted.
void relayPastTheBound(benchmark::State& state) {
    constexpr uint32_t kSamples = 5000;
    for (auto _ : state) {
        const TempDir folder;
        SampleTimes samples(folder.path("times"));
        HostRun run;
        const auto renderer = startRole({"renderer", folder.path("times")});
        const HostRun::Figures before = run.ask();
        renderer->kill(SIGSTOP);
        test::ChildProcess flood(role({"flood", std::to_string(kSamples)}));
        require(flood.waitForLine("done", std::chrono::minutes(2)), flood.errors());
        const uint64_t accepted = run.ask().sent - before.sent;
        const uint64_t refused = run.ask().failed - before.failed;
        require(accepted + refused == kSamples, "a sample is not accounted for");
        renderer->kill(SIGCONT);
        require(test::eventually([&] { return samples.count(SampleTimes::kService) == accepted; }),
                "an accepted sample did not come");
        require(samples.outOfOrder(SampleTimes::kService) == 0, "samples out of order");
        state.counters["accepted"] = static_cast<double>(accepted);
        state.counters["refused"] = static_cast<double>(refused);
    }
}
BENCHMARK(relayPastTheBound)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

// Allocations in the service's process for one sample, from the call's bytes to the relay's.
void allocationsOfOneSample(benchmark::State& state) {
    constexpr int kCalls = 10000;
    const TempDir folder;
    HostRun run;
    const auto renderer = startRole({"renderer", folder.path("times")});
    const std::vector<float> data(6);
    const auto sendAll = [&] {
        for (int i = 0; i < kCalls; ++i)
            require(run.service()->sendHeadToStageData(data).isOk(), "call failed");
    };
    for (auto _ : state) {
        sendAll();  // warms up
        const uint64_t before = run.ask().mallocs;
        const uint64_t asking = run.ask().mallocs - before;
        sendAll();
        const uint64_t after = run.ask().mallocs;
        state.counters["allocations"] = static_cast<double>(after - before - 2 * asking) / kCalls;
    }
}
BENCHMARK(allocationsOfOneSample)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace sonorel::bench
