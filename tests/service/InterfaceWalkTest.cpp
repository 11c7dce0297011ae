// One walk over all 57 methods: as a caller who is refused, as the system with no client and no
// policy, with clients, and with a client that dies in the middle.

#include <gmock/gmock.h>
#include <unistd.h>

#include <sstream>

#include "service/ServiceHarness.h"

namespace sonorel::test {

namespace {

using ::testing::ElementsAre;
using ::testing::StartsWith;

// Outputs that a method may leave alone start from these.
constexpr int32_t kInt = -77;
constexpr int8_t kByte = -78;

template <typename T>
std::string show(const std::vector<T>& values) {
    std::ostringstream text;
    text << '[';
    for (size_t i = 0; i < values.size(); ++i)
        text << (i == 0 ? "" : ",") << values[i];
    text << ']';
    return text.str();
}

struct Row {
    const char* method;
    bool checked;  // runs the caller check
    // Calls the method and shows its outputs.
    std::function<std::string(SonorelService&)> call;
    std::string refused;     // outputs of a refused caller, where `checked`
    std::string bare;        // outputs for the system, no client, speaker product
    std::string withClient;  // with a renderer that answers status 5 and fills every field
};

std::string ok(const android::binder::Status& status, const std::string& outputs = "") {
    EXPECT_TRUE(status.isOk()) << status.toString8();
    return outputs;
}

// Calls with one output, shown afterwards.
template <typename T, typename Call>
std::string one(Call call, T start) {
    T out = start;
    EXPECT_TRUE(call(&out).isOk());
    std::ostringstream text;
    if constexpr (sizeof(T) == 1) {
        text << static_cast<int>(out);
    } else {
        text << out;
    }
    return text.str();
}

template <typename T, typename Call>
std::string vec(Call call, size_t size, T start) {
    std::vector<T> out(size, start);
    EXPECT_TRUE(call(&out).isOk());
    return show(out);
}

#define VOID(expression) [](SonorelService& s) { return ok(s.expression); }

const char kStored[] = "[0,0,0]";

std::vector<Row> walk() {
    using S = SonorelService;
    const std::string text = "text";
    return {
            {"testSonorelService", false, VOID(testSonorelService()), "", "", ""},
            {"getMetaInfoByPkgName", false,
             [](S& s) {
                 return one<std::string>([&](auto* o) { return s.getMetaInfoByPkgName("x", o); },
                                         "keep");
             },
             "", "null", "null"},
            {"getMetaAudioSceMap", false,
             [](S& s) {
                 return one<std::string>([&](auto* o) { return s.getMetaAudioSceMap(o); }, "keep");
             },
             "", "", ""},
            {"setHeadTrackerEnable", true, VOID(setHeadTrackerEnable(true)), "", "", ""},
            {"sendHeadToStageData", true, VOID(sendHeadToStageData({1, 2, 3, 4, 5, 6})), "", "",
             ""},
            {"getHeadToStageData", false,
             [](S& s) {
                 return vec<float>([&](auto* o) { return s.getHeadToStageData(o); }, 2, 7);
             },
             "", "[7,7]", "[7,7]"},
            {"registerClient", false, VOID(registerClient(nullptr, 9)), "", "", ""},
            {"unregisterClient", false, VOID(unregisterClient(9)), "", "", ""},
            {"javaCallGetMetaInfoByPkgName", false,
             [](S& s) {
                 return one<std::string>(
                         [&](auto* o) { return s.javaCallGetMetaInfoByPkgName("x", o); }, "keep");
             },
             "", "null", "null"},
            {"javaCallSetCurrentPos", true, VOID(javaCallSetCurrentPos(2, {0, 0, 0})), "", "", ""},
            {"javaCallGetCurrentPos", false,
             [](S& s) {
                 return vec<float>([&](auto* o) { return s.javaCallGetCurrentPos(2, o); }, 3, 7);
             },
             "", kStored, kStored},
            {"javaCallGetDefaultPos", false,
             [](S& s) {
                 return vec<float>([&](auto* o) { return s.javaCallGetDefaultPos(2, o); }, 3, 7);
             },
             "", "[7,7,7]", "[7,7,7]"},
            {"javaCallIsScenePlaying", false,
             [](S& s) {
                 return one<bool>([&](auto* o) { return s.javaCallIsScenePlaying(1, o); }, true);
             },
             "", "0", "1"},
            {"javaCallGetSupportSceneArray", false,
             [](S& s) {
                 return vec<int32_t>([&](auto* o) { return s.javaCallGetSupportSceneArray(o); }, 16,
                                     7);
             },
             "", "[0,1,2,3,4,5,6,7,8,9,10,11,-1,13,-1,-1]",
             "[0,1,2,3,4,5,6,7,8,9,10,11,-1,13,-1,-1]"},
            {"onPlayStateChange", false, VOID(onPlayStateChange(1, {1, 2, 3}, 2, "a")), "", "", ""},
            {"setMetaAudioOn", true,
             [](S& s) {
                 return one<int32_t>([&](auto* o) { return s.setMetaAudioOn(true, o); }, kInt);
             },
             "-77", "-1", "5"},
            {"getMetaAudioOn", false,
             [](S& s) { return one<bool>([&](auto* o) { return s.getMetaAudioOn(o); }, true); }, "",
             "0", "1"},
            {"setMetaAudioMode", true,
             [](S& s) {
                 return one<int32_t>([&](auto* o) { return s.setMetaAudioMode(1, o); }, kInt);
             },
             "-77", "-1", "5"},
            {"getMetaAudioMode", false,
             [](S& s) {
                 return one<int8_t>([&](auto* o) { return s.getMetaAudioMode(o); }, kByte);
             },
             "", "0", "6"},
            {"setCurrentUserID", true, VOID(setCurrentUserID(0)), "", "", ""},
            {"setParameters", true, VOID(setParameters("a=b")), "", "", ""},
            {"getParameters", true,
             [](S& s) {
                 return one<std::string>(
                         [&](auto* o) { return s.getParameters("mss_get_spatializer_enable", o); },
                         "keep");
             },
             "keep", "false", "false"},
            {"isMetaTrackPlaying", false,
             [](S& s) { return one<bool>([&](auto* o) { return s.isMetaTrackPlaying(o); }, true); },
             "", "0", "1"},
            {"setMetaAudioThreadEnable", true, VOID(setMetaAudioThreadEnable(true)), "", "", ""},
            {"notitySpHeadsetConnectionState", false, VOID(notitySpHeadsetConnectionState(false)),
             "", "", ""},
            {"setSpatializerState", true, VOID(setSpatializerState(0)), "", "", ""},
            {"getActiveMetaList", false,
             [](S& s) {
                 return one<std::string>([&](auto* o) { return s.getActiveMetaList(o); }, "keep");
             },
             "", "", "tracks"},
            {"checkAndUpdatePolicy", false,
             [](S& s) {
                 return one<bool>([&](auto* o) { return s.checkAndUpdatePolicy(o); }, true);
             },
             "", "0", "0"},
            {"registerClientOneWay", false, VOID(registerClientOneWay(nullptr, 9)), "", "", ""},
            {"isUnsupportDevice", false,
             [](S& s) {
                 return one<bool>([&](auto* o) { return s.isUnsupportDevice("x", o); }, true);
             },
             "", "0", "0"},
            {"setMetaAudioOnWithDev", false,
             [](S& s) {
                 return one<int32_t>([&](auto* o) { return s.setMetaAudioOnWithDev(true, 0, o); },
                                     kInt);
             },
             "", "-1", "5"},
            {"getMetaAudioOnWithDev", false,
             [](S& s) {
                 return one<bool>([&](auto* o) { return s.getMetaAudioOnWithDev(0, o); }, true);
             },
             "", "0", "1"},
            {"setMetaAudioModeWithDev", false,
             [](S& s) {
                 return one<int32_t>([&](auto* o) { return s.setMetaAudioModeWithDev(1, 1, o); },
                                     kInt);
             },
             "", "-77", "-77"},
            {"getMetaAudioModeWithDev", false,
             [](S& s) {
                 return one<int8_t>([&](auto* o) { return s.getMetaAudioModeWithDev(0, o); },
                                    kByte);
             },
             "", "0", "6"},
            {"setCurrentPosWithDev", false, VOID(setCurrentPosWithDev(2, {0, 0, 0}, 0)), "", "",
             ""},
            {"getCurrentPosWithDev", false,
             [](S& s) {
                 return vec<float>([&](auto* o) { return s.getCurrentPosWithDev(2, o, 1); }, 3, 7);
             },
             "", kStored, kStored},
            {"getDefaultPosWithDev", false,
             [](S& s) {
                 return vec<float>([&](auto* o) { return s.getDefaultPosWithDev(2, o, 0); }, 3, 7);
             },
             "", "[7,7,7]", "[7,7,7]"},
            {"getHeadsetConnectionState", false,
             [](S& s) {
                 return one<bool>([&](auto* o) { return s.getHeadsetConnectionState(o); }, true);
             },
             "", "0", "0"},
            {"setSplitScreenModeEnabled", true, VOID(setSplitScreenModeEnabled(true, 1, 2)), "", "",
             ""},
            {"setApkWindowSize", true, VOID(setApkWindowSize("0,0,1,1")), "", "", ""},
            {"notifySpHeadsetConnectionStateOneway", false,
             VOID(notifySpHeadsetConnectionStateOneway(false)), "", "", ""},
            {"setMssEnable", true,
             [](S& s) {
                 return one<int32_t>([&](auto* o) { return s.setMssEnable("x", true, o); }, kInt);
             },
             "-77", "-1", "-1"},
            {"getMssEnable", true,
             [](S& s) { return one<bool>([&](auto* o) { return s.getMssEnable("x", o); }, true); },
             "1", "0", "1"},
            {"setMssTracksGain", true,
             [](S& s) {
                 return one<int32_t>(
                         [&](auto* o) {
                             return s.setMssTracksGain("x", {0, 0, 0, 0}, o);
                         },
                         kInt);
             },
             "-77", "0", "0"},
            {"getMssTracksGain", true,
             [](S& s) {
                 int32_t result = kInt;
                 const std::string gains = vec<float>(
                         [&](auto* o) { return s.getMssTracksGain("x", o, &result); }, 5, 7);
                 return gains + " " + std::to_string(result);
             },
             "[7,7,7,7,7] -77", "[0,0,0,0,7] 0", "[0,0,0,0,7] 0"},
            {"setMssSpatialRenderMode", true,
             [](S& s) {
                 return one<int32_t>([&](auto* o) { return s.setMssSpatialRenderMode(0, o); },
                                     kInt);
             },
             "-77", "0", "0"},
            {"getMssSpatialRenderMode", true,
             [](S& s) {
                 return one<int32_t>([&](auto* o) { return s.getMssSpatialRenderMode(o); }, kInt);
             },
             "-77", "0", "8"},
            {"onMultiChnSpatializerTrackChanged", false,
             VOID(onMultiChnSpatializerTrackChanged(false, 1, "x")), "", "", ""},
            {"setSpatilizerAudioEnable", false, VOID(setSpatilizerAudioEnable(false)), "", "", ""},
            {"getDynamicProcessorInfMap", false,
             [](S& s) {
                 return one<std::string>([&](auto* o) { return s.getDynamicProcessorInfMap(o); },
                                         "keep");
             },
             "", "", ""},
            {"getAudioDetectorInfMap", false,
             [](S& s) {
                 return one<std::string>([&](auto* o) { return s.getAudioDetectorInfMap(o); },
                                         "keep");
             },
             "", "", ""},
            {"setOutputDeviceForMss", false, VOID(setOutputDeviceForMss(2)), "", "", ""},
            {"getMssParamInfoMap", false,
             [](S& s) {
                 return one<std::string>([&](auto* o) { return s.getMssParamInfoMap(o); }, "keep");
             },
             "", "", ""},
            {"setFastGameEffectOn", true,
             [](S& s) {
                 return one<int32_t>([&](auto* o) { return s.setFastGameEffectOn("x", 1, o); },
                                     kInt);
             },
             "-77", "-1", "-1"},
            {"getFastGameEffectOn", true,
             [](S& s) {
                 return one<int32_t>([&](auto* o) { return s.getFastGameEffectOn("x", o); }, kInt);
             },
             "-1", "-1", "-1"},
            {"loadPkgSwitchInFastSql", false,
             [](S& s) {
                 return one<std::string>([&](auto* o) { return s.loadPkgSwitchInFastSql(o); },
                                         "keep");
             },
             "", "", ""},
            {"syncGameListInfo", true, VOID(syncGameListInfo("{}")), "", "", ""},
    };
}

void answerEverything(int32_t, const CallbackData&, CallbackData* out) {
    out->status = 5;
    out->enable = true;
    out->mode = 6;
    out->isPlaying = true;
    out->strValue = "tracks";
    out->mssEnable = true;
    out->renderMode = 8;
}

class InterfaceWalk : public ServiceTest {
protected:
    InterfaceWalk() {
        product(true);
        // No policy: the tables are empty.
        EXPECT_EQ(0, ::unlink(mRoot.path("system_ext/etc/Meta_Audio_Policy.xml").c_str()));
        start();
        mCapture.clear();
    }

