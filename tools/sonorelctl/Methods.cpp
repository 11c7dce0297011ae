#include "sonorelctl/Methods.h"

#include <array>
#include <cstdint>
#include <tuple>
#include <type_traits>
#include <utility>

#include "sonorelctl/Arguments.h"

namespace sonorel::ctl {
namespace {

using android::sp;
using android::binder::Status;
using qelto::halvend::IHalvendClient;
using qelto::halvend::ISonorelService;

// How the interface's types are written in its definition.
template <typename T>
constexpr const char* kTypeName = nullptr;
template <>
constexpr const char* kTypeName<bool> = "boolean";
template <>
constexpr const char* kTypeName<int8_t> = "byte";
template <>
constexpr const char* kTypeName<int32_t> = "int";
template <>
constexpr const char* kTypeName<int64_t> = "long";
template <>
constexpr const char* kTypeName<std::string> = "String";
template <>
constexpr const char* kTypeName<std::vector<float>> = "float[]";
template <>
constexpr const char* kTypeName<std::vector<int32_t>> = "int[]";
template <>
constexpr const char* kTypeName<sp<IHalvendClient>> = "IHalvendClient";

template <typename T>
constexpr bool kIsVector = false;
template <typename T>
constexpr bool kIsVector<std::vector<T>> = true;

// What a C++ parameter of the proxy is in the definition: a pointer to a vector is an
// out-parameter, any other pointer the return value.
template <typename Param>
using ValueOf = std::remove_cv_t<std::remove_reference_t<std::remove_pointer_t<Param>>>;
template <typename Param>
constexpr bool kIsOut = std::is_pointer_v<Param>&& kIsVector<ValueOf<Param>>;
template <typename Param>
constexpr bool kIsReturn = std::is_pointer_v<Param> && !kIsVector<ValueOf<Param>>;

// There is nothing on a command line that could answer events.
bool parseClient(const std::string& text, sp<IHalvendClient>* outValue, std::string* outError) {
    *outValue = nullptr;
    if (text == "null") return true;
    *outError = "'" + text + "' is no client: only null can be passed, use listen to register";
    return false;
}

template <typename T>
bool parseValue(const std::string& text, T* outValue, std::string* outError) {
    if constexpr (std::is_same_v<T, sp<IHalvendClient>>) {
        return parseClient(text, outValue, outError);
    } else {
        return parseArgument(text, outValue, outError);
    }
}

// The arguments of one proxy method, its return value among them.
template <typename... Params>
class Arguments {
public:
    static constexpr size_t kOuts = (size_t{0} + ... + (kIsOut<Params> ? 1 : 0));
    static constexpr size_t kReturns = (size_t{0} + ... + (kIsReturn<Params> ? 1 : 0));
    static constexpr size_t kNamed = sizeof...(Params) - kReturns;
    using Names = std::array<const char*, kNamed>;
    using Function = Status (ISonorelService::*)(Params...);

    explicit Arguments(const Names& names) : mNames(names) {}

    bool parse(const std::vector<std::string>& texts, std::optional<size_t> size,
               std::string* outError) {
        const size_t expected = size ? kNamed - kOuts : kNamed;
        if (texts.size() != expected) {
            *outError = "takes " + std::to_string(expected) + " arguments, got " +
                        std::to_string(texts.size());
            return false;
        }
        if (size && kOuts == 0) {
            *outError = "has no vector that a size could be given for";
            return false;
        }
        return parseAll(texts, size, outError, std::index_sequence_for<Params...>());
    }

    Status call(ISonorelService& service, Function function, Json* outResult) {
        return callWith(service, function, outResult, std::index_sequence_for<Params...>());
    }

private:
    template <size_t... I>
    bool parseAll([[maybe_unused]] const std::vector<std::string>& texts,
                  [[maybe_unused]] std::optional<size_t> size,
                  [[maybe_unused]] std::string* outError, std::index_sequence<I...>) {
        [[maybe_unused]] size_t next = 0;
        return (parseOne<Params>(texts, size, &next, nameOf<I>(), &std::get<I>(mValues),
                                 outError) &&
                ...);
    }

    template <typename Param>
    static bool parseOne(const std::vector<std::string>& texts, std::optional<size_t> size,
                         size_t* next, const char* name, ValueOf<Param>* outValue,
                         std::string* outError) {
        if (kIsReturn<Param>) return true;
        if constexpr (kIsOut<Param>) {
            if (size) {
                outValue->resize(*size);
                return true;
            }
        }
        if (parseValue(texts[(*next)++], outValue, outError)) return true;
        *outError = std::string(name) + ": " + *outError;
        return false;
    }

