// Playback relays, head tracking, headset notifications, spatializer state and the worker thread.

#include <sys/resource.h>

#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <thread>

#include "service/ServiceHarness.h"
#include "support/Wait.h"

namespace sonorel::test {

namespace {

class Tracking : public ServiceTest {
protected:
    // A client 3 that counts its ticks.
    class TickClient : public qelto::halvend::BnHalvendClient {
    public:
        android::binder::Status onClientEvent(int32_t, const CallbackData&,
                                              CallbackData*) override {
            return android::binder::Status::ok();
        }
        android::binder::Status onClientEventOneWay(int32_t event,
                                                    const CallbackData& input) override {
            const std::lock_guard<std::mutex> lock(mMutex);
            if (event == IHalvendClient::CB_META_THREAD_TICK && describe(input).empty()) ++mTicks;
            if (event == IHalvendClient::CB_SET_META_THREAD_ENABLE) ++mEnables;
            mChanged.notify_all();
            return android::binder::Status::ok();
        }
        bool waitForTicks(int more) {
            std::unique_lock<std::mutex> lock(mMutex);
            const int wanted = mTicks + more;
            return mChanged.wait_for(lock, kEventDeadline, [&] { return mTicks >= wanted; });
        }
        int enables() {
            const std::lock_guard<std::mutex> lock(mMutex);
            return mEnables;
        }

    private:
        std::mutex mMutex;
        std::condition_variable mChanged;
        int mTicks = 0;
        int mEnables = 0;
    };

