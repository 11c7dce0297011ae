// What loading a large policy file costs beside what libxml2 needs to read it.
#include <benchmark/benchmark.h>
#include <libxml/parser.h>
#include <malloc.h>
#include <time.h>

#include <chrono>
#include <memory>

#include "policy/FreedMemory.h"
#include "policy/MetaAudioPolicyFile.h"
#include "policy/XmlDocument.h"
#include "support/TempDir.h"
#include "tests/policy/GeneratedPolicy.h"

namespace {

using android::PolicyTables;
using android::XmlDocument;
using Seconds = std::chrono::duration<double>;

// The processor time of this thread: nothing here waits, and what else runs would only blur it.
Seconds now() {
    timespec time{};
    (void)clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);  // this clock is always there
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

constexpr sonorel::test::PolicySize kLargeFile{5000, 13, 200, 100, 100};

std::unique_ptr<PolicyTables> load(const std::string& path) {
    const XmlDocument document = XmlDocument::readFile(path);
    return android::readPolicyTables(document.root());
}

double heapBytes() {
    return static_cast<double>(mallinfo2().uordblks + mallinfo2().hblkhd);
}

struct BareRead {
    Seconds read{};
    Seconds freed{};
};

BareRead bareRead(const std::string& path) {
    const auto start = now();
    xmlDoc* document = xmlReadFile(path.c_str(), "UTF-8", XML_PARSE_PEDANTIC);
    const auto read = now();
    xmlFreeDoc(document);
    return {read - start, now() - read};
}

// Both in turn, so that what else the machine does hits both alike. Of each three the first is not
// counted: it pays for the heap that the other kind left behind. "ratio" is against reading alone,
// "ratio_freed" against reading and freeing the document, which a load cannot avoid.
void LoadAgainstBareRead(benchmark::State& state) {
    constexpr int kTurns = 3;
    const sonorel::test::TempDir dir;
    const std::string path =
            dir.write("policy.xml", sonorel::test::generatePolicy(kLargeFile, "20240601"));
    std::unique_ptr<PolicyTables> tables;
    BareRead bare;
    Seconds loadTime{};
    for (auto _ : state) {
        Seconds iteration{};
        for (int turn = 0; turn < kTurns; ++turn) {
            const BareRead one = bareRead(path);
            if (turn == 0) continue;
            bare.read += one.read;
            bare.freed += one.freed;
        }
        for (int turn = 0; turn < kTurns; ++turn) {
            const auto start = now();
            tables = load(path);  // with the end of the earlier tables
            if (turn > 0) iteration += now() - start;
        }
        if (tables == nullptr || tables->mPkgMetaInfoVec.size() != kLargeFile.packages) {
            state.SkipWithError("the load is not whole");
            break;
        }
        loadTime += iteration;
        state.SetIterationTime(iteration.count() / (kTurns - 1));
    }
    const auto each = [&state](Seconds time) {
        return time.count() * 1e3 / static_cast<double>(state.iterations() * (kTurns - 1));
    };
    state.counters["bare_ms"] = each(bare.read);
    state.counters["load_ms"] = each(loadTime);
    state.counters["ratio"] = loadTime / bare.read;
    state.counters["ratio_freed"] = loadTime / (bare.read + bare.freed);
}
BENCHMARK(LoadAgainstBareRead)->UseManualTime()->Unit(benchmark::kMillisecond)->MinTime(3.0);

// The same where each read begins with what the service leaves behind a load: no free memory, all
// of it has to come from the system again. "return_ms" is what giving it back takes.
void LoadAgainstBareReadAfterReturn(benchmark::State& state) {
    const sonorel::test::TempDir dir;
    const std::string path =
            dir.write("policy.xml", sonorel::test::generatePolicy(kLargeFile, "20240601"));
    Seconds bare{};
    Seconds loads{};
    Seconds returns{};
    android::returnFreedMemory();
    for (auto _ : state) {
        bare += bareRead(path).read;
        android::returnFreedMemory();
        const auto start = now();
        std::unique_ptr<PolicyTables> tables = load(path);
        loads += now() - start;
        tables.reset();
        const auto loaded = now();
        android::returnFreedMemory();
        returns += now() - loaded;
    }
    const auto each = [&state](Seconds time) {
        return time.count() * 1e3 / static_cast<double>(state.iterations());
    };
    state.counters["bare_ms"] = each(bare);
    state.counters["load_ms"] = each(loads);
    state.counters["return_ms"] = each(returns);
    state.counters["ratio"] = loads / bare;
}
BENCHMARK(LoadAgainstBareReadAfterReturn)->Unit(benchmark::kMillisecond)->MinTime(3.0);

// The heap after one load and after ten.
void MemoryOfReloads(benchmark::State& state) {
    const sonorel::test::TempDir dir;
    const std::string path =
            dir.write("policy.xml", sonorel::test::generatePolicy(kLargeFile, "20240601"));
    double afterOne = 0;
    double afterTen = 0;
    for (auto _ : state) {
        std::unique_ptr<PolicyTables> tables = load(path);
        afterOne = heapBytes();
        for (int i = 1; i < 10; ++i)
            tables = load(path);
        afterTen = heapBytes();
    }
    state.counters["after_1_bytes"] = afterOne;
    state.counters["after_10_bytes"] = afterTen;
}
BENCHMARK(MemoryOfReloads)->Unit(benchmark::kMillisecond)->Iterations(3);

// Every package is known to stand in the wrong place: the cost must grow as the file does.
void LoadPackages(benchmark::State& state) {
    const sonorel::test::TempDir dir;
    const sonorel::test::PolicySize size{static_cast<int>(state.range(0)), 0, 0, 0, 0};
    const std::string path =
            dir.write("policy.xml", sonorel::test::generatePolicy(size, "20240601"));
    for (auto _ : state)
        benchmark::DoNotOptimize(load(path));
    state.SetComplexityN(state.range(0));
}
BENCHMARK(LoadPackages)
        ->RangeMultiplier(10)
        ->Range(1000, 100000)
        ->Unit(benchmark::kMillisecond)
        ->Complexity(benchmark::oNLogN);

}  // namespace

BENCHMARK_MAIN();
