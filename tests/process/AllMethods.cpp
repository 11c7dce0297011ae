#include <memory>

#include "process/AllMethods.h"

#include <limits>

namespace sonorel::test {

using android::sp;
using android::binder::Status;
using qelto::halvend::IHalvendClient;
using qelto::halvend::ISonorelService;

int32_t Draw::number(int32_t low, int32_t high) {
    return std::uniform_int_distribution<int32_t>(low, high)(mEngine);
}

int32_t Draw::anyInt() {
    constexpr int32_t kEdges[] = {std::numeric_limits<int32_t>::min(), -1, 0, 14, 128,
                                  std::numeric_limits<int32_t>::max()};
    return kEdges[number(0, 5)];
}

std::vector<float> Draw::floats(size_t usual) {
    std::vector<float> values(room(usual).size());
    for (float& value : values) {
        value = chance(20) ? std::numeric_limits<float>::quiet_NaN()
                           : static_cast<float>(number(-1000, 1000)) / 100;
    }
    return values;
}

std::vector<float> Draw::room(size_t usual) {
    return std::vector<float>(chance(10) ? static_cast<size_t>(number(0, 100)) : usual);
}

std::string Draw::package() {
    return chance(3) ? text() : "com.example." + std::string(flag() ? "player" : "game");
}

std::string Draw::text() {
    if (chance(10)) return std::string(static_cast<size_t>(number(0, 4000)), 'x');
    constexpr const char* kTexts[] = {
            "",        "mss_get_spatializer_enable", "{\"com.example.game\":1}",
            "a=b;c=d", "\xc3\xa4\xe2\x82\xac",       "0,0,100,200"};
    return kTexts[number(0, 5)];
}

namespace {

using S = ISonorelService;
using C = sp<IHalvendClient>;

// A method that takes what it needs from a Draw.
#define CALL(expression)                               \
    [](S& s, Draw& d, const C& c) -> Status {          \
        (void)d, (void)c; /* not every method draws */ \
        return s.expression;                           \
    }
// The same with one output of a type.
#define CALL_OUT(type, expression)            \
    [](S& s, Draw& d, const C&) -> Status {   \
        (void)d; /* not every method draws */ \
        type out{};                           \
        return s.expression;                  \
    }
#define CALL_ROOM(size, expression)         \
    [](S& s, Draw& d, const C&) -> Status { \
        auto out = d.room(size);            \
        return s.expression;                \
    }

int8_t ownId(Draw& draw) {
    return static_cast<int8_t>(draw.number(20, 27));
}

Status getScenes(S& s, Draw& d, const C&) {
    std::vector<int32_t> out(static_cast<size_t>(d.number(0, 20)));
    return s.javaCallGetSupportSceneArray(&out);
}

Status getGains(S& s, Draw& d, const C&) {
    auto out = d.room(4);
    int32_t result = 0;
    return s.getMssTracksGain(d.package(), &out, &result);
}

std::vector<Method> makeMethods() {
    return {
            {"testSonorelService", false, CALL(testSonorelService())},
            {"getMetaInfoByPkgName", false,
             CALL_OUT(std::string, getMetaInfoByPkgName(d.package(), &out))},
            {"getMetaAudioSceMap", false, CALL_OUT(std::string, getMetaAudioSceMap(&out))},
            {"setHeadTrackerEnable", false, CALL(setHeadTrackerEnable(d.flag()))},
            {"sendHeadToStageData", false, CALL(sendHeadToStageData(d.floats(6)))},
            {"getHeadToStageData", false, CALL_ROOM(6, getHeadToStageData(&out))},
            {"registerClient", false, CALL(registerClient(c, ownId(d)))},
            {"unregisterClient", false, CALL(unregisterClient(ownId(d)))},
            {"javaCallGetMetaInfoByPkgName", false,
             CALL_OUT(std::string, javaCallGetMetaInfoByPkgName(d.package(), &out))},
            {"javaCallSetCurrentPos", false, CALL(javaCallSetCurrentPos(d.scene(), d.floats(3)))},
            {"javaCallGetCurrentPos", false, CALL_ROOM(3, javaCallGetCurrentPos(d.scene(), &out))},
            {"javaCallGetDefaultPos", false, CALL_ROOM(3, javaCallGetDefaultPos(d.scene(), &out))},
            {"javaCallIsScenePlaying", false,
             CALL_OUT(bool, javaCallIsScenePlaying(d.scene(), &out))},
            {"javaCallGetSupportSceneArray", false, getScenes},
            {"onPlayStateChange", false,
             CALL(onPlayStateChange(d.scene(), d.floats(3), d.anyInt(), d.package()))},
            {"setMetaAudioOn", false, CALL_OUT(int32_t, setMetaAudioOn(d.flag(), &out))},
            {"getMetaAudioOn", false, CALL_OUT(bool, getMetaAudioOn(&out))},
            {"setMetaAudioMode", false, CALL_OUT(int32_t, setMetaAudioMode(d.mode(), &out))},
            {"getMetaAudioMode", false, CALL_OUT(int8_t, getMetaAudioMode(&out))},
            {"setCurrentUserID", false, CALL(setCurrentUserID(d.user()))},
            {"setParameters", false, CALL(setParameters(d.text()))},
            {"getParameters", false, CALL_OUT(std::string, getParameters(d.text(), &out))},
            {"isMetaTrackPlaying", false, CALL_OUT(bool, isMetaTrackPlaying(&out))},
            {"setMetaAudioThreadEnable", false, CALL(setMetaAudioThreadEnable(d.flag()))},
            {"notitySpHeadsetConnectionState", false,
             CALL(notitySpHeadsetConnectionState(d.flag()))},
            {"setSpatializerState", false, CALL(setSpatializerState(d.number(0, 3)))},
            {"getActiveMetaList", false, CALL_OUT(std::string, getActiveMetaList(&out))},
            {"checkAndUpdatePolicy", false, CALL_OUT(bool, checkAndUpdatePolicy(&out))},
            {"registerClientOneWay", true, CALL(registerClientOneWay(c, ownId(d)))},
            {"isUnsupportDevice", false, CALL_OUT(bool, isUnsupportDevice(d.text(), &out))},
            {"setMetaAudioOnWithDev", false,
             CALL_OUT(int32_t, setMetaAudioOnWithDev(d.flag(), d.device(), &out))},
            {"getMetaAudioOnWithDev", false,
             CALL_OUT(bool, getMetaAudioOnWithDev(d.device(), &out))},
            {"setMetaAudioModeWithDev", false,
             CALL_OUT(int32_t, setMetaAudioModeWithDev(d.mode(), d.device(), &out))},
            {"getMetaAudioModeWithDev", false,
             CALL_OUT(int8_t, getMetaAudioModeWithDev(d.device(), &out))},
            {"setCurrentPosWithDev", false,
             CALL(setCurrentPosWithDev(d.scene(), d.floats(3), d.device()))},
            {"getCurrentPosWithDev", false,
             CALL_ROOM(3, getCurrentPosWithDev(d.scene(), &out, d.device()))},
            {"getDefaultPosWithDev", false,
             CALL_ROOM(3, getDefaultPosWithDev(d.scene(), &out, d.device()))},
            {"getHeadsetConnectionState", false, CALL_OUT(bool, getHeadsetConnectionState(&out))},
            {"setSplitScreenModeEnabled", false,
             CALL(setSplitScreenModeEnabled(d.flag(), d.anyInt(), d.anyInt()))},
            {"setApkWindowSize", false, CALL(setApkWindowSize(d.text()))},
            {"notifySpHeadsetConnectionStateOneway", true,
             CALL(notifySpHeadsetConnectionStateOneway(d.flag()))},
            {"setMssEnable", false, CALL_OUT(int32_t, setMssEnable(d.package(), d.flag(), &out))},
            {"getMssEnable", false, CALL_OUT(bool, getMssEnable(d.package(), &out))},
            {"setMssTracksGain", false,
             CALL_OUT(int32_t, setMssTracksGain(d.package(), d.floats(4), &out))},
            {"getMssTracksGain", false, getGains},
            {"setMssSpatialRenderMode", false,
             CALL_OUT(int32_t, setMssSpatialRenderMode(d.number(0, 3), &out))},
            {"getMssSpatialRenderMode", false, CALL_OUT(int32_t, getMssSpatialRenderMode(&out))},
            {"onMultiChnSpatializerTrackChanged", false,
             CALL(onMultiChnSpatializerTrackChanged(d.flag(), d.number(0, 9), d.package()))},
            {"setSpatilizerAudioEnable", false, CALL(setSpatilizerAudioEnable(d.flag()))},
            {"getDynamicProcessorInfMap", false,
             CALL_OUT(std::string, getDynamicProcessorInfMap(&out))},
            {"getAudioDetectorInfMap", false, CALL_OUT(std::string, getAudioDetectorInfMap(&out))},
            {"setOutputDeviceForMss", false, CALL(setOutputDeviceForMss(d.anyInt()))},
            {"getMssParamInfoMap", false, CALL_OUT(std::string, getMssParamInfoMap(&out))},
            {"setFastGameEffectOn", false,
             CALL_OUT(int32_t, setFastGameEffectOn(d.package(), d.number(-1, 3), &out))},
            {"getFastGameEffectOn", false,
             CALL_OUT(int32_t, getFastGameEffectOn(d.package(), &out))},
            {"loadPkgSwitchInFastSql", false, CALL_OUT(std::string, loadPkgSwitchInFastSql(&out))},
            {"syncGameListInfo", false, CALL(syncGameListInfo(d.text()))},
    };
}

}  // namespace

const std::vector<Method>& allMethods() {
    static const std::vector<Method> sMethods = makeMethods();
    return sMethods;
}

}  // namespace sonorel::test
