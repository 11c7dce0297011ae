// Sound separation, its gains and render mode, key-value parameters and window relays.

#include <cmath>

#include "service/ServiceHarness.h"

namespace sonorel::test {

namespace {

class Mss : public ServiceTest {
protected:
    void list(const std::string& text) {
        (void)mRoot.write("data/qelto/multimedia/lists/mss-whitelist.list", text);
    }
    int32_t enable(const std::string& pkgName, bool on = true) {
        int32_t result = 99;
        EXPECT_TRUE(mService->setMssEnable(pkgName, on, &result).isOk());
        return result;
    }
    std::string parameter(const std::string& keys) {
        std::string value = "keep";
        EXPECT_TRUE(mService->getParameters(keys, &value).isOk());
        return value;
    }
};

TEST_F(Mss, SupportTypeDecides) {
    list("a 1\nb 17\nc 16\nd 0\ne x1\nf " + std::string(300, '1') + "\ng 3\n");
    start();
    // A renderer that does music only.
    addClient(1, [](int32_t event, const CallbackData&, CallbackData* out) {
        out->mssEnable = event == IHalvendClient::CB_IS_MSS_MUSIC_ONLY;
    });
    mEvents.clear();
    EXPECT_EQ(0, enable("a"));
    EXPECT_EQ(0, enable("g", false));
    // And nobody is asked about music, as bit 4 is clear.
    EXPECT_EQ((std::vector<std::string>{"client 1 event 17 one-way pkgName=a mssEnable=1",
                                        "client 1 event 17 one-way pkgName=g"}),
              mEvents.takeLines());
    for (const char* refused : {"b", "c", "d", "e", "unlisted", ""}) {
        mCapture.clear();
        EXPECT_EQ(-1, enable(refused)) << refused;
        const std::string line =
                std::string("setMssEnable: ") + refused + " not support vocal adjust!";
        EXPECT_EQ(1U, mCapture.count(line)) << refused;
        EXPECT_EQ(0U, mEvents.count(1, IHalvendClient::CB_SET_MSS_ENABLE)) << refused;
    }
    EXPECT_EQ(1U, mEvents.count(1, IHalvendClient::CB_IS_MSS_MUSIC_ONLY)) << "asked once for ever";
    (void)enable("f");  // overlong: whatever the list makes of it, nothing breaks
}

TEST_F(Mss, AMissingRendererFixesTheMusicOnlyAnswer) {
    list("b 17\n");
    start();
    EXPECT_EQ(0, enable("b"));
    addClient(1, [](int32_t, const CallbackData&, CallbackData* out) { out->mssEnable = true; });
    EXPECT_EQ(0, enable("b"));
    EXPECT_EQ(0U, mEvents.count(1, IHalvendClient::CB_IS_MSS_MUSIC_ONLY));
}

TEST_F(Mss, AnEditOfTheListIsSeen) {
    start();
    EXPECT_EQ(-1, enable("late"));
    list("late 1\n");
    EXPECT_EQ(0, enable("late"));
    list("late 0\n# longer now\n");
    EXPECT_EQ(-1, enable("late"));
}

TEST_F(Mss, ReturningRendererGetsEnableGainsAndMode) {
    list("a 1\n");
    product(false, 1);
    start();
    int32_t result = 99;
    ASSERT_TRUE(
            mService->setMssTracksGain("other", {0.1f, 0.2f, 0.3f, 0.4f, 0.5f}, &result).isOk());
    ASSERT_TRUE(mService->setMssSpatialRenderMode(-1, &result).isOk());
    EXPECT_EQ(0, enable("a"));
    addClient(1);
    const std::vector<std::string> full = {
            "client 1 event 17 one-way pkgName=a mssEnable=1",
            "client 1 event 21 one-way pkgName=a gains=0.1,0.2,0.3,0.4",
            "client 1 event 19 one-way renderMode=-1",
    };
    auto pushed = mEvents.takeLines();
    ASSERT_GE(pushed.size(), 3U);
    EXPECT_EQ(full, std::vector<std::string>(pushed.end() - 3, pushed.end()));

    EXPECT_EQ(0, enable("a", false));
    mService->findClient(1)->binderDied(nullptr);
    mEvents.clear();
    addClient(1);
    pushed = mEvents.takeLines();
    EXPECT_EQ("client 1 event 19 one-way renderMode=-1", pushed.back());
    for (const std::string& line : pushed) {
        EXPECT_EQ(std::string::npos, line.find("event 17")) << line;
        EXPECT_EQ(std::string::npos, line.find("event 21")) << line;
    }
}

TEST_F(Mss, GainsNeedFourAndAreNotShared) {
    start();
    addClient(1);
    mEvents.clear();
    int32_t result = 99;
    ASSERT_TRUE(mService->setMssTracksGain("a", {1, 2, 3}, &result).isOk());
    EXPECT_EQ(99, result);
    EXPECT_TRUE(mEvents.lines().empty());
    ASSERT_TRUE(mService->setMssTracksGain("a", {1, 2, 3, 4, 5, 6}, &result).isOk());
    EXPECT_EQ(0, result);
    EXPECT_EQ((std::vector<std::string>{"client 1 event 21 one-way pkgName=a gains=1,2,3,4,5,6"}),
              mEvents.takeLines());
    EXPECT_TRUE(mCapture.contains("setMssTracksGainInt --- 1.000000|4.000000 pkg[a]"));
    std::vector<float> gains(6, 0.5f);
    ASSERT_TRUE(mService->getMssTracksGain("b", &gains, &result).isOk());
    EXPECT_EQ((std::vector<float>{1, 2, 3, 4, 0.5f, 0.5f}), gains);
    std::vector<float> none;
    result = 99;
    ASSERT_TRUE(mService->getMssTracksGain("a", &none, &result).isOk());
    EXPECT_TRUE(none.empty());
    EXPECT_EQ(99, result);
}

TEST_F(Mss, RenderModeFollowsTheUserWhereThereIsAStore) {
    product(false, 1);
    start();
    addClient(1, [](int32_t, const CallbackData&, CallbackData* out) { out->renderMode = 42; });
    int32_t value = 0;
    ASSERT_TRUE(mService->setMssSpatialRenderMode(7, &value).isOk());
    ASSERT_TRUE(mService->getMssSpatialRenderMode(&value).isOk());
    EXPECT_EQ(7, value);
    mEvents.clear();
    ASSERT_TRUE(mService->setCurrentUserID(10).isOk());
    EXPECT_EQ(1U, mEvents.count(1, IHalvendClient::CB_SET_MSS_RENDER_MODE));
    ASSERT_TRUE(mService->getMssSpatialRenderMode(&value).isOk());
    EXPECT_EQ(0, value);
    mEvents.clear();
    ASSERT_TRUE(mService->setCurrentUserID(0).isOk());
    const auto lines = mEvents.takeLines();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ("client 1 event 19 one-way renderMode=7", lines.front());

    // Without the feature there is no store and the renderer answers.
    product(false, -1);
    restart();
    ASSERT_TRUE(mService->getMssSpatialRenderMode(&value).isOk());
    EXPECT_EQ(0, value);
    addClient(1, [](int32_t, const CallbackData&, CallbackData* out) { out->renderMode = 42; });
    ASSERT_TRUE(mService->getMssSpatialRenderMode(&value).isOk());
    EXPECT_EQ(42, value);
}

TEST_F(Mss, SpatializerParameterTellsWhatIsInTheWay) {
    const char key[] = "mss_get_spatializer_enable";
    product(false, 0, "audiox_merge_plus");
    start();
    EXPECT_EQ("false", parameter(key));
    ASSERT_TRUE(mService->onMultiChnSpatializerTrackChanged(true, 5, "p").isOk());
    ASSERT_TRUE(mService->onMultiChnSpatializerTrackChanged(true, 5, "q").isOk());
    EXPECT_EQ("true", parameter(key));
    EXPECT_TRUE(mService->isAppPlayingMultiChnSpatializer("q"));
    EXPECT_FALSE(mService->isAppPlayingMultiChnSpatializer("p"));
    ASSERT_TRUE(mService->onMultiChnSpatializerTrackChanged(false, 6, "q").isOk());
    EXPECT_TRUE(
            mCapture.contains("onMultiChnSpatializerTrackChanged --- 6|0 pkg name q map size 1"));
    ASSERT_TRUE(mService->onMultiChnSpatializerTrackChanged(false, 5, "other").isOk());
    EXPECT_EQ("false", parameter(key));

    ASSERT_TRUE(mService->setSpatilizerAudioEnable(true).isOk());
    mCapture.clear();
    EXPECT_EQ("true", parameter(key)) << "the output was never told";
    EXPECT_EQ((std::vector<std::string>{
                      "isMssCanWork() mss not support when spatializer working [1][0][1][-3]",
                      "getParameters ret:true"}),
              mCapture.messages());
    const struct {
        int64_t type;
        const char* answer;
    } rows[] = {{2, "false"},
                {4, "true"},
                {1, "false"},
                {int64_t{1} << 32, "false"},
                {(int64_t{1} << 32) + 3, "true"},
                {-1, "true"},
                {0, "false"}};
    for (const auto& row : rows) {
        ASSERT_TRUE(mService->setOutputDeviceForMss(row.type).isOk());
        EXPECT_EQ(row.answer, parameter(key)) << row.type;
    }
    ASSERT_TRUE(mService->notitySpHeadsetConnectionState(true).isOk());
    EXPECT_EQ("true", parameter(key));

    for (const char* other :
         {"mss_get_spatializer_enable;", "MSS_get_spatializer_enable", "", " "}) {
        EXPECT_EQ("", parameter(other)) << other;
    }
    ASSERT_TRUE(mService->setParameters("mss_get_spatializer_enable=false").isOk());
    EXPECT_EQ("true", parameter(key));
}

TEST_F(Mss, WithoutTheMergedEffectTheSpatializerAlwaysBlocks) {
    product(false, 0, "audiox_merg");
    start();
    ASSERT_TRUE(mService->setSpatilizerAudioEnable(true).isOk());
    ASSERT_TRUE(mService->setOutputDeviceForMss(2).isOk());
    EXPECT_FALSE(mService->isMssCanWork());
}

TEST_F(Mss, WindowFactsAreRelayedUnchanged) {
    start();
    addClient(1);
    addClient(5);
    mEvents.clear();
    ASSERT_TRUE(mService->setSplitScreenModeEnabled(false, 3, 7).isOk());
    ASSERT_TRUE(mService->setApkWindowSize("").isOk());
    ASSERT_TRUE(mService->setApkWindowSize("{\"a\":[0,0,1080,2400]}").isOk());
    mService->notifyStateToMssApp();
    EXPECT_EQ((std::vector<std::string>{
                      "client 1 event 15 one-way splitScreenParam1=3 splitScreenParam2=7",
                      "client 1 event 16 one-way",
                      "client 1 event 16 one-way strValue2={\"a\":[0,0,1080,2400]}",
                      "client 5 event 23 one-way"}),
              mEvents.takeLines());
}

}  // namespace

}  // namespace sonorel::test
