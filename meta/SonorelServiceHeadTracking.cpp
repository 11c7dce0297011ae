#include <qelto/MetaInfoSqliteUtil.h>

#include "meta/SettingsDevices.h"
#include "service/ServiceLog.h"
#include "service/SonorelService.h"

namespace android {

namespace {

constexpr size_t kHeadToStageSize = 6;  // rx, ry, rz, vx, vy, vz

}  // namespace

binder::Status SonorelService::setHeadTrackerEnable(bool enable) {
    if (!isAllowedFindHalvend()) return binder::Status::ok();
    SONOREL_LOGD("%s: %d", __func__, enable);
    mHeadtrackOn = enable;
    if (!enable) {
        (void)stopMetaAudioThread();  // always 0
    }
    return binder::Status::ok();
}

binder::Status SonorelService::sendHeadToStageData(const std::vector<float>& data) {
    if (!isAllowedFindHalvend() || !mHeadtrackOn) return binder::Status::ok();
    if (data.size() < kHeadToStageSize) return binder::Status::ok();
    SONOREL_LOGD("%s, rx:%f, ry:%f, rz:%f, vx:%f, vy:%f, vz:%f", __func__,
                 static_cast<double>(data[0]), static_cast<double>(data[1]),
                 static_cast<double>(data[2]), static_cast<double>(data[3]),
                 static_cast<double>(data[4]), static_cast<double>(data[5]));
    setHTData2Audio(data);
    return binder::Status::ok();
}

void SonorelService::setHTData2Audio(const std::vector<float>& data) {
    SONOREL_LOGD("%s +++", __func__);
    if (data.size() < kHeadToStageSize) return;
    CallbackData in;
    in.data = data;
    callClient(IHalvendClient::CLIENT_ID_META_AUDIO, IHalvendClient::CB_HEAD_TO_STAGE_DATA,
               std::move(in), nullptr);
    SONOREL_LOGD("%s ---", __func__);
}

binder::Status SonorelService::getHeadToStageData(std::vector<float>* data) {
    // The service keeps no head-to-stage data to hand back.
    SONOREL_LOGD("getHeadToStageData() headToStage size:%zu", data->size());
    return binder::Status::ok();
}

binder::Status SonorelService::notitySpHeadsetConnectionState(bool isConnected) {
    Mutex::Autolock lock(mHeadsetLock);
    const bool wasConnected = mIsHeadSetConnected;
    SONOREL_LOGD("%s mIsHeadSetConnected %d isConnected %d +++", __func__, wasConnected,
                 isConnected);
    mMssCurrentOutputDevice = isConnected ? 1 : 0;
    if (isConnected == wasConnected) return binder::Status::ok();

    if (mSupportSpeaker && mMetaInfoSqliteUtil != nullptr) {
        awaitStoreWrites();  // what was set for the old device is stored for the old device
    }
    const meta_devices_t device = isConnected ? kDeviceHeadset : kDeviceSpeaker;
    mCurrentDevice = device;
    if (mSupportSpeaker) {
        if (mMetaInfoSqliteUtil != nullptr) {
            mIsHeadSetConnected = isConnected;
            mMetaInfoSqliteUtil->setCurrentDevice(device);
            ++mSettingsSwitches;
            initCustomDefaultSceneHomePos();
            initQeltoMetaAudio(false);
        }
    } else if (isConnected) {
        mIsHeadSetConnected = isConnected;
        initQeltoMetaAudio(false);
    }
    mIsHeadSetConnected = isConnected;
    SONOREL_LOGD("%s mIsHeadSetConnected %d ---", __func__, isConnected);
    return binder::Status::ok();
}

binder::Status SonorelService::notifySpHeadsetConnectionStateOneway(bool isConnected) {
    return notitySpHeadsetConnectionState(isConnected);
}

binder::Status SonorelService::getHeadsetConnectionState(bool* connected) {
    *connected = mIsHeadSetConnected;
    return binder::Status::ok();
}

}  // namespace android
