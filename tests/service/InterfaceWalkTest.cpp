// One walk over all 57 methods: as a caller who is refused, as the system with no client and no
// policy, with clients, and with a client that dies in the middle.

#include <gmock/gmock.h>
#include <unistd.h>

#include <optional>
#include <sstream>
#include <tuple>
#include <type_traits>
#include <utility>

#include "service/ServiceHarness.h"
#include "support/InterfaceDefinition.h"

namespace sonorel::test {

namespace {

using ::testing::ElementsAre;
using ::testing::StartsWith;

using android::binder::Status;
using Floats = std::vector<float>;
using Ints = std::vector<int32_t>;

// Where a return value starts from: a method may leave it alone.
template <typename T>
T untouched() {
    if constexpr (std::is_same_v<T, std::string>) {
        return "keep";
    } else if constexpr (std::is_same_v<T, bool>) {
        return true;
    } else {
        return -77;
    }
}

template <typename T>
void show(std::ostream& out, const T& value) {
    if constexpr (sizeof(T) == 1) {
        out << static_cast<int>(value);
    } else {
        out << value;
    }
}
template <typename T>
void show(std::ostream& out, const std::vector<T>& values) {
    const char* before = "[";
    for (const T& value : values)
        out << std::exchange(before, ",") << value;
    out << "]";
}

// A method with fixed arguments, and its outputs in words, one behind the other.
struct Row {
    const char* name;
    std::function<std::string(SonorelService&)> call;
    std::string noClient;    // for the system on a product with loudspeaker
    std::string withClient;  // with a renderer that answers status 5 and fills every field
    std::optional<std::string> refusal;  // of a method with the caller check, for a refused caller

