// Reloads while clients ask: no answer mixes two files.
#include <android/log.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <mutex>
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
    clients.reserve(kThreads);
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

// A newer file is there and served before the load of the earlier one begins: that load leaves it.
TEST_F(PolicyReload, OvertakenLoadAddsItsDeviceNamesAndNothingElse) {
    const auto file = [](const std::string& name) {
        return "<filter-conf><filter-name>meta_audio_policy</filter-name><version>9</version>"
               "<UnsupportDeviceItem><name>" +
               name + "</name></UnsupportDeviceItem><AudioDetectorParamItem><name>" + name +
               "</name></AudioDetectorParamItem></filter-conf>";
    };
    start();
    __android_log_set_minimum_priority(ANDROID_LOG_DEBUG);
    deliver(file("earlier"), "next.xml");
    mCapture.onNext("loadMetaAudioXml path", [&] {
        deliver(file("later"), "next.xml");
        EXPECT_TRUE(update());
    });
    EXPECT_TRUE(update());
    const std::string served = text(&SonorelService::getAudioDetectorInfMap);
    EXPECT_EQ(0u, served.find("{\"later\":")) << served;
    for (const char* name : {"earlier", "later"}) {
        bool listed = false;
        (void)mService->isUnsupportDevice(name, &listed);
        EXPECT_TRUE(listed) << name;
    }
}

// In each round four threads deliver a file each and reload, at the same time. When all are done,
// the last file is served, since its reload began after it was there; and no device name that was
// ever seen is lost.
TEST_F(PolicyReload, RacingReloadsEndWithTheLastFileAndEveryDeviceName) {
    constexpr int kRounds = 10;
    constexpr int kThreads = 4;
    start();
    std::mutex delivery;
    std::string last;
    std::set<std::string> seen;
    const auto work = [&](const std::string& name, int packages) {
        const std::string items = "<AudioDetectorParamItem><name>" + name +
                                  "</name></AudioDetectorParamItem><UnsupportDeviceItem><name>" +
                                  name + "</name></UnsupportDeviceItem>";
        std::string file = sonorel::test::generatePolicy({packages, 0, 0, 0, 0}, "20990101");
        file.insert(file.find("</version>") + 10, items);
        {
            const std::lock_guard lock(delivery);
            deliver(file, name + ".xml");
            last = name;
        }
        EXPECT_TRUE(update());
        bool listed = false;
        (void)mService->isUnsupportDevice(name, &listed);
        const std::lock_guard lock(delivery);
        if (listed) seen.insert(name);
    };
    for (int round = 0; round < kRounds; ++round) {
        std::vector<std::thread> threads;
        threads.reserve(kThreads);
        for (int i = 0; i < kThreads; ++i) {
            // The larger a file the longer its load takes.
            threads.emplace_back(work, std::to_string(round) + "-" + std::to_string(i),
                                 i % 2 == 0 ? 2000 : 1);
        }
        for (std::thread& thread : threads)
            thread.join();
        const std::string served = text(&SonorelService::getAudioDetectorInfMap);
        ASSERT_NE(std::string::npos, served.find("\"" + last + "\":")) << last << "\n" << served;
        EXPECT_EQ(1u, seen.count(last));
    }
    for (const std::string& name : seen) {
        bool listed = false;
        (void)mService->isUnsupportDevice(name, &listed);
        EXPECT_TRUE(listed) << name;
    }
}

}  // namespace
