// What clients feel: the tick, a query beside a client that thinks, the end of a killed client.

#include <memory>

#include <benchmark/benchmark.h>
#include <dirent.h>
#include <signal.h>

#include <atomic>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <thread>

#include "Processes.h"
#include "Timing.h"
#include "process/RecordingClient.h"

namespace sonorel::bench {
namespace {

using android::sp;
using test::RecordingClient;

// Nanoseconds that all threads of a process have run.
int64_t processTime(pid_t pid) {
    const std::string folder = "/proc/" + std::to_string(pid) + "/task";
    int64_t time = 0;
    DIR* const threads = opendir(folder.c_str());
    require(threads != nullptr, folder);
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the stream is this function's own
    while (const dirent* entry = readdir(threads)) {
        int64_t ran = 0;
        std::ifstream(folder + "/" + entry->d_name + "/schedstat") >> ran;
        time += ran;
    }
    closedir(threads);
    return time;
}

std::vector<int64_t> tickTimes(test::ChildProcess* ticker) {
    require(ticker->write("tell\n"), "the ticker reads no more");
    require(ticker->waitForLine("end"), ticker->errors());
    std::istringstream text(ticker->output());
    std::string line;
    std::getline(text, line);  // ready
    std::vector<int64_t> times;
    while (std::getline(text, line) && line != "end")
        times.push_back(std::stoll(line));
    return times;
}

// range(0): seconds; range(1): meanwhile client 1 takes 2 s for an answer.
void tickPeriod(benchmark::State& state) {
    for (auto _ : state) {
        const ServiceRun run;
        const auto& service = run.service();
        const auto ticker = startRole({"ticker"});
        const auto thinker = startRole({"thinker", "1", "2000"});
        int32_t status = 0;
        require(service->notitySpHeadsetConnectionState(true).isOk() &&
                        service->setMetaAudioOn(true, &status).isOk() &&
                        service->setMetaAudioThreadEnable(true).isOk(),
                "tick");
        const pid_t pid = run.pid();
        const int64_t end = now() + state.range(0) * kSecond;
        const int64_t ranBefore = processTime(pid);
        do {
            bool playing = false;
            if (state.range(1) != 0) {
                require(service->isMetaTrackPlaying(&playing).isOk() && playing, "answer");
            } else {
                sleepUntil(end);
            }
        } while (now() < end);
        const int64_t ran = processTime(pid) - ranBefore;
        require(service->setMetaAudioThreadEnable(false).isOk(), "tick");
        const std::vector<int64_t> times = tickTimes(ticker.get());
        std::vector<int64_t> periods;
        for (size_t i = 1; i < times.size(); ++i)
            periods.push_back(times[i] - times[i - 1]);
        state.counters["ticks"] = static_cast<double>(times.size());
        state.counters["median_ms"] = micros(percentile(periods, 0.5)) / 1000;
        state.counters["p99_ms"] = micros(percentile(periods, 0.99)) / 1000;
        state.counters["max_ms"] = micros(percentile(periods, 1)) / 1000;
        state.counters["cpu_us_per_tick"] = micros(ran) / static_cast<double>(times.size());
    }
}
BENCHMARK(tickPeriod)
        ->ArgNames({"seconds", "client_thinks"})
        ->Args({10, 0})
        ->Args({4, 1})
        ->Iterations(1)
        ->Unit(benchmark::kSecond)
        ->UseRealTime();

struct QueryTimes {
    double p50;
    double p99;
};

QueryTimes timeQueries(const sp<qelto::halvend::ISonorelService>& service,
                       const std::function<bool()>& enough) {
    std::vector<int64_t> times;
    std::string text;
    while (!enough() || times.size() < 100) {
        const int64_t start = now();
        require(service->getMetaAudioSceMap(&text).isOk(), "query");
        times.push_back(now() - start);
    }
    return {micros(percentile(times, 0.5)), micros(percentile(times, 0.99))};
}

// A query without a callback, before and while client 1 takes a second for an answer.
void queryBesideThinkingClient(benchmark::State& state) {
    for (auto _ : state) {
        const ServiceRun run;
        const auto& service = run.service();
        const auto thinker = startRole({"thinker", "1", "1000"});
        const int64_t end = now() + kSecond;
        const QueryTimes before = timeQueries(service, [end] { return now() > end; });
        std::atomic<bool> answered = false;
        std::thread asker([&] {
            bool playing = false;
            require(service->isMetaTrackPlaying(&playing).isOk() && playing, "answer");
            answered = true;
        });
        const QueryTimes meanwhile = timeQueries(service, [&] { return answered.load(); });
        asker.join();
        state.counters["before_us_p50"] = before.p50;
        state.counters["before_us_p99"] = before.p99;
        state.counters["thinking_us_p50"] = meanwhile.p50;
        state.counters["thinking_us_p99"] = meanwhile.p99;
        state.counters["ratio_p50"] = meanwhile.p50 / before.p50;
    }
}
BENCHMARK(queryBesideThinkingClient)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

// From kill -9 of a registered client until another one under its id is called.
void killedClientToGone(benchmark::State& state) {
    constexpr int kKills = 40;
    const ServiceRun run;
    const auto& service = run.service();
    for (auto _ : state) {
        std::vector<int64_t> times;
        for (int i = 0; i < kKills; ++i) {
            const auto victim = startRole({"thinker", "0", "0"});
            const sp<RecordingClient> heir = new RecordingClient();
            const int64_t start = now();
            victim->kill(SIGKILL);
            while (heir->events().empty()) {
                require(service->registerClient(heir, 0).isOk() &&
                                service->onPlayStateChange(1, {}, 1, "").isOk(),
                        "call");
                sleepUntil(now() + 100 * kMicrosecond);
            }
            times.push_back(now() - start);
            require(service->unregisterClient(0).isOk(), "unregister");
        }
        state.counters["p50_ms"] = micros(percentile(times, 0.5)) / 1000;
        state.counters["max_ms"] = micros(percentile(times, 1)) / 1000;
    }
}
BENCHMARK(killedClientToGone)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

}  // namespace
}  // namespace sonorel::bench