    template <size_t... I>
    Status callWith(ISonorelService& service, Function function, Json* outResult,
                    std::index_sequence<I...>) {
        Status status = (service.*function)(pass<Params>(&std::get<I>(mValues))...);
        *outResult = Json::object();
        if (!status.isOk()) return status;
        (report<Params>(nameOf<I>(), std::get<I>(mValues), outResult), ...);
        return status;
    }

    template <typename Param>
    static Param pass(ValueOf<Param>* value) {
        if constexpr (std::is_pointer_v<Param>) {
            return value;
        } else {
            return *value;
        }
    }

    template <typename Param>
    static void report(const char* name, const ValueOf<Param>& value, Json* outResult) {
        if constexpr (std::is_pointer_v<Param>) (*outResult)[name] = toJson(value);
    }

    // The return value is the last, and has no name of its own.
    template <size_t kIndex>
    const char* nameOf() const {
        if constexpr (kIndex < kNamed) {
            return mNames[kIndex];
        } else {
            return "return";
        }
    }

    const Names mNames;
    std::tuple<ValueOf<Params>...> mValues{};
};

template <typename... Params>
std::string signatureOf(const char* name, const std::vector<const char*>& names) {
    std::string parameters;
    std::string result;
    size_t next = 0;
    [[maybe_unused]] const auto add = [&](const char* type, bool isOut, bool isReturn) {
        if (isReturn) {
            result = std::string(" -> ") + type;
            return;
        }
        parameters += next == 0 ? "" : ", ";
        parameters += isOut ? "out " : "";
        parameters += std::string(type) + " " + names[next++];
    };
    (add(kTypeName<ValueOf<Params>>, kIsOut<Params>, kIsReturn<Params>), ...);
    return std::string(name) + "(" + parameters + ")" + result;
}

template <typename... Params, typename... Texts>
Method makeMethod(const char* name, Status (ISonorelService::*function)(Params...),
                  Texts... names) {
    using Args = Arguments<Params...>;
    static_assert(sizeof...(Texts) == Args::kNamed, "one name for each parameter");
    const typename Args::Names all{names...};
    const auto prepare = [function, all](const std::vector<std::string>& texts,
                                         std::optional<size_t> size,
                                         std::string* outError) -> Call {
        Args arguments(all);
        if (!arguments.parse(texts, size, outError)) return nullptr;
        return [function, arguments](ISonorelService& service, Json* outResult) mutable {
            return arguments.call(service, function, outResult);
        };
    };
    return {name, signatureOf<Params...>(name, {names...}), prepare};
}

std::vector<Method> makeMethods() {
    using I = ISonorelService;
    return {
            makeMethod("testSonorelService", &I::testSonorelService),
            makeMethod("getMetaInfoByPkgName", &I::getMetaInfoByPkgName, "pkgName"),
            makeMethod("getMetaAudioSceMap", &I::getMetaAudioSceMap),
            makeMethod("setHeadTrackerEnable", &I::setHeadTrackerEnable, "enable"),
            makeMethod("sendHeadToStageData", &I::sendHeadToStageData, "data"),
            makeMethod("getHeadToStageData", &I::getHeadToStageData, "data"),
            makeMethod("registerClient", &I::registerClient, "client", "clientId"),
            makeMethod("unregisterClient", &I::unregisterClient, "clientId"),
            makeMethod("javaCallGetMetaInfoByPkgName", &I::javaCallGetMetaInfoByPkgName, "pkgName"),
            makeMethod("javaCallSetCurrentPos", &I::javaCallSetCurrentPos, "scene", "pos"),
            makeMethod("javaCallGetCurrentPos", &I::javaCallGetCurrentPos, "scene", "pos"),
            makeMethod("javaCallGetDefaultPos", &I::javaCallGetDefaultPos, "scene", "pos"),
            makeMethod("javaCallIsScenePlaying", &I::javaCallIsScenePlaying, "scene"),
            makeMethod("javaCallGetSupportSceneArray", &I::javaCallGetSupportSceneArray, "scenes"),
            makeMethod("onPlayStateChange", &I::onPlayStateChange, "scene", "pos", "playState",
                       "name"),
            makeMethod("setMetaAudioOn", &I::setMetaAudioOn, "on"),
            makeMethod("getMetaAudioOn", &I::getMetaAudioOn),
            makeMethod("setMetaAudioMode", &I::setMetaAudioMode, "mode"),
            makeMethod("getMetaAudioMode", &I::getMetaAudioMode),
            makeMethod("setCurrentUserID", &I::setCurrentUserID, "userId"),
            makeMethod("setParameters", &I::setParameters, "keyValuePairs"),
            makeMethod("getParameters", &I::getParameters, "keys"),
            makeMethod("isMetaTrackPlaying", &I::isMetaTrackPlaying),
            makeMethod("setMetaAudioThreadEnable", &I::setMetaAudioThreadEnable, "enable"),
            makeMethod("notitySpHeadsetConnectionState", &I::notitySpHeadsetConnectionState,
                       "isConnected"),
            makeMethod("setSpatializerState", &I::setSpatializerState, "mode"),
            makeMethod("getActiveMetaList", &I::getActiveMetaList),
            makeMethod("checkAndUpdatePolicy", &I::checkAndUpdatePolicy),
            makeMethod("registerClientOneWay", &I::registerClientOneWay, "client", "clientId"),
            makeMethod("isUnsupportDevice", &I::isUnsupportDevice, "device"),
            makeMethod("setMetaAudioOnWithDev", &I::setMetaAudioOnWithDev, "on", "device"),
            makeMethod("getMetaAudioOnWithDev", &I::getMetaAudioOnWithDev, "device"),
            makeMethod("setMetaAudioModeWithDev", &I::setMetaAudioModeWithDev, "mode", "device"),
            makeMethod("getMetaAudioModeWithDev", &I::getMetaAudioModeWithDev, "device"),
            makeMethod("setCurrentPosWithDev", &I::setCurrentPosWithDev, "scene", "pos", "device"),
            makeMethod("getCurrentPosWithDev", &I::getCurrentPosWithDev, "scene", "pos", "device"),
            makeMethod("getDefaultPosWithDev", &I::getDefaultPosWithDev, "scene", "pos", "device"),
            makeMethod("getHeadsetConnectionState", &I::getHeadsetConnectionState),
            makeMethod("setSplitScreenModeEnabled", &I::setSplitScreenModeEnabled, "enabled",
                       "splitMode", "splitParam"),
            makeMethod("setApkWindowSize", &I::setApkWindowSize, "screenPosMapString"),
            makeMethod("notifySpHeadsetConnectionStateOneway",
                       &I::notifySpHeadsetConnectionStateOneway, "isConnected"),
            makeMethod("setMssEnable", &I::setMssEnable, "pkgName", "enable"),
            makeMethod("getMssEnable", &I::getMssEnable, "pkgName"),
            makeMethod("setMssTracksGain", &I::setMssTracksGain, "pkgName", "gains"),
            makeMethod("getMssTracksGain", &I::getMssTracksGain, "pkgName", "gains"),
            makeMethod("setMssSpatialRenderMode", &I::setMssSpatialRenderMode, "mode"),
            makeMethod("getMssSpatialRenderMode", &I::getMssSpatialRenderMode),
            makeMethod("onMultiChnSpatializerTrackChanged", &I::onMultiChnSpatializerTrackChanged,
                       "added", "trackId", "pkgName"),
            makeMethod("setSpatilizerAudioEnable", &I::setSpatilizerAudioEnable, "enable"),
            makeMethod("getDynamicProcessorInfMap", &I::getDynamicProcessorInfMap),
            makeMethod("getAudioDetectorInfMap", &I::getAudioDetectorInfMap),
            makeMethod("setOutputDeviceForMss", &I::setOutputDeviceForMss, "deviceType"),
            makeMethod("getMssParamInfoMap", &I::getMssParamInfoMap),
            makeMethod("setFastGameEffectOn", &I::setFastGameEffectOn, "pkgName", "value"),
            makeMethod("getFastGameEffectOn", &I::getFastGameEffectOn, "pkgName"),
            makeMethod("loadPkgSwitchInFastSql", &I::loadPkgSwitchInFastSql),
            makeMethod("syncGameListInfo", &I::syncGameListInfo, "moduleInfo"),
    };
}

}  // namespace

const std::vector<Method>& methods() {
    static const std::vector<Method> kMethods = makeMethods();
    return kMethods;
}

const Method* findMethod(const std::string& name) {
    for (const Method& method : methods()) {
        if (name == method.name) return &method;
    }
    return nullptr;
}

}  // namespace sonorel::ctl
