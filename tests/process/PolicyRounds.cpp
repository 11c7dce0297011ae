#include "process/PolicyRounds.h"

#include <atomic>
#include <filesystem>
#include <fstream>
#include <random>

#include "tests/policy/GeneratedPolicy.h"

namespace sonorel::test {

// A file appears whole or not at all, as an update service delivers it.
void PolicyRounds::deliver(const std::string& text) const {
    const std::string next = mRoot.path("data/qelto/multimedia/next.xml");
    std::filesystem::create_directories(mRoot.path("data/qelto/multimedia"));
    std::ofstream(next) << text;
    std::filesystem::rename(next, mRoot.path("data/qelto/multimedia/Meta_Audio_Policy_Online.xml"));
}

bool PolicyRounds::update() {
    bool reloaded = false;
    EXPECT_TRUE(mService->checkAndUpdatePolicy(&reloaded).isOk());
    return reloaded;
}

std::string PolicyRounds::sceneMap() {
    std::string text;
    EXPECT_TRUE(mService->getMetaAudioSceMap(&text).isOk());
    return text;
}

void PolicyRounds::replaceDuringReloads(int rounds, uint32_t seed) {
    constexpr int kThreads = 2;
    std::mt19937 random(seed);
    printf("seed %u\n", seed);
    // The earlier file takes long to load, the later one does not.
    const std::string earlier = generatePolicy({3000, 1, 0, 0, 0}, "20990101");
    const std::string later = generatePolicy({1, 2, 0, 0, 0}, "20990101");
    start();
    std::vector<std::unique_ptr<ChildProcess>> peers;
    for (int i = 0; i < 2; ++i) {
        peers.push_back(std::make_unique<ChildProcess>(peer({"reload"})));
        ASSERT_TRUE(peers.back()->waitForOutput("connected"));
    }
    for (int round = 0; round < rounds; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        deliver(earlier);
        for (const auto& caller : peers)
            ASSERT_TRUE(caller->write(std::to_string(round) + "\n"));
        std::vector<std::unique_ptr<JoinedThread>> threads;
        threads.reserve(kThreads);
        for (int i = 0; i < kThreads; ++i) {
            threads.push_back(std::make_unique<JoinedThread>([this] { EXPECT_TRUE(update()); }));
        }
        for (uint32_t calls = random() % 100; calls > 0; --calls)
            (void)mService->testSonorelService();
        deliver(later);
        EXPECT_TRUE(update());
        const std::string served = sceneMap();
        EXPECT_NE(std::string::npos, served.find("\"2\":")) << served;
        for (const auto& caller : peers)
            ASSERT_TRUE(caller->waitForOutput("reloaded " + std::to_string(round) + " 1\n"));
        threads.clear();
        ASSERT_EQ(served, sceneMap()) << "an earlier file came back";
    }
}

void PolicyRounds::reloadFromManyThreads() {
    constexpr int kThreads = 16;
    constexpr int kReloads = 40;
    deliver(generatePolicy({40'000, 13, 1000, 1000, 1000}, "20990101"));
    start();
    EXPECT_TRUE(update());
    const long one = figuresOf(mDaemon->process().pid()).residentKb;
    {
        std::atomic<int> left{kReloads};
        std::vector<std::unique_ptr<JoinedThread>> threads;
        threads.reserve(kThreads);
        for (int i = 0; i < kThreads; ++i) {
            threads.push_back(std::make_unique<JoinedThread>([this, &left] {
                while (left-- > 0)
                    EXPECT_TRUE(update());
            }));
        }
    }
    const long many = figuresOf(mDaemon->process().pid()).residentKb;
    printf("resident after 1 reload %ld kB, after %d from %d threads %ld kB\n", one, kReloads,
           kThreads, many);
    EXPECT_LE(many * 10, one * 12);
}

}  // namespace sonorel::test
