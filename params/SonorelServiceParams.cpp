#include <qelto/MetaInfoSqliteUtil.h>

#include "meta/SettingsDevices.h"
#include "service/ServiceLog.h"
#include "service/SonorelService.h"

namespace android {

namespace {

constexpr char kSpatializerEnableKey[] = "mss_get_spatializer_enable";

}  // namespace

binder::Status SonorelService::setParameters(const std::string& keyValuePairs) {
    if (!isAllowedFindHalvend()) return binder::Status::ok();
    SONOREL_LOGD("%s keyValuePairs:%s", __func__, keyValuePairs.c_str());
    return binder::Status::ok();
}

binder::Status SonorelService::getParameters(const std::string& keys, std::string* values) {
    if (!isAllowedFindHalvend()) return binder::Status::ok();
    std::string answer;
    if (keys == kSpatializerEnableKey) {
        bool inTheWay = !isMssCanWork();
        {
            Mutex::Autolock leaf(mMssLock);
            inTheWay = inTheWay || !mMultiChnSpatializerTracks.empty();
        }
        answer = inTheWay ? "true" : "false";
    }
    *values = answer;
    SONOREL_LOGD("%s ret:%s", __func__, answer.c_str());
    return binder::Status::ok();
}

void SonorelService::initAudioEffectCenter() {
    SONOREL_LOGD("%s +++", __func__);
    if (mMetaInfoSqliteUtil == nullptr) return;
    mMetaAudioOn = readStoredOn(kDeviceCurrent);
    mMetaAudioMode = readStoredMode(kDeviceCurrent);
    setMetaAudioOnToClient(mMetaAudioOn, mMetaAudioMode, IHalvendClient::CLIENT_ID_EFFECT_CENTER);
    mNeedInitEffectCenter = false;
    SONOREL_LOGD("%s ---", __func__);
}

binder::Status SonorelService::setSplitScreenModeEnabled(bool enabled, int32_t splitMode,
                                                         int32_t splitParam) {
    if (!isAllowedFindHalvend()) return binder::Status::ok();
    SONOREL_LOGD("%s: enabled = %d, splitMode = %d", __func__, enabled, splitMode);
    CallbackData in;
    in.splitScreenEnabled = enabled;
    in.splitScreenParam1 = splitMode;
    in.splitScreenParam2 = splitParam;
    callClient(IHalvendClient::CLIENT_ID_META_AUDIO, IHalvendClient::CB_SET_SPLIT_SCREEN_MODE, in,
               nullptr);
    return binder::Status::ok();
}

binder::Status SonorelService::setApkWindowSize(const std::string& screenPosMapString) {
    if (!isAllowedFindHalvend()) return binder::Status::ok();
    SONOREL_LOGD("%s: screenPosMapString = %s", __func__, screenPosMapString.c_str());
    CallbackData in;
    in.strValue2 = screenPosMapString;
    callClient(IHalvendClient::CLIENT_ID_META_AUDIO, IHalvendClient::CB_SET_APK_WINDOW_SIZE, in,
               nullptr);
    return binder::Status::ok();
}

}  // namespace android
