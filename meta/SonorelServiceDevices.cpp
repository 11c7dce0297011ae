#include <chrono>

#include <media/stagefright/foundation/ALooper.h>
#include <qelto/FgeDatabase.h>
#include <qelto/MetaInfoSqliteUtil.h>
#include <qelto/MssDatabase.h>

#include "game/GameFlags.h"
#include "meta/SettingsDevices.h"
#include "service/ServiceLog.h"
#include "service/SonorelService.h"
#include "service/SpHandler.h"
#include "service/StoreBarrier.h"

namespace android {

binder::Status SonorelService::setCurrentUserID(int32_t userId) {
    if (!isAllowedFindHalvend()) return binder::Status::ok();
    SONOREL_LOGD("%s +++", __func__);
    Mutex::Autolock lock(mUserLock);
    // The three stores compare against the same old user: only the settings store's switch, last,
    // makes the new one current.
    const bool changed = userId != mCurrentUserId;
    if (changed) {
        awaitStoreWrites();  // what was set for the old user is stored for the old user
    }
    if (changed && mMssDatabase != nullptr) {
        mMssDatabase->setCurrentUserID(userId);
        initMssSoundWiden();
    }
    if (changed && gSupportFastGameEffect && mFgeDatabase != nullptr) {
        switchFastGameEffectUser(userId);
    }
    if (changed && mMetaInfoSqliteUtil != nullptr) {
        switchSettingsUser(userId);
    }
    return binder::Status::ok();
}

void SonorelService::switchSettingsUser(int32_t userId) {
    mCurrentUserId = userId;
    const meta_devices_t device = mMetaInfoSqliteUtil->getCurrentDevice();
    if (mSupportSpeaker && (device == kDeviceSpeaker || device == kDeviceHeadset)) {
        mMetaInfoSqliteUtil->setCurrentDevice(device == kDeviceSpeaker ? kDeviceHeadset
                                                                       : kDeviceSpeaker);
    }
    mMetaInfoSqliteUtil->setCurrentUserID(userId);
    initCustomDefaultSceneHomePos();
    if (mSupportSpeaker) {
        mMetaInfoSqliteUtil->setCurrentDevice(device);
        initCustomDefaultSceneHomePos();
    }
    initQeltoMetaAudio(false);
}

void SonorelService::initQeltoMetaAudio(bool reload) {
    SONOREL_LOGD("%s +++", __func__);
    if (mMetaInfoSqliteUtil == nullptr) return;
    if (!reload && !isMetaAudioCanWork()) return;
    if (reload && mInited) {
        (void)spNotifyLoadXmlAndSqlite();  // the push goes on whatever the renderer says to it
    }
    const bool on = readStoredOn(kDeviceCurrent);
    mMetaAudioOn = on;
    (void)setMetaAudioOnInt(on);  // a push has no caller to give the renderer's status to
    const int8_t mode = readStoredMode(kDeviceCurrent);
    mMetaAudioMode = mode;
    (void)setMetaAudioModeInt(mode);
    initCustomSceneHomePos();
    setSpMode2Meta(mMode);
    SONOREL_LOGD("%s ---", __func__);
}

int SonorelService::getDbDeviceType(bool headset) const {
    if (headset) return kDeviceHeadset;
    return mSupportSpeaker ? kDeviceSpeaker : kDeviceHeadset;
}

bool SonorelService::justChangeDataBase(int8_t device) const {
    if (device == kDeviceNone) return false;
    return mSupportSpeaker && device != mCurrentDevice;
}

bool SonorelService::isMetaAudioCanWork() const {
    return mSupportSpeaker || mIsHeadSetConnected;
}

void SonorelService::awaitStoreWrites() {
    if (mLooper != nullptr) {
        (void)StoreBarrier::await(mLooper, StoreBarrier::kForever);
    }
}

int SonorelService::finishStoreWrites(int timeoutMs) {
    if (mLooper == nullptr) return 0;
    (void)StoreBarrier::await(mLooper, std::chrono::milliseconds(timeoutMs));
    const std::vector<SettingRow> rows = mSpHandler->waitingRows();
    for (const SettingRow& row : rows) {
        SONOREL_LOGE("%s: not stored in %d ms: %s", __func__, timeoutMs, row.text().c_str());
    }
    return static_cast<int>(rows.size());
}

void SonorelService::storeNow(const SettingRow& row, const std::function<void()>& write) {
    if (mSpHandler != nullptr) {
        mSpHandler->writeNow(row, write);
    } else {
        write();
    }
}

int32_t SonorelService::rowDevice(int8_t device) const {
    if (device != kDeviceNone && device != kDeviceCurrent) return device;
    // As the store has it, without waiting for the store.
    return mSupportSpeaker ? mCurrentDevice.load() : int32_t{kDeviceHeadset};
}

bool SonorelService::canDeferStoreWrites() const {
    return mMetaInfoSqliteUtil != nullptr && mSpHandler != nullptr;
}

}  // namespace android
