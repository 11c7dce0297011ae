#include <memory>

#include "process/VisitRounds.h"

namespace sonorel::test {

namespace {

// Ids that nothing else uses, as many as 200.
int8_t visitorId(int number) {
    return static_cast<int8_t>(number < 100 ? -100 + number : 20 + number - 100);
}

}  // namespace

void VisitRounds::run(int rounds, int clients, std::optional<long> toleratedHeapGrowth) {
    std::map<std::string, std::string> environment;
    if (toleratedHeapGrowth) {
        environment["LD_PRELOAD"] = SONOREL_LIB_DIR "/libheap_teller.so";
        // One arena and no caches per thread: what threads keep for later counts as in use.
        environment["GLIBC_TUNABLES"] = "glibc.malloc.tcache_count=0:glibc.malloc.arena_max=1";
    }
    ASSERT_NO_FATAL_FAILURE(start(speakerProduct(), environment));
    const pid_t pid = mDaemon->process().pid();
    mQuietDescriptors = figuresOf(pid).descriptors;
    // Until the pool has its threads and the tables have their size.
    const int warmUp = (rounds + 3) / 4;
    for (int round = 0; round < warmUp; ++round)
        ASSERT_NO_FATAL_FAILURE(runRound(clients));
    const ProcessFigures first = figuresOf(pid);
    const long firstHeap = toleratedHeapGrowth ? heapInUse() : 0;
    for (int round = warmUp; round < rounds; ++round)
        ASSERT_NO_FATAL_FAILURE(runRound(clients));
    const ProcessFigures last = figuresOf(pid);
    const long lastHeap = toleratedHeapGrowth ? heapInUse() : 0;
    printf("%d rounds of %d clients: heap %ld -> %ld bytes, resident %ld -> %ld kB, "
           "%ld -> %ld threads, %ld -> %ld descriptors\n",
           rounds, clients, firstHeap, lastHeap, first.residentKb, last.residentKb, first.threads,
           last.threads, mQuietDescriptors, last.descriptors);
    EXPECT_LE(lastHeap, firstHeap + toleratedHeapGrowth.value_or(0));
    EXPECT_LE(last.threads, kMostThreads);
    EXPECT_LE(last.descriptors, mQuietDescriptors);
    expectServes();
}

long VisitRounds::heapInUse() {
    const std::string line = "heap in use: ";
    const size_t before = mDaemon->process().errors().size();
    mDaemon->process().kill(SIGRTMIN);
    std::string told;
    EXPECT_TRUE(eventually([&] {
        told = mDaemon->process().errors().substr(before);
        const size_t at = told.find(line);
        return at != std::string::npos && told.find('\n', at) != std::string::npos;
    }));
    const size_t at = told.find(line);
    return at == std::string::npos ? -1 : std::stol(told.substr(at + line.size()));
}

void VisitRounds::runRound(int clients) {
    std::vector<std::unique_ptr<ChildProcess>> visitors;
    visitors.reserve(static_cast<size_t>(clients));
    for (int i = 0; i < clients; ++i) {
        visitors.push_back(
                std::make_unique<ChildProcess>(peer({"visit", std::to_string(visitorId(i))})));
    }
    // One after the other gets its callback, as there is one id that gets one on demand.
    for (const auto& visitor : visitors) {
        ASSERT_TRUE(visitor->waitForLine("connected")) << visitor->errors();
        ASSERT_TRUE(visitor->write("go\n"));
        ASSERT_TRUE(visitor->waitForLine("held")) << visitor->errors();
    }
    for (const auto& visitor : visitors)
        visitor->kill(SIGKILL);
    for (const auto& visitor : visitors)
        ASSERT_TRUE(visitor->wait().has_value());
    // Every id is free again: with its client, the service drops its descriptors.
    const pid_t pid = mDaemon->process().pid();
    EXPECT_TRUE(eventually([&] { return figuresOf(pid).descriptors <= mQuietDescriptors; }))
            << figuresOf(pid).descriptors << " descriptors, quiet " << mQuietDescriptors;
}

}  // namespace sonorel::test
