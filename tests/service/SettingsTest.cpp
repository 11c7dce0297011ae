// On/off, mode and positions through plug, unplug and user switch: what the clients are sent, what
// the store keeps, what is answered.

#include "service/ServiceHarness.h"
#include "stores/RawDatabase.h"
#include "support/Wait.h"

namespace sonorel::test {

namespace {

// The renderer's answers: status 0, and it reports what it was last told.
FakeClient::Answer renderer(int32_t status = 0) {
    auto state = std::make_shared<CallbackData>();
    return [state, status](int32_t event, const CallbackData& in, CallbackData* out) {
        out->status = status;
        if (event == IHalvendClient::CB_SET_META_AUDIO_ON) state->enable = in.enable;
        if (event == IHalvendClient::CB_SET_META_AUDIO_MODE) state->mode = in.mode;
        out->enable = state->enable;
        out->mode = state->mode;
        if (event == IHalvendClient::CB_GET_CURRENT_POS) out->data = {9, 8, 7, 6};
    };
}

class Settings : public ServiceTest {
protected:
    // What the store holds for a device, asked while nothing is live.
    std::string stored(int8_t device) {
        mService->awaitStoreWrites();
        return found(device);
    }

    // The same with what still waits for the store.
    std::string found(int8_t device) {
        bool on = false;
        int8_t mode = 0;
        std::vector<float> xyz(3);
        EXPECT_TRUE(mService->getMetaAudioOnWithDev(device, &on).isOk());
        EXPECT_TRUE(mService->getMetaAudioModeWithDev(device, &mode).isOk());
        EXPECT_TRUE(mService->getCurrentPosWithDev(1, &xyz, device).isOk());
        char text[96];
        (void)std::snprintf(text, sizeof(text), "on=%d mode=%d scene1=%g,%g,%g", on, mode,
                            static_cast<double>(xyz[0]), static_cast<double>(xyz[1]),
                            static_cast<double>(xyz[2]));
        return text;
    }

