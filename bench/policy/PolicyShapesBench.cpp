// What a file of an unusual shape costs beside a plain policy file of its size: "time_ratio", both
// loaded in turn, and "kept_ratio", the resident memory that stays after the load, in sizes of the
// file.
#include <benchmark/benchmark.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <memory>

#include "policy/FreedMemory.h"
#include "policy/MetaAudioPolicyFile.h"
#include "policy/XmlDocument.h"
#include "tests/policy/GeneratedPolicy.h"
#include "tests/policy/PolicyShapes.h"

namespace {

using android::PolicyTables;
using android::XmlDocument;

constexpr size_t kFileSize = 4 << 20;

double now() {
    timespec time{};
    (void)clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);  // this clock is always there
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

double residentBytes() {
    long size = 0;
    long pages = 0;
    std::ifstream("/proc/self/statm") >> size >> pages;
    return static_cast<double>(pages) * static_cast<double>(sysconf(_SC_PAGESIZE));
}

std::unique_ptr<PolicyTables> load(const std::string& text) {
    std::unique_ptr<PolicyTables> tables;
    {
        const XmlDocument document = XmlDocument::readMemory(text.data(), text.size(), "bench.xml");
        if (document) tables = android::readPolicyTables(document.root());
    }
    android::returnFreedMemory();
    return tables;
}

// The least of three.
double loadTime(const std::string& text) {
    double least = 1e9;
    for (int i = 0; i < 3; ++i) {
        const double start = now();
        benchmark::DoNotOptimize(load(text));
        least = std::min(least, now() - start);
    }
    return least;
}

const std::string& plainFile() {
    static const std::string kText = [] {
        int packages = 1000;
        std::string text;
        while (text.size() < kFileSize)
            text = sonorel::test::generatePolicy({packages += 1000, 13, 0, 0, 0}, "1");
        return text;
    }();
    return kText;
}

void loadShape(benchmark::State& state, const std::string& text) {
    double plain = 0;
    double shape = 0;
    double kept = 0;
    for (auto _ : state) {
        plain += loadTime(plainFile());
        shape += loadTime(text);
        android::returnFreedMemory();
        const double before = residentBytes();
        const auto tables = load(text);
        kept += residentBytes() - before;
    }
    const auto size = static_cast<double>(text.size());
    const auto plainSize = static_cast<double>(plainFile().size());
    state.counters["ms"] = shape * 1e3 / static_cast<double>(state.iterations());
    state.counters["time_ratio"] = shape / size / (plain / plainSize);
    state.counters["kept_ratio"] = kept / static_cast<double>(state.iterations()) / size;
}

}  // namespace

int main(int argc, char** argv) {
    for (const auto& shape : sonorel::test::policyShapes()) {
        benchmark::RegisterBenchmark(shape.name, [&shape](benchmark::State& state) {
            loadShape(state, shape.make(kFileSize));
        })->Iterations(1);
    }
    benchmark::RegisterBenchmark("plain", [](benchmark::State& state) {
        loadShape(state, plainFile());
    })->Iterations(1);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