    // Everything that the worker thread needs, apart from head tracking.
    void plugAndSwitchOn() {
        ASSERT_TRUE(mService->notitySpHeadsetConnectionState(true).isOk());
        int32_t status = 0;
        ASSERT_TRUE(mService->setMetaAudioOn(true, &status).isOk());
    }
};

TEST_F(Tracking, PlayStatesGoToThePlaybackClient) {
    start();
    addClient(0);
    ASSERT_TRUE(mService->onPlayStateChange(-4, {1, 2, 3, 4}, 77, "com.example.player").isOk());
    ASSERT_TRUE(mService->onPlayStateChange(0, {}, 0, "").isOk());
    EXPECT_EQ((std::vector<std::string>{"client 0 event 5 one-way pkgName=com.example.player "
                                        "scene=-4 playState=77 data=1,2,3,4",
                                        "client 0 event 5 one-way"}),
              mEvents.takeLines());
    EXPECT_TRUE(
            mCapture.contains("onPlayStateChange() scene:-4, playState:77, "
                              "name:com.example.player"));
}

TEST_F(Tracking, ScenePlayingIsAskedOnlyWhereItCanPlay) {
    start();
    addClient(1, [](int32_t, const CallbackData&, CallbackData* out) { out->isPlaying = true; });
    mEvents.clear();
    bool playing = true;
    ASSERT_TRUE(mService->javaCallIsScenePlaying(3, &playing).isOk());
    EXPECT_FALSE(playing);
    EXPECT_TRUE(mEvents.lines().empty());
    ASSERT_TRUE(mService->notitySpHeadsetConnectionState(true).isOk());
    mEvents.clear();
    ASSERT_TRUE(mService->javaCallIsScenePlaying(3, &playing).isOk());
    EXPECT_TRUE(playing);
    EXPECT_EQ((std::vector<std::string>{"client 1 event 3 two-way scene=3"}), mEvents.takeLines());
}

TEST_F(Tracking, SupportedScenesNeedRoomForAll) {
    start();
    std::vector<int32_t> small(13, 5);
    ASSERT_TRUE(mService->javaCallGetSupportSceneArray(&small).isOk());
    EXPECT_EQ(std::vector<int32_t>(13, 5), small);
    std::vector<int32_t> exact(14, 5);
    ASSERT_TRUE(mService->javaCallGetSupportSceneArray(&exact).isOk());
    EXPECT_EQ((std::vector<int32_t>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, -1, 13}), exact);
}

TEST_F(Tracking, HeadDataIsRelayedWhileTrackingIsOn) {
    start();
    addClient(1);
    mEvents.clear();
    const std::vector<float> seven = {0.1f, 0.2f, 0.3f, 4, 5, 6, 7};
    ASSERT_TRUE(mService->sendHeadToStageData(seven).isOk());
    EXPECT_TRUE(mEvents.lines().empty());

    ASSERT_TRUE(mService->setHeadTrackerEnable(true).isOk());
    mCapture.clear();
    ASSERT_TRUE(mService->sendHeadToStageData({1, 2, 3, 4, 5}).isOk());
    EXPECT_TRUE(mEvents.lines().empty());
    EXPECT_TRUE(mCapture.messages().empty());
    ASSERT_TRUE(mService->sendHeadToStageData(seven).isOk());
    EXPECT_EQ((std::vector<std::string>{"client 1 event 11 one-way data=0.1,0.2,0.3,4,5,6,7"}),
              mEvents.takeLines());
    EXPECT_EQ((std::vector<std::string>{
                      "sendHeadToStageData, rx:0.100000, ry:0.200000, rz:0.300000, vx:4.000000, "
                      "vy:5.000000, vz:6.000000",
                      "setHTData2Audio +++", "callClient:clientID:1 exist:1, event:11, isOneWay:1",
                      "setHTData2Audio ---"}),
              mCapture.messages());
    mCapture.clear();
    mService->setHTData2Audio({1, 2, 3, 4, 5});
    EXPECT_EQ((std::vector<std::string>{"setHTData2Audio +++"}), mCapture.messages());
}

TEST_F(Tracking, HeadsetNotificationsActOnChangesOnly) {
    start();
    addClient(1);
    mEvents.clear();
    mCapture.clear();
    ASSERT_TRUE(mService->notifySpHeadsetConnectionStateOneway(true).isOk());
    EXPECT_EQ(1U, mEvents.count(1, IHalvendClient::CB_SET_META_AUDIO_ON));
    EXPECT_TRUE(mCapture.contains("notitySpHeadsetConnectionState mIsHeadSetConnected 1 ---"));
    mEvents.clear();
    mCapture.clear();
    ASSERT_TRUE(mService->notitySpHeadsetConnectionState(true).isOk());
    EXPECT_TRUE(mEvents.lines().empty());
    EXPECT_EQ((std::vector<std::string>{"notitySpHeadsetConnectionState mIsHeadSetConnected 1 "
                                        "isConnected 1 +++"}),
              mCapture.messages());
    ASSERT_TRUE(mService->notitySpHeadsetConnectionState(false).isOk());
    EXPECT_TRUE(mEvents.lines().empty()) << "without speaker support only the arrival reloads";
    bool connected = true;
    ASSERT_TRUE(mService->getHeadsetConnectionState(&connected).isOk());
    EXPECT_FALSE(connected);
}

TEST_F(Tracking, SpatializerStateTwoMeansHeadTracking) {
    start();
    addClient(1);
    mEvents.clear();
    const struct {
        int32_t mode;
        bool sent;
        bool tracking;
    } rows[] = {{0, false, false}, {2, true, true}, {2, false, true}, {1, true, false},
                {-9, true, false}, {2, true, true}, {3, true, false}};
    for (const auto& row : rows) {
        ASSERT_TRUE(mService->setSpatializerState(row.mode).isOk());
        EXPECT_EQ(row.sent ? 1U : 0U, mEvents.count(1, IHalvendClient::CB_SET_SP_MODE)) << row.mode;
        mEvents.clear();
        ASSERT_TRUE(mService->sendHeadToStageData({1, 2, 3, 4, 5, 6}).isOk());
        EXPECT_EQ(row.tracking ? 1U : 0U, mEvents.count(1, IHalvendClient::CB_HEAD_TO_STAGE_DATA))
                << row.mode;
        mEvents.clear();
    }
}

TEST_F(Tracking, ThreadStartsOnlyWithHeadsetMetaAudioAndTracking) {
    start();
    const sp<TickClient> client = new TickClient();
    ASSERT_TRUE(mService->registerClient(client, 3).isOk());
    ASSERT_TRUE(mService->setMetaAudioThreadEnable(true).isOk());
    EXPECT_EQ(0, client->enables()) << "no headset, meta audio off";
    plugAndSwitchOn();

    // Without head tracking the client is asked, but no thread starts, so it is asked again.
    ASSERT_TRUE(mService->setMetaAudioThreadEnable(true).isOk());
    ASSERT_TRUE(mService->setMetaAudioThreadEnable(true).isOk());
    EXPECT_EQ(2, client->enables());

    ASSERT_TRUE(mService->setHeadTrackerEnable(true).isOk());
    ASSERT_TRUE(mService->setMetaAudioThreadEnable(true).isOk());
    ASSERT_TRUE(mService->setMetaAudioThreadEnable(true).isOk());
    EXPECT_EQ(3, client->enables()) << "running already";
    EXPECT_TRUE(client->waitForTicks(3));

    // Off and at once on again: ticks go on.
    for (int round = 0; round < 5; ++round) {
        ASSERT_TRUE(mService->setMetaAudioThreadEnable(false).isOk());
        ASSERT_TRUE(mService->setMetaAudioThreadEnable(true).isOk());
        EXPECT_TRUE(client->waitForTicks(2)) << round;
    }
    // Switching head tracking off stops the thread as well.
    ASSERT_TRUE(mService->setHeadTrackerEnable(false).isOk());
    ASSERT_TRUE(mService->unregisterClient(3).isOk());
}

// The worker's thread id, 0 while there is none.
pid_t workerThread() {
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        if (readFile(task.path() / "comm") != "MetaAudioThread\n") continue;
        return static_cast<pid_t>(std::strtol(task.path().filename().c_str(), nullptr, 10));
    }
    return 0;
}

