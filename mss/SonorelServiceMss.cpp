#include <cstdlib>

#include <qelto/ListServiceUtils.h>

#include "service/ServiceLog.h"
#include "service/SonorelService.h"

namespace android {

namespace {

constexpr char kMssList[] = "mss-whitelist";
constexpr size_t kListValueSize = 256;

// Bits of a package's support type in the list.
constexpr unsigned kMaySeparate = 1U << 0;
constexpr unsigned kRefusedWhenMusicOnly = 1U << 4;

constexpr uint32_t kDeviceTypeHeadsetDecides = 0;
constexpr uint32_t kLastSpeakerDeviceType = 2;  // 1 earpiece, 2 speaker

constexpr int32_t kOutputSpeaker = 0;
constexpr int32_t kOutputHeadset = 1;

// 0 for a package that is not listed: it may nothing.
unsigned readSupportType(const std::string& pkgName) {
    char value[kListValueSize] = {};
    if (ListServiceUtils::getInstance().getListValueByName(kMssList, pkgName.c_str(), value,
                                                           static_cast<int>(sizeof(value))) == 0 ||
        value[0] == '\0') {
        return 0;
    }
    // NOLINTNEXTLINE(cert-err34-c): the list's numbers are read leniently, a bad one counts as 0.
    const int supportType = std::atoi(value);
    SONOREL_LOGD("%s: supportType=%d", "setMssEnable", supportType);
    return static_cast<unsigned>(supportType);
}

}  // namespace

binder::Status SonorelService::setMssEnable(const std::string& pkgName, bool enable,
                                            int32_t* result) {
    if (!isAllowedFindHalvend()) return binder::Status::ok();
    const unsigned supportType = readSupportType(pkgName);
    const bool accepted = (supportType & kMaySeparate) != 0 &&
                          !((supportType & kRefusedWhenMusicOnly) != 0 && isMssMusicOnly());
    if (!accepted) {
        SONOREL_LOGW("%s: %s not support vocal adjust!", __func__, pkgName.c_str());
        *result = -1;
        return binder::Status::ok();
    }
    setMssEnableInt(pkgName, enable);
    *result = 0;
    Mutex::Autolock leaf(mMssLock);
    mMssPkgName = pkgName;
    mMssEnable = enable;
    return binder::Status::ok();
}

void SonorelService::setMssEnableInt(const std::string& pkgName, bool enable) {
    CallbackData in;
    in.pkgName = pkgName;
    in.mssEnable = enable;
    callClient(IHalvendClient::CLIENT_ID_META_AUDIO, IHalvendClient::CB_SET_MSS_ENABLE, in,
               nullptr);
    SONOREL_LOGD("%s --- %s[%d]", __func__, pkgName.c_str(), enable);
}

binder::Status SonorelService::getMssEnable(const std::string& pkgName, bool* enable) {
    if (!isAllowedFindHalvend()) return binder::Status::ok();
    CallbackData in;
    in.pkgName = pkgName;
    CallbackData reply;
    callClient(IHalvendClient::CLIENT_ID_META_AUDIO, IHalvendClient::CB_GET_MSS_ENABLE, in, &reply);
    SONOREL_LOGD("%s --- %s[%d]", __func__, pkgName.c_str(), reply.mssEnable);
    *enable = reply.mssEnable;
    return binder::Status::ok();
}

bool SonorelService::isMssMusicOnly() {
    if (!mNeedQueryMssMusicOnly) return mMssMusicOnly;
    CallbackData reply;
    callClient(IHalvendClient::CLIENT_ID_META_AUDIO, IHalvendClient::CB_IS_MSS_MUSIC_ONLY,
               CallbackData(), &reply);
    SONOREL_LOGD("%s --- [%d]", __func__, reply.mssEnable);
    // The answer before the mark: whoever sees the mark down sees the answer.
    mMssMusicOnly = reply.mssEnable;
    mNeedQueryMssMusicOnly = false;
    return mMssMusicOnly;
}

void SonorelService::initMss() {
    bool enable = false;
    std::string pkgName;
    std::vector<float> gains;
    {
        Mutex::Autolock leaf(mMssLock);
        enable = mMssEnable;
        pkgName = mMssPkgName;
        gains.assign(mMssTracksGain.begin(), mMssTracksGain.end());
    }
    if (enable) {
        setMssEnableInt(pkgName, true);
        setMssTracksGainInt(pkgName, gains);
    }
    initMssSoundWiden();
}

bool SonorelService::isMssCanWork() {
    const bool spatializer = mSpatializerAudioEnable;
    const int32_t output = mMssCurrentOutputDevice;
    if (!spatializer || (mIsAudioxMerge && output == kOutputSpeaker)) {
        SONOREL_LOGD("%s() mss support when [%d][%d][%d][%d]", __func__, mIsAudioxMerge,
                     mIsHeadSetConnected.load(), spatializer, output);
        return true;
    }
    SONOREL_LOGD("%s() mss not support when spatializer working [%d][%d][%d][%d]", __func__,
                 mIsAudioxMerge, mIsHeadSetConnected.load(), 1, output);
    return false;
}

bool SonorelService::isAppPlayingMultiChnSpatializer(const std::string& pkgName) {
    bool playing = false;
    {
        Mutex::Autolock leaf(mMssLock);
        for (const auto& track : mMultiChnSpatializerTracks) {
            if (track.second == pkgName) {
                playing = true;
                break;
            }
        }
    }
    if (playing) {
        SONOREL_LOGD("%s() mss not support, as pkg[%s] is playing with multi-chn spatializer",
                     __func__, pkgName.c_str());
    }
    return playing;
}

void SonorelService::notifyStateToMssApp() {
    callClient(IHalvendClient::CLIENT_ID_MSS_APP, IHalvendClient::CB_NOTIFY_MSS_STATE,
               CallbackData(), nullptr);
}

binder::Status SonorelService::onMultiChnSpatializerTrackChanged(bool added, int32_t trackId,
                                                                 const std::string& pkgName) {
    size_t size = 0;
    {
        Mutex::Autolock leaf(mMssLock);
        if (added) {
            mMultiChnSpatializerTracks[trackId] = pkgName;
        } else {
            mMultiChnSpatializerTracks.erase(trackId);
        }
        size = mMultiChnSpatializerTracks.size();
    }
    SONOREL_LOGD("%s --- %d|%d pkg name %s map size %zu", __func__, trackId, added, pkgName.c_str(),
                 size);
    return binder::Status::ok();
}

binder::Status SonorelService::setSpatilizerAudioEnable(bool enable) {
    mSpatializerAudioEnable = enable;
    return binder::Status::ok();
}

binder::Status SonorelService::setOutputDeviceForMss(int64_t deviceType) {
    const auto type = static_cast<uint32_t>(deviceType);  // the high bits say nothing here
    const bool headsetConnected = mIsHeadSetConnected;
    int32_t output = kOutputHeadset;
    if (type == kDeviceTypeHeadsetDecides) {
        output = headsetConnected ? kOutputHeadset : kOutputSpeaker;
    } else if (type <= kLastSpeakerDeviceType) {
        output = kOutputSpeaker;
    }
    mMssCurrentOutputDevice = output;
    SONOREL_LOGD("%s set mMssCurrentOutputDevice %d, deviceType %#llx, mIsHeadSetConnected %d",
                 __func__, output, static_cast<unsigned long long>(deviceType), headsetConnected);
    return binder::Status::ok();
}

}  // namespace android
