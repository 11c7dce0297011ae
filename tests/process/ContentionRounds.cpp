#include "process/ContentionRounds.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "stores/RawDatabase.h"
#include "support/TempDir.h"

namespace sonorel::test {

using qelto::halvend::IHalvendClient;

namespace {

constexpr int kRows = 6;  // mode, on/off, a game's switch, three scenes

using Callers = std::vector<std::unique_ptr<ChildProcess>>;

void expectDone(const Callers& callers) {
    for (const auto& caller : callers) {
        const auto end = caller->wait(6 * kEventDeadline);
        ASSERT_TRUE(end.has_value()) << "a call never returned";
        EXPECT_TRUE(end->exited && end->code == 0) << caller->errors();
    }
}

int32_t numberBehind(const std::string& line, const std::string& word) {
    const size_t at = line.find(word);
    return at == std::string::npos ? -1 : std::atoi(line.c_str() + at + word.size());  // NOLINT
}

}  // namespace

std::mt19937 seeded(const char* what) {
    const char* given = std::getenv("SONOREL_SEED");  // NOLINT(concurrency-mt-unsafe)
    const auto seed = given != nullptr ? static_cast<uint32_t>(std::strtoul(given, nullptr, 10))
                                       : std::random_device()();
    printf("%s: SONOREL_SEED=%u\n", what, seed);
    return std::mt19937(seed);
}

void ContentionRounds::startProduct(bool speaker) {
    std::vector<std::string> args;
    for (const char* property :
         {"low_latency_game_effect=true", "low_latency_game_effect.show_ui=true", "mss=1"}) {
        args.insert(args.end(), {"--property", std::string("ro.qelto.audio.support.") + property});
    }
    if (speaker) args.insert(args.end(), speakerProduct().begin(), speakerProduct().end());
    ASSERT_NO_FATAL_FAILURE(start(args));
}

bool ContentionRounds::hasWorker() const {
    std::error_code error;
    const std::string tasks = "/proc/" + std::to_string(mDaemon->process().pid()) + "/task";
    for (const auto& task : std::filesystem::directory_iterator(tasks, error)) {
        if (readFile(task.path() / "comm") == "MetaAudioThread\n") return true;
    }
    return false;
}

void ContentionRounds::expectTick(bool on) {
    ASSERT_TRUE(mService->setHeadTrackerEnable(true).isOk());
    ASSERT_TRUE(mService->setMetaAudioThreadEnable(on).isOk());
    EXPECT_TRUE(eventually([&] { return hasWorker() == on; }));
    mTicker->clear();
    if (on) {
        EXPECT_TRUE(mTicker->waitFor(IHalvendClient::CB_META_THREAD_TICK, 2));
    }
}

void ContentionRounds::expectSilenceAfterDisable() {
    ASSERT_NO_FATAL_FAILURE(expectTick(true));
    ASSERT_TRUE(mService->setMetaAudioThreadEnable(false).isOk());
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    mTicker->clear();
    EXPECT_TRUE(eventually([this] { return !hasWorker(); }));
    EXPECT_TRUE(mTicker->events().empty());
}

void ContentionRounds::switchTicks(int rounds, int callers, int calls) {
    std::mt19937 random = seeded("ticks");
    ASSERT_NO_FATAL_FAILURE(startProduct(true));
    mTicker = addClient(IHalvendClient::CLIENT_ID_META_THREAD);
    int32_t status = 0;
    ASSERT_TRUE(mService->notitySpHeadsetConnectionState(true).isOk());
    ASSERT_TRUE(mService->setMetaAudioOn(true, &status).isOk());
    for (int round = 0; round < rounds; ++round) {
        Callers peers;
        for (int i = 0; i < callers; ++i) {
            peers.push_back(std::make_unique<ChildProcess>(
                    peer({"tick", std::to_string(random()), std::to_string(calls)})));
        }
        ASSERT_NO_FATAL_FAILURE(expectDone(peers));
        for (const bool on : {false, true, false})
            ASSERT_NO_FATAL_FAILURE(expectTick(on));
        EXPECT_LE(figuresOf(mDaemon->process().pid()).threads, kMostThreads);
        ASSERT_FALSE(HasFailure()) << "round " << round;
    }
}

int32_t ContentionRounds::stored(int row) {
    bool on = false;
    int8_t mode = -1;
    int32_t value = -1;
    std::vector<float> pos(3);
    std::string text;
    switch (row) {
        case 0:
            EXPECT_TRUE(mService->getMetaAudioModeWithDev(-1, &mode).isOk());
            return mode;
        case 1:
            EXPECT_TRUE(mService->getMetaAudioOnWithDev(-1, &on).isOk());
            return on ? 1 : 0;
        case 2:
            EXPECT_TRUE(mService->loadPkgSwitchInFastSql(&text).isOk());
            EXPECT_TRUE(mService->getFastGameEffectOn("a", &value).isOk());
            return value;
        default:
            EXPECT_TRUE(mService->getCurrentPosWithDev(row, &pos, -1).isOk());
            return static_cast<int32_t>(pos[0]);
    }
}

void ContentionRounds::chooseSettings(int rounds) {
    std::mt19937 random = seeded("settings");
    ASSERT_NO_FATAL_FAILURE(startProduct(false));
    std::string text;
    ASSERT_TRUE(mService->syncGameListInfo("a 1\n").isOk());
    ASSERT_TRUE(mService->loadPkgSwitchInFastSql(&text).isOk());
    Callers peers;
    for (int row = 0; row < kRows; ++row) {
        peers.push_back(std::make_unique<ChildProcess>(peer({"choose", std::to_string(row)})));
        ASSERT_TRUE(peers.back()->waitForLine("connected")) << peers.back()->errors();
    }
    for (int round = 0; round < rounds; ++round) {
        std::vector<uint32_t> seeds;
        for (const auto& caller : peers) {
            seeds.push_back(random());
            ASSERT_TRUE(caller->write(std::to_string(seeds.back()) + "\n"));
        }
        std::vector<int32_t> last;
        for (int row = 0; row < kRows; ++row) {
            const std::string said = "seed " + std::to_string(seeds[row]) + " last ";
            std::string line;
            ASSERT_TRUE(peers[row]->waitForLine(said, kEventDeadline, &line))
                    << "row " << row << ": " << peers[row]->output();
            last.push_back(numberBehind(line, " last "));
        }
        // A user switch waits for what is deferred: from then on the store itself answers.
        ASSERT_TRUE(mService->setCurrentUserID(1).isOk());
        ASSERT_TRUE(mService->setCurrentUserID(0).isOk());
        for (int row = 0; row < kRows; ++row) {
            ASSERT_EQ(row == 1 ? last[row] % 2 : last[row], stored(row))
                    << "round " << round << ", row " << row;
        }
    }
}

void ContentionRounds::switchUserAndDevice(int rounds) {
    std::mt19937 random = seeded("users and devices");
    ASSERT_NO_FATAL_FAILURE(start(speakerProduct()));
    android::RawDatabase other(mRoot.databasePath());
    other.run("PRAGMA busy_timeout = 30000");
    ChildProcess user(peer({"user"}));
    ChildProcess plug(peer({"plug"}));
    for (ChildProcess* const caller : {&user, &plug})
        ASSERT_TRUE(caller->waitForLine("connected")) << caller->errors();
    for (int round = 1; round <= rounds; ++round) {
        other.run("BEGIN IMMEDIATE");
        ASSERT_TRUE(user.write("\n"));
        for (uint32_t calls = random() % 8; calls > 0; --calls)
            ASSERT_TRUE(mService->testSonorelService().isOk());
        ASSERT_TRUE(plug.write("\n"));
        for (uint32_t calls = random() % 8; calls > 0; --calls)
            ASSERT_TRUE(mService->testSonorelService().isOk());
        other.run("COMMIT");
        const std::string switched = "switched " + std::to_string(round) + ".";
        for (ChildProcess* const caller : {&user, &plug})
            ASSERT_TRUE(caller->waitForLine(switched)) << caller->errors();
        int32_t status = 0;
        ASSERT_TRUE(mService->setMetaAudioMode(7, &status).isOk());
        ASSERT_EQ(
                std::to_string(round % 2),
                other.query("SELECT group_concat(device) FROM META_INFO WHERE mode = 7 AND user_id"
                            " = " +
                            std::to_string(round)))
                << "round " << round;
    }
}

void ContentionRounds::replaceRenderers(int rounds) {
    std::mt19937 random = seeded("renderers");
    ASSERT_NO_FATAL_FAILURE(startProduct(true));
    std::unique_ptr<ChildProcess> current;
    for (int round = 0; round < rounds; ++round) {
        auto next = std::make_unique<ChildProcess>(peer({"renderer"}));
        ASSERT_TRUE(next->waitForLine("connected")) << next->errors();
        if (random() % 2 == 0) mDaemon->process().kill(SIGUSR2);
        if (current != nullptr) {
            current->kill(SIGKILL);
            ASSERT_TRUE(current->wait().has_value());
        }
        if (random() % 2 == 0) mDaemon->process().kill(SIGUSR2);
        ASSERT_TRUE(next->write("go\n"));
        ASSERT_TRUE(next->waitForLine("whole", 2 * kEventDeadline))
                << "round " << round << ": " << next->errors();
        current = std::move(next);
    }
}

}  // namespace sonorel::test