// A start is under way, held up by a renderer that thinks while client 3 is about to be asked.
TEST_F(Tracking, WhoeverSwitchesLastDecidesOverAStartUnderWay) {
    std::promise<void>* asked = nullptr;
    std::shared_future<void> released;
    start();
    addClient(1, [&](int32_t event, const CallbackData&, CallbackData*) {
        if (event != IHalvendClient::CB_IS_META_TRACK_PLAYING) return;
        asked->set_value();
        released.wait();
    });
    addClient(3);
    plugAndSwitchOn();
    const auto enable = [this](bool on) {
        const ScopedCaller system(kSystemUid);
        EXPECT_TRUE(mService->setMetaAudioThreadEnable(on).isOk());
    };
    const auto track = [this](bool on) { EXPECT_TRUE(mService->setHeadTrackerEnable(on).isOk()); };
    const struct {
        const char* name;
        std::function<void()> meanwhile;
        bool isEnabledAgain;
    } rows[] = {
            {"nothing", [] {}, true},
            {"disable", [&] { enable(false); }, false},
            {"disable, enable", [&] { enable(false); }, true},
            {"tracking off", [&] { track(false); }, false},
            {"tracking off, on", [&] { track(false), track(true); }, false},
            {"tracking off, on, enable", [&] { track(false), track(true); }, true},
    };
    constexpr char kStarting[] = "setMetaAudioThreadEnable: NATIVE_NOTIFY_SP_CHECK_SENSOR";
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        track(true);
        std::promise<void> thinking;
        std::promise<void> release;
        asked = &thinking;
        released = release.get_future().share();
        bool playing = false;
        std::thread renderer([&] { EXPECT_TRUE(mService->isMetaTrackPlaying(&playing).isOk()); });
        thinking.get_future().wait();
        mCapture.clear();
        std::vector<std::thread> callers;
        callers.emplace_back(enable, true);
        EXPECT_TRUE(mCapture.waitFor(kStarting));
        row.meanwhile();
        if (row.isEnabledAgain) {
            callers.emplace_back(enable, true);
            EXPECT_TRUE(eventually([&] { return mCapture.count(kStarting) == 2; }));
        }
        release.set_value();
        renderer.join();
        for (std::thread& caller : callers)
            caller.join();
        EXPECT_TRUE(eventually([&] { return (workerThread() != 0) == row.isEnabledAgain; }));
        if (const pid_t worker = workerThread(); worker != 0 && ::geteuid() == 0) {
            EXPECT_EQ(-16, ::getpriority(PRIO_PROCESS, static_cast<id_t>(worker)));
        }
        // The next switches find the flag as the worker is.
        enable(false);
        EXPECT_TRUE(eventually([] { return workerThread() == 0; }));
    }
}

TEST_F(Tracking, RenderersAnswersPassThrough) {
    start();
    bool playing = true;
    std::string list = "keep";
    ASSERT_TRUE(mService->isMetaTrackPlaying(&playing).isOk());
    ASSERT_TRUE(mService->getActiveMetaList(&list).isOk());
    EXPECT_FALSE(playing);
    EXPECT_EQ("", list);
    addClient(1, [](int32_t, const CallbackData&, CallbackData* out) {
        out->isPlaying = true;
        out->strValue = "a;b";
    });
    ASSERT_TRUE(mService->isMetaTrackPlaying(&playing).isOk());
    ASSERT_TRUE(mService->getActiveMetaList(&list).isOk());
    EXPECT_TRUE(playing);
    EXPECT_EQ("a;b", list);
}

}  // namespace

}  // namespace sonorel::test