    const std::vector<Row> mRows = walk();
};

TEST_F(InterfaceWalk, HasEveryMethod) {
    EXPECT_EQ(57U, mRows.size());
    size_t checked = 0;
    for (const Row& row : mRows)
        checked += row.checked ? 1 : 0;
    EXPECT_EQ(21U, checked);
}

TEST_F(InterfaceWalk, RefusedCallerChangesNothingAndGetsItsOutputsBack) {
    const sp<FakeClient> renderer = addClient(1, answerEverything);
    mEvents.clear();
    for (const Row& row : mRows) {
        if (!row.checked) continue;
        mCapture.clear();
        const ScopedCaller stranger(kStrangerUid, 77);
        EXPECT_EQ(row.refused, row.call(*mService)) << row.method;
        // Two lines and no more: the permission service's own, and the check's.
        EXPECT_THAT(mCapture.messages(),
                    ElementsAre(StartsWith("Permission failure: "),
                                "uid 10099 , pid 77 have no permission to find halvend"))
                << row.method;
        EXPECT_TRUE(mEvents.takeLines().empty()) << row.method;
    }
}

TEST_F(InterfaceWalk, UncheckedMethodsAnswerAStranger) {
    const ScopedCaller stranger(kStrangerUid);
    for (const Row& row : mRows) {
        if (row.checked) continue;
        EXPECT_EQ(row.bare, row.call(*mService)) << row.method;
    }
    EXPECT_FALSE(mCapture.contains("have no permission"));
}

TEST_F(InterfaceWalk, SystemWithoutClientsOrPolicy) {
    for (const uid_t uid : {kSystemUid, kAudioServerUid}) {
        const ScopedCaller caller(uid);
        for (const Row& row : mRows) {
            EXPECT_EQ(row.bare, row.call(*mService)) << row.method << " as " << uid;
        }
    }
    EXPECT_FALSE(mCapture.contains("have no permission"));
}

TEST_F(InterfaceWalk, WithClients) {
    for (const int8_t id : {0, 3, 4, 5})
        addClient(id);
    addClient(1, answerEverything);
    for (const Row& row : mRows) {
        EXPECT_EQ(row.withClient, row.call(*mService)) << row.method;
    }
}

TEST_F(InterfaceWalk, ClientThatDiesInItsAnswerIsNoClient) {
    for (const Row& row : mRows) {
        const sp<FakeClient> renderer = addClient(1, answerEverything);
        renderer->failWith(android::DEAD_OBJECT);
        EXPECT_EQ(row.bare, row.call(*mService)) << row.method;
        mService->findClient(1)->binderDied(nullptr);
    }
}

}  // namespace

}  // namespace sonorel::test
