#include <memory>

#include "process/VisitRounds.h"

namespace sonorel::test {

namespace {

// Ids that nothing else uses, as many as 200.
int8_t visitorId(int number) {
    return static_cast<int8_t>(number < 100 ? -100 + number : 20 + number - 100);
}

// Allocator noise; a leak of one client's worth of memory in each visit is far above it.
constexpr long kToleratedGrowthKb = 1024;

}  // namespace

void VisitRounds::run(int rounds, int clients) {
    ASSERT_NO_FATAL_FAILURE(start(speakerProduct()));
    mQuietDescriptors = figuresOf(mDaemon->process().pid()).descriptors;
    ASSERT_NO_FATAL_FAILURE(runRound(clients));
    const ProcessFigures first = settledFigures();
    for (int round = 1; round < rounds && !HasFailure(); ++round)
        ASSERT_NO_FATAL_FAILURE(runRound(clients));
    const ProcessFigures last = settledFigures();
    printf("%d rounds of %d clients: %ld -> %ld kB, %ld -> %ld threads, %ld -> %ld descriptors\n",
           rounds, clients, first.residentKb, last.residentKb, first.threads, last.threads,
           first.descriptors, last.descriptors);
    EXPECT_LE(last.residentKb, first.residentKb + kToleratedGrowthKb);
    // The pool grows to its bound and stays there; with it come no descriptors.
    constexpr long kPoolAndOwnThreads = 15 + 8;
    EXPECT_LE(last.threads, std::max(first.threads, kPoolAndOwnThreads));
    EXPECT_LE(last.descriptors, mQuietDescriptors);
    expectServes();
}

void VisitRounds::runRound(int clients) {
    std::vector<std::unique_ptr<ChildProcess>> visitors;
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

ProcessFigures VisitRounds::settledFigures() {
    return figuresOf(mDaemon->process().pid());
}

}  // namespace sonorel::test
