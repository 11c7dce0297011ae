// Reloads while clients ask: no answer mixes two files.
#include <android/log.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <set>
#include <thread>

#include "service/ServiceHarness.h"
#include "tests/policy/GeneratedPolicy.h"

namespace {

using android::SonorelService;

class PolicyReload : public sonorel::test::ServiceTest {
protected:
    PolicyReload() { __android_log_set_minimum_priority(ANDROID_LOG_FATAL); }

    // A file appears whole or not at all, as an update service delivers it.
    void deliver(const std::string& text, const std::string& scratch) {
        const std::string next = mRoot.write("data/qelto/multimedia/" + scratch, text);
        std::filesystem::rename(next,
                                mRoot.path("data/qelto/multimedia/Meta_Audio_Policy_Online.xml"));
    }
    bool update() {
        bool reloaded = false;
        EXPECT_TRUE(mService->checkAndUpdatePolicy(&reloaded).isOk());
        return reloaded;
    }
    std::string text(android::binder::Status (SonorelService::*query)(std::string*)) {
        std::string answer;
        EXPECT_TRUE((mService.get()->*query)(&answer).isOk());
        return answer;
    }
};

// The four answers that one file gives.
struct Answers {
    std::string scenes;
    std::string processors;
    std::string detectors;
    std::string package;
};

TEST_F(PolicyReload, EveryAnswerDuringReloadsIsOneWholeFile) {
    constexpr int kReloads = 500;
    constexpr int kThreads = 8;
    static constexpr char kPackage[] = "com.example.p0.app";
    const std::string files[2] = {
            sonorel::test::generatePolicy({20, 13, 5, 4, 4}, "20240601"),
            sonorel::test::generatePolicy({10, 7, 9, 2, 2}, "20240601"),
    };
    start();
    const auto ask = [this] {
        Answers answers{text(&SonorelService::getMetaAudioSceMap),
                        text(&SonorelService::getDynamicProcessorInfMap),
                        text(&SonorelService::getAudioDetectorInfMap), ""};
        (void)mService->getMetaInfoByPkgName(kPackage, &answers.package);
        return answers;
    };
    Answers whole[2];
    for (int i = 0; i < 2; ++i) {
        deliver(files[i], "next.xml");
        ASSERT_TRUE(update());
        whole[i] = ask();
    }
    ASSERT_NE(whole[0].scenes, whole[1].scenes);

    std::atomic<bool> done{false};
    std::atomic<int> torn{0};
    std::atomic<int64_t> asked{0};
    const auto isOf = [&whole](std::string Answers::*field, const std::string& answer) {
        return answer == whole[0].*field || answer == whole[1].*field;
    };
    std::vector<std::thread> clients;
    for (int i = 0; i < kThreads; ++i) {
        clients.emplace_back([&] {
            while (!done) {
                const Answers seen = ask();
                bool listed = false;
                (void)mService->isUnsupportDevice("device-8", &listed);
                if (!isOf(&Answers::scenes, seen.scenes) ||
                    !isOf(&Answers::processors, seen.processors) ||
                    !isOf(&Answers::detectors, seen.detectors) ||
                    !isOf(&Answers::package, seen.package) || !listed) {
                    ++torn;
                }
                ++asked;
            }
        });
    }
    for (int i = 0; i < kReloads; ++i) {
        deliver(files[i % 2], "next.xml");
        EXPECT_TRUE(update());
    }
    done = true;
    for (std::thread& client : clients)
        client.join();
    EXPECT_EQ(0, torn);
    EXPECT_LT(0, asked);
}

// Two updates at once may each miss the other's file, but never take back a device name.
TEST_F(PolicyReload, RacingReloadsLoseNoDeviceName) {
    constexpr int kRounds = 100;
    start();
    const auto work = [this](const std::string& prefix, std::set<std::string>* outSeen) {
        for (int i = 0; i < kRounds; ++i) {
            const std::string name = prefix + std::to_string(i);
            deliver("<filter-conf><filter-name>meta_audio_policy</filter-name><version>9</version>"
                    "<UnsupportDeviceItem><name>" +
                            name +
                            "</name></UnsupportDeviceItem>"
                            "</filter-conf>",
                    prefix + ".xml");
            (void)update();  // the other thread may have taken this file, or disarmed the load
            bool listed = false;
            (void)mService->isUnsupportDevice(name, &listed);
            if (listed) outSeen->insert(name);
        }
    };
    std::set<std::string> seen[2];
    std::thread other(work, "other-", &seen[0]);
    work("this-", &seen[1]);
    other.join();
    EXPECT_LT(0u, seen[0].size() + seen[1].size());
    for (const auto& names : seen) {
        for (const std::string& name : names) {
            bool listed = false;
            (void)mService->isUnsupportDevice(name, &listed);
            EXPECT_TRUE(listed) << name;
        }
    }
}

}  // namespace