    Row gives(const std::string& bare) const { return gives(bare, bare); }
    Row gives(const std::string& bare, const std::string& asked) const {
        return {name, call, bare, asked, refusal};
    }
    Row refuses(const std::string& outputs = "") const {
        return {name, call, noClient, withClient, outputs};
    }
};

template <typename Param, typename T>
decltype(auto) as(T& value) {
    if constexpr (std::is_pointer_v<Param>) {
        return &value;
    } else {
        return (value);
    }
}

template <typename Param, typename T>
void showOutput(std::ostream& out, const T& value) {
    if constexpr (std::is_pointer_v<Param>) show(out, value);
}

template <typename Param>
using Value = std::decay_t<std::remove_pointer_t<Param>>;

// `args` are those of the definition; a vector that the method fills is one of them.
template <typename... Params, typename... Args>
Row row(const char* name, Status (SonorelService::*method)(Params...), Args... args) {
    using Values = std::tuple<Value<Params>...>;
    constexpr bool kReturns = sizeof...(Params) > sizeof...(Args);
    const auto prepare = [args...]() -> Values {
        if constexpr (kReturns) {
            using Return = std::tuple_element_t<sizeof...(Args), Values>;
            return std::tuple_cat(std::make_tuple(args...), std::make_tuple(untouched<Return>()));
        } else {
            return std::make_tuple(args...);
        }
    };
    return {name,
            [=](SonorelService& service) {
                Values values = prepare();
                std::ostringstream outputs;
                std::apply(
                        [&](auto&... value) {
                            EXPECT_TRUE((service.*method)(as<Params>(value)...).isOk()) << name;
                            (showOutput<Params>(outputs, value), ...);
                        },
                        values);
                return outputs.str();
            },
            "", "", std::nullopt};
}

#define M(method) #method, &SonorelService::method

std::vector<Row> walk() {
    const Floats xyz = {0, 0, 0};
    const Floats room(3, 7);
    const std::string scenes = "[0,1,2,3,4,5,6,7,8,9,10,11,-1,13,-1,-1]";
    return {
            row(M(testSonorelService)),
            row(M(getMetaInfoByPkgName), "x").gives("null"),
            row(M(getMetaAudioSceMap)),
            row(M(setHeadTrackerEnable), true).refuses(),
            row(M(sendHeadToStageData), Floats{1, 2, 3, 4, 5, 6}).refuses(),
            row(M(getHeadToStageData), Floats(2, 7)).gives("[7,7]"),
            row(M(registerClient), nullptr, 9),
            row(M(unregisterClient), 9),
            row(M(javaCallGetMetaInfoByPkgName), "x").gives("null"),
            row(M(javaCallSetCurrentPos), 2, xyz).refuses(),
            row(M(javaCallGetCurrentPos), 2, room).gives("[0,0,0]"),
            row(M(javaCallGetDefaultPos), 2, room).gives("[7,7,7]"),
            row(M(javaCallIsScenePlaying), 1).gives("0", "1"),
            row(M(javaCallGetSupportSceneArray), Ints(16, 7)).gives(scenes),
            row(M(onPlayStateChange), 1, xyz, 2, "a"),
            row(M(setMetaAudioOn), true).gives("-1", "5").refuses("-77"),
            row(M(getMetaAudioOn)).gives("0", "1"),
            row(M(setMetaAudioMode), 1).gives("-1", "5").refuses("-77"),
            row(M(getMetaAudioMode)).gives("0", "6"),
            row(M(setCurrentUserID), 0).refuses(),
            row(M(setParameters), "a=b").refuses(),
            row(M(getParameters), "mss_get_spatializer_enable").gives("false").refuses("keep"),
            row(M(isMetaTrackPlaying)).gives("0", "1"),
            row(M(setMetaAudioThreadEnable), true).refuses(),
            row(M(notitySpHeadsetConnectionState), false),
            row(M(setSpatializerState), 0).refuses(),
            row(M(getActiveMetaList)).gives("", "tracks"),
            row(M(checkAndUpdatePolicy)).gives("0"),
            row(M(registerClientOneWay), nullptr, 9),
            row(M(isUnsupportDevice), "x").gives("0"),
            row(M(setMetaAudioOnWithDev), true, 0).gives("-1", "5"),
            row(M(getMetaAudioOnWithDev), 0).gives("0", "1"),
            row(M(setMetaAudioModeWithDev), 1, 1).gives("-77"),
            row(M(getMetaAudioModeWithDev), 0).gives("0", "6"),
            row(M(setCurrentPosWithDev), 2, xyz, 0),
            row(M(getCurrentPosWithDev), 2, room, 1).gives("[0,0,0]"),
            row(M(getDefaultPosWithDev), 2, room, 0).gives("[7,7,7]"),
            row(M(getHeadsetConnectionState)).gives("0"),
            row(M(setSplitScreenModeEnabled), true, 1, 2).refuses(),
            row(M(setApkWindowSize), "0,0,1,1").refuses(),
            row(M(notifySpHeadsetConnectionStateOneway), false),
            row(M(setMssEnable), "x", true).gives("-1").refuses("-77"),
            row(M(getMssEnable), "x").gives("0", "1").refuses("1"),
            row(M(setMssTracksGain), "x", Floats(4, 0)).gives("0").refuses("-77"),
            row(M(getMssTracksGain), "x", Floats(5, 7))
                    .gives("[0,0,0,0,7]0")
                    .refuses("[7,7,7,7,7]-77"),
            row(M(setMssSpatialRenderMode), 0).gives("0").refuses("-77"),
            row(M(getMssSpatialRenderMode)).gives("0", "8").refuses("-77"),
            row(M(onMultiChnSpatializerTrackChanged), false, 1, "x"),
            row(M(setSpatilizerAudioEnable), false),
            row(M(getDynamicProcessorInfMap)),
            row(M(getAudioDetectorInfMap)),
            row(M(setOutputDeviceForMss), 2),
            row(M(getMssParamInfoMap)),
            row(M(setFastGameEffectOn), "x", 1).gives("-1").refuses("-77"),
            row(M(getFastGameEffectOn), "x").gives("-1").refuses("-1"),
            row(M(loadPkgSwitchInFastSql)),
            row(M(syncGameListInfo), "{}").refuses(),
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
    std::vector<std::string> names;
    size_t checked = 0;
    for (const Row& row : mRows) {
        names.emplace_back(row.name);
        checked += row.refusal ? 1 : 0;
    }
    EXPECT_EQ(definedMethods(), names);
    EXPECT_EQ(21U, checked);
}

TEST_F(InterfaceWalk, RefusedCallerChangesNothingAndGetsItsOutputsBack) {
    const sp<FakeClient> renderer = addClient(1, answerEverything);
    mEvents.clear();
    for (const Row& row : mRows) {
        if (!row.refusal) continue;
        mCapture.clear();
        const ScopedCaller stranger(kStrangerUid, 77);
        EXPECT_EQ(*row.refusal, row.call(*mService)) << row.name;
        // Two lines and no more: the permission service's own, and the check's.
        EXPECT_THAT(mCapture.messages(),
                    ElementsAre(StartsWith("Permission failure: "),
                                "uid 10099 , pid 77 have no permission to find halvend"))
                << row.name;
        EXPECT_TRUE(mEvents.takeLines().empty()) << row.name;
    }
}

TEST_F(InterfaceWalk, UncheckedMethodsAnswerAStranger) {
    const ScopedCaller stranger(kStrangerUid);
    for (const Row& row : mRows) {
        if (row.refusal) continue;
        EXPECT_EQ(row.noClient, row.call(*mService)) << row.name;
    }
    EXPECT_FALSE(mCapture.contains("have no permission"));
}

TEST_F(InterfaceWalk, SystemWithoutClientsOrPolicy) {
    for (const uid_t uid : {kSystemUid, kAudioServerUid}) {
        const ScopedCaller caller(uid);
        for (const Row& row : mRows) {
            EXPECT_EQ(row.noClient, row.call(*mService)) << row.name << " as " << uid;
        }
    }
    EXPECT_FALSE(mCapture.contains("have no permission"));
}

TEST_F(InterfaceWalk, WithClients) {
    for (const int8_t id : {0, 3, 4, 5})
        addClient(id);
    addClient(1, answerEverything);
    for (const Row& row : mRows) {
        EXPECT_EQ(row.withClient, row.call(*mService)) << row.name;
    }
}

TEST_F(InterfaceWalk, ClientThatDiesInItsAnswerIsNoClient) {
    for (const Row& row : mRows) {
        const sp<FakeClient> renderer = addClient(1, answerEverything);
        renderer->failWith(android::DEAD_OBJECT);
        EXPECT_EQ(row.noClient, row.call(*mService)) << row.name;
        mService->findClient(1)->binderDied(nullptr);
    }
}

}  // namespace

}  // namespace sonorel::test