    // The push of a device's settings: on, mode, 13 positions, spatializer mode.
    std::vector<std::string> push(bool speaker, bool on, int mode, const std::string& scene1,
                                  const std::string& scene13, int modeBefore) {
        std::vector<std::string> lines;
        const auto toEffectCentre = [&](int shownMode) {
            if (!speaker) return;
            lines.push_back(std::string("client 4 event 24 one-way") + (on ? " enable=1" : "") +
                            (shownMode != 0 ? " mode=" + std::to_string(shownMode) : ""));
        };
        lines.push_back(std::string("client 1 event 0 two-way") + (on ? " enable=1" : ""));
        toEffectCentre(modeBefore);
        lines.push_back("client 1 event 1 two-way" +
                        (mode != 0 ? " mode=" + std::to_string(mode) : std::string()));
        toEffectCentre(mode);
        for (int scene = 1; scene <= 13; ++scene) {
            lines.push_back("client 1 event 2 one-way scene=" + std::to_string(scene) + " data=" +
                            (scene == 1    ? scene1
                             : scene == 13 ? scene13
                                           : "0,0,0"));
        }
        lines.emplace_back("client 1 event 10 one-way");
        return lines;
    }
};

TEST_F(Settings, WithoutAnOutputThatWorksASettingIsStoredOnly) {
    start();
    addClient(1, renderer());
    mEvents.clear();
    int32_t status = 55;
    ASSERT_TRUE(mService->setMetaAudioOn(true, &status).isOk());
    ASSERT_TRUE(mService->setMetaAudioMode(4, &status).isOk());
    ASSERT_TRUE(mService->javaCallSetCurrentPos(1, pos(4, 5, 6)).isOk());
    EXPECT_EQ(55, status);
    EXPECT_TRUE(mEvents.lines().empty());
    EXPECT_EQ("on=1 mode=4 scene1=4,5,6", stored(-1));

    // The headset's arrival pushes what was stored.
    ASSERT_TRUE(mService->notitySpHeadsetConnectionState(true).isOk());
    EXPECT_EQ(push(false, true, 4, "4,5,6", "13,0.5,0.25", 0), mEvents.takeLines());
    ASSERT_TRUE(mService->setMetaAudioOn(false, &status).isOk());
    EXPECT_EQ(0, status);
    EXPECT_EQ((std::vector<std::string>{"client 1 event 0 two-way"}), mEvents.takeLines());

    // Its departure says nothing to anyone.
    ASSERT_TRUE(mService->notitySpHeadsetConnectionState(false).isOk());
    EXPECT_TRUE(mEvents.lines().empty());
    EXPECT_EQ("on=0 mode=4 scene1=4,5,6", stored(1));
}

TEST_F(Settings, SpeakerProductWalkThroughDevicesAndUsers) {
    product(true);
    start();
    addClient(4);
    addClient(1, renderer());
    mEvents.clear();
    int32_t status = -9;

    // User 0 on the speaker.
    ASSERT_TRUE(mService->setMetaAudioOn(true, &status).isOk());
    ASSERT_TRUE(mService->setMetaAudioMode(2, &status).isOk());
    EXPECT_EQ(0, status);
    EXPECT_EQ((std::vector<std::string>{"client 1 event 0 two-way enable=1",
                                        "client 4 event 24 one-way enable=1",
                                        "client 1 event 1 two-way mode=2",
                                        "client 4 event 24 one-way enable=1 mode=2"}),
              mEvents.takeLines());
    ASSERT_TRUE(mService->javaCallSetCurrentPos(1, {1, 1, 1, 99}).isOk());
    EXPECT_EQ((std::vector<std::string>{"client 1 event 2 one-way scene=1 data=1,1,1,99"}),
              mEvents.takeLines());

    // The headset's side is set while it is away: stored, not sent.
    ASSERT_TRUE(mService->setMetaAudioOnWithDev(true, 1, &status).isOk());
    ASSERT_TRUE(mService->setMetaAudioModeWithDev(5, 1, &status).isOk());
    ASSERT_TRUE(mService->setCurrentPosWithDev(1, pos(2, 2, 2), 1).isOk());
    EXPECT_EQ("on=1 mode=5 scene1=2,2,2", stored(1));
    EXPECT_TRUE(mEvents.lines().empty());

    // Plugged in: the headset's settings go out.
    ASSERT_TRUE(mService->notitySpHeadsetConnectionState(true).isOk());
    EXPECT_EQ(push(true, true, 5, "2,2,2", "13,0.5,0.25", 2), mEvents.takeLines());
    EXPECT_EQ("on=1 mode=2 scene1=1,1,1", stored(0));

    // Another user on the headset: everything starts from the product's defaults.
    ASSERT_TRUE(mService->setCurrentUserID(10).isOk());
    EXPECT_EQ(push(true, false, 0, "1,2,3", "13,0.5,0.25", 5), mEvents.takeLines());
    EXPECT_EQ("on=0 mode=0 scene1=-1,-2,-3", stored(0)) << "the other device is seeded as well";
    ASSERT_TRUE(mService->setMetaAudioModeWithDev(1, -1, &status).isOk());
    mEvents.clear();
    ASSERT_TRUE(mService->setCurrentUserID(10).isOk());
    EXPECT_TRUE(mEvents.lines().empty()) << "the same user again";

    // Unplugged: the speaker's side of the new user.
    ASSERT_TRUE(mService->notitySpHeadsetConnectionState(false).isOk());
    EXPECT_EQ(push(true, false, 0, "-1,-2,-3", "13,0.5,0.25", 1), mEvents.takeLines());
    EXPECT_EQ("on=0 mode=1 scene1=1,2,3", stored(1));

    // A new user on the speaker, whose headset's side is seeded as well.
    ASSERT_TRUE(mService->setCurrentUserID(11).isOk());
    EXPECT_EQ(push(true, false, 0, "-1,-2,-3", "13,0.5,0.25", 0), mEvents.takeLines());
    EXPECT_EQ("on=0 mode=0 scene1=1,2,3", stored(1));
    ASSERT_TRUE(mService->setMetaAudioMode(9, &status).isOk());
    mEvents.clear();

    // Back to the first user, and over a restart of the service.
    ASSERT_TRUE(mService->setCurrentUserID(0).isOk());
    EXPECT_EQ(push(true, true, 2, "1,1,1", "13,0.5,0.25", 9), mEvents.takeLines());
    restart();
    EXPECT_EQ("on=1 mode=5 scene1=2,2,2", stored(1));
    addClient(1, renderer());
    const auto pushed = mEvents.takeLines();
    EXPECT_EQ("client 1 event 0 two-way enable=1", pushed.at(1));
}

// A deferred write belongs to the user and device for which it was made, however soon they change.
TEST_F(Settings, DeferredWritesStayWithTheirUserAndDevice) {
    product(true);
    start();
    int32_t status = 0;
    for (int round = 0; round < 20; ++round) {
        const auto mode = static_cast<int8_t>(round + 1);
        ASSERT_TRUE(mService->setMetaAudioModeWithDev(mode, 1, &status).isOk());
        ASSERT_TRUE(mService->setCurrentUserID(round + 1).isOk());
        int8_t found = -1;
        ASSERT_TRUE(mService->getMetaAudioModeWithDev(1, &found).isOk());
        EXPECT_EQ(0, found) << "a fresh user has the earlier user's mode";
        ASSERT_TRUE(mService->setCurrentUserID(round).isOk());
        ASSERT_TRUE(mService->getMetaAudioModeWithDev(1, &found).isOk());
        EXPECT_EQ(mode, found);
        ASSERT_TRUE(mService->setCurrentUserID(round + 1).isOk());
    }
}

TEST_F(Settings, OfDeferredWritesTheLastStays) {
    product(true);
    start();
    int32_t status = 0;
    for (int i = 0; i <= 100; ++i) {
        ASSERT_TRUE(mService->setMetaAudioModeWithDev(static_cast<int8_t>(i), 1, &status).isOk());
        ASSERT_TRUE(mService->setMetaAudioOnWithDev(i % 2 == 1, 1, &status).isOk());
    }
    EXPECT_EQ(0, stored(1).rfind("on=0 mode=100", 0));
}

// The database is locked by another program: nothing that is deferred reaches it, and yet a caller
// finds what it has set, and so does a renderer that is pushed to.
TEST_F(Settings, WhatWaitsForTheStoreIsReadAndPushed) {
    start();
    addClient(1, renderer());
    android::RawDatabase other(mRoot.path("data/qelto/multimedia/meta.db"));
    other.run("BEGIN IMMEDIATE");
    int32_t status = 0;
    for (const int8_t round : {1, 2}) {
        ASSERT_TRUE(mService->setMetaAudioOnWithDev(round == 2, -1, &status).isOk());
        ASSERT_TRUE(mService->setMetaAudioModeWithDev(static_cast<int8_t>(round * 3), 1, &status)
                            .isOk());
        ASSERT_TRUE(mService->setCurrentPosWithDev(1, pos(round, 0, 0), 1).isOk());
        ASSERT_TRUE(mService->setCurrentPosWithDev(99, pos(9, 9, 9), 1).isOk()) << "no such scene";
    }
    for (const int8_t device : {-1, 1})
        EXPECT_EQ("on=1 mode=6 scene1=2,0,0", found(device));
    mEvents.clear();
    ASSERT_TRUE(mService->notitySpHeadsetConnectionState(true).isOk());
    EXPECT_EQ(push(false, true, 6, "2,0,0", "13,0.5,0.25", 0), mEvents.takeLines());
    EXPECT_EQ("0", other.query("SELECT count(*) FROM META_INFO WHERE mode <> 0 OR is_on <> 0"));
    other.run("ROLLBACK");
    EXPECT_TRUE(eventually([&] {
        mService->awaitStoreWrites();
        return other.query("SELECT is_on || mode FROM META_INFO WHERE device = 1") == "16";
    }));
}

TEST_F(Settings, PlainModeSetterLeavesTheCacheToTheWorker) {
    start();  // nothing can work, so the worker does not run
    int32_t status = 0;
    ASSERT_TRUE(mService->setMetaAudioMode(6, &status).isOk());
    ASSERT_TRUE(mService->setMetaAudioOn(true, &status).isOk());
    mCapture.clear();
    // The cached on value is what the thread switch logs.
    ASSERT_TRUE(mService->setMetaAudioThreadEnable(false).isOk());
    EXPECT_EQ(1U, mCapture.count("setMetaAudioThreadEnable(): 0,mMetaAudioOn:1 mHeadtrackOn:0"));
}

TEST_F(Settings, PositionsComeFromTheRendererOrFromTheStore) {
    start();
    ASSERT_TRUE(mService->notitySpHeadsetConnectionState(true).isOk());
    ASSERT_TRUE(mService->javaCallSetCurrentPos(1, pos(3, 2, 1)).isOk());
    std::vector<float> xyz(4, 0.5f);

    ASSERT_TRUE(mService->javaCallGetCurrentPos(1, &xyz).isOk());
    EXPECT_EQ((std::vector<float>{3, 2, 1, 0.5f}), xyz) << "no renderer: the stored one";
    addClient(1, renderer());
    ASSERT_TRUE(mService->javaCallGetCurrentPos(1, &xyz).isOk());
    EXPECT_EQ((std::vector<float>{9, 8, 7, 0.5f}), xyz);
    ASSERT_TRUE(mService->unregisterClient(1).isOk());
    addClient(1, renderer(-7));
    ASSERT_TRUE(mService->getCurrentPosWithDev(1, &xyz, -1).isOk());
    EXPECT_EQ((std::vector<float>{3, 2, 1, 0.5f}), xyz) << "a failing renderer: the stored one";
    ASSERT_TRUE(mService->unregisterClient(1).isOk());
    addClient(1, [](int32_t, const CallbackData&, CallbackData* out) {
        out->status = 0;
        out->data = {1};
    });
    ASSERT_TRUE(mService->javaCallGetCurrentPos(1, &xyz).isOk());
    EXPECT_EQ((std::vector<float>{3, 2, 1, 0.5f}), xyz) << "too few floats: the stored one";

    std::vector<float> two(2, 0.5f);
    ASSERT_TRUE(mService->javaCallGetCurrentPos(1, &two).isOk());
    ASSERT_TRUE(mService->javaCallSetCurrentPos(1, two).isOk());
    EXPECT_EQ(std::vector<float>(2, 0.5f), two);
    ASSERT_TRUE(mService->javaCallGetCurrentPos(1, &xyz).isOk());
    EXPECT_EQ(3, xyz[0]);
}

TEST_F(Settings, DefaultPositionsComeFromThePolicy) {
    product(true);
    start();
    const struct {
        int32_t scene;
        int8_t device;  // -2: the method without a device
        bool headset;
        std::vector<float> expected;
    } rows[] = {
            {1, -2, false, pos(-1, -2, -3)}, {1, -2, true, pos(1, 2, 3)},
            {1, 0, true, pos(-1, -2, -3)},   {1, 1, false, pos(1, 2, 3)},
            {1, -1, false, pos(1, 2, 3)},    {13, 0, false, pos(13, 0.5f, 0.25f)},
            {14, -2, false, pos(7, 7, 7)},   {0, -2, false, pos(7, 7, 7)},
            {-1, 1, false, pos(7, 7, 7)},    {2147483647, 1, false, pos(7, 7, 7)},
    };
    for (const auto& row : rows) {
        ASSERT_TRUE(mService->notitySpHeadsetConnectionState(row.headset).isOk());
        std::vector<float> xyz = pos(7, 7, 7);
        if (row.device == -2) {
            ASSERT_TRUE(mService->javaCallGetDefaultPos(row.scene, &xyz).isOk());
        } else {
            ASSERT_TRUE(mService->getDefaultPosWithDev(row.scene, &xyz, row.device).isOk());
        }
        EXPECT_EQ(row.expected, xyz) << "scene " << row.scene << " device " << int(row.device);
    }
}

TEST_F(Settings, SeedingHappensOncePerUserAndDevice) {
    start();
    ASSERT_TRUE(mService->javaCallSetCurrentPos(1, pos(5, 5, 5)).isOk());
    mService->initCustomDefaultSceneHomePos();
    EXPECT_EQ("on=0 mode=0 scene1=5,5,5", stored(1));
    EXPECT_FALSE(mService->justChangeDataBase(-1));
}

}  // namespace

}  // namespace sonorel::test
