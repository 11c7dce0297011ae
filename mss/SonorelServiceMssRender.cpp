#include <algorithm>

#include <qelto/MssDatabase.h>

#include "service/ServiceLog.h"
#include "service/SonorelService.h"

namespace android {

namespace {

constexpr size_t kTrackCount = 4;

}  // namespace

binder::Status SonorelService::setMssTracksGain(const std::string& pkgName,
                                                const std::vector<float>& gains, int32_t* result) {
    if (!isAllowedFindHalvend() || gains.size() < kTrackCount) return binder::Status::ok();
    SONOREL_LOGD("%s +++", __func__);
    {
        Mutex::Autolock leaf(mMssLock);
        std::copy_n(gains.begin(), kTrackCount, mMssTracksGain.begin());
    }
    setMssTracksGainInt(pkgName, gains);
    *result = 0;
    return binder::Status::ok();
}

void SonorelService::setMssTracksGainInt(const std::string& pkgName,
                                         const std::vector<float>& gains) {
    CallbackData in;
    in.pkgName = pkgName;
    in.gains = gains;
    callClient(IHalvendClient::CLIENT_ID_META_AUDIO, IHalvendClient::CB_SET_MSS_TRACKS_GAIN, in,
               nullptr);
    SONOREL_LOGD("%s --- %f|%f pkg[%s]", __func__, static_cast<double>(gains[0]),
                 static_cast<double>(gains[kTrackCount - 1]), pkgName.c_str());
}

binder::Status SonorelService::getMssTracksGain(const std::string&, std::vector<float>* gains,
                                                int32_t* result) {
    if (!isAllowedFindHalvend() || gains->size() < kTrackCount) return binder::Status::ok();
    SONOREL_LOGD("%s +++", __func__);
    *result = 0;
    Mutex::Autolock leaf(mMssLock);
    std::copy(mMssTracksGain.begin(), mMssTracksGain.end(), gains->begin());
    return binder::Status::ok();
}

binder::Status SonorelService::setMssSpatialRenderMode(int32_t mode, int32_t* result) {
    if (!isAllowedFindHalvend()) return binder::Status::ok();
    SONOREL_LOGD("%s +++", __func__);
    setMssSpatialRenderModeInt(mode);
    *result = 0;
    mMssSpatialRenderMode = mode;
    if (mMssDatabase != nullptr) {
        mMssDatabase->setSoundWidenMode(mode);
    }
    return binder::Status::ok();
}

void SonorelService::setMssSpatialRenderModeInt(int32_t mode) {
    CallbackData in;
    in.renderMode = mode;
    callClient(IHalvendClient::CLIENT_ID_META_AUDIO, IHalvendClient::CB_SET_MSS_RENDER_MODE, in,
               nullptr);
    SONOREL_LOGD("%s --- %d", __func__, mode);
}

binder::Status SonorelService::getMssSpatialRenderMode(int32_t* mode) {
    if (!isAllowedFindHalvend()) return binder::Status::ok();
    if (mMssDatabase != nullptr) {
        *mode = mMssDatabase->getSoundWidenMode();
        return binder::Status::ok();
    }
    CallbackData reply;
    callClient(IHalvendClient::CLIENT_ID_META_AUDIO, IHalvendClient::CB_GET_MSS_RENDER_MODE,
               CallbackData(), &reply);
    SONOREL_LOGD("%s --- %d", __func__, reply.renderMode);
    *mode = reply.renderMode;
    return binder::Status::ok();
}

void SonorelService::initMssSoundWiden() {
    if (mMssDatabase != nullptr) {
        mMssSpatialRenderMode = mMssDatabase->getSoundWidenMode();
    }
    setMssSpatialRenderModeInt(mMssSpatialRenderMode);
}

}  // namespace android
