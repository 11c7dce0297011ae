#include <qelto/MetaInfoSqliteUtil.h>

#include "meta/SettingsDevices.h"
#include "service/ServiceLog.h"
#include "service/SonorelService.h"
#include "service/SpHandler.h"

namespace android {

binder::Status SonorelService::setMetaAudioOn(bool on, int32_t* status) {
    if (!isAllowedFindHalvend()) return binder::Status::ok();
    SONOREL_LOGD("%s +++", __func__);
    if (isMetaAudioCanWork()) {
        *status = setMetaAudioOnInt(on);
    }
    if (mMetaInfoSqliteUtil != nullptr) {
        storeNow(SettingRow::on(rowDevice(kDeviceCurrent)),
                 [&] { mMetaInfoSqliteUtil->setMetaAudioOn(on, kDeviceCurrent); });
    }
    mMetaAudioOn = on;
    return binder::Status::ok();
}

binder::Status SonorelService::setMetaAudioMode(int8_t mode, int32_t* status) {
    if (!isAllowedFindHalvend()) return binder::Status::ok();
    SONOREL_LOGD("%s +++", __func__);
    if (isMetaAudioCanWork()) {
        *status = setMetaAudioModeInt(mode);
    }
    if (mMetaInfoSqliteUtil != nullptr) {
        storeNow(SettingRow::mode(rowDevice(kDeviceCurrent)),
                 [&] { mMetaInfoSqliteUtil->updateMetaAudioMode(mode, kDeviceCurrent); });
    }
    // mMetaAudioMode follows in setMetaAudioModeInt and in reloads only.
    return binder::Status::ok();
}

int SonorelService::setMetaAudioOnInt(bool on) {
    SONOREL_LOGD("%s +++ on:%d", __func__, on);
    CallbackData in;
    in.enable = on;
    CallbackData reply;
    callClient(IHalvendClient::CLIENT_ID_META_AUDIO, IHalvendClient::CB_SET_META_AUDIO_ON, in,
               &reply);
    if (mSupportSpeaker) {
        setMetaAudioOnToClient(on, mMetaAudioMode, IHalvendClient::CLIENT_ID_EFFECT_CENTER);
    }
    SONOREL_LOGD("%s --- status:%d", __func__, reply.status);
    return reply.status;
}

int SonorelService::setMetaAudioModeInt(int8_t mode) {
    SONOREL_LOGD("%s +++ mode:%d", __func__, mode);
    CallbackData in;
    in.mode = mode;
    CallbackData reply;
    callClient(IHalvendClient::CLIENT_ID_META_AUDIO, IHalvendClient::CB_SET_META_AUDIO_MODE, in,
               &reply);
    if (mSupportSpeaker) {
        mMetaAudioMode = mode;
        setMetaAudioOnToClient(mMetaAudioOn, mode, IHalvendClient::CLIENT_ID_EFFECT_CENTER);
    }
    SONOREL_LOGD("%s --- status:%d", __func__, reply.status);
    return reply.status;
}

void SonorelService::setMetaAudioOnToClient(bool on, int8_t mode, int8_t clientId) {
    SONOREL_LOGD("%s +++ on:%d,mode:%d,clientId:%d", __func__, on, mode, clientId);
    CallbackData in;
    in.enable = on;
    in.mode = mode;
    callClient(clientId, IHalvendClient::CB_META_AUDIO_ON_TO_CLIENT, in, nullptr);
    SONOREL_LOGD("%s ---", __func__);
}

binder::Status SonorelService::getMetaAudioOn(bool* on) {
    if (isMetaAudioCanWork()) {
        *on = askMetaAudioOn(__func__);
    } else if (mMetaInfoSqliteUtil != nullptr) {
        *on = readStoredOn(kDeviceCurrent);
    }
    return binder::Status::ok();
}

binder::Status SonorelService::getMetaAudioMode(int8_t* mode) {
    if (isMetaAudioCanWork()) {
        *mode = askMetaAudioMode(__func__);
    } else if (mMetaInfoSqliteUtil != nullptr) {
        *mode = readStoredMode(kDeviceCurrent);
    }
    return binder::Status::ok();
}

binder::Status SonorelService::getMetaAudioOnWithDev(int8_t device, bool* on) {
    if (isMetaAudioCanWork() && !justChangeDataBase(device)) {
        *on = askMetaAudioOn(__func__);
    } else if (mMetaInfoSqliteUtil != nullptr) {
        *on = readStoredOn(device);
    }
    return binder::Status::ok();
}

binder::Status SonorelService::getMetaAudioModeWithDev(int8_t device, int8_t* mode) {
    if (isMetaAudioCanWork() && !justChangeDataBase(device)) {
        *mode = askMetaAudioMode(__func__);
    } else if (mMetaInfoSqliteUtil != nullptr) {
        *mode = readStoredMode(device);
    }
    return binder::Status::ok();
}

bool SonorelService::readStoredOn(int8_t device) const {
    if (mSpHandler != nullptr) {
        if (const auto waiting = mSpHandler->waitingOn(rowDevice(device))) return *waiting;
    }
    return mMetaInfoSqliteUtil->getMetaAudioOn(static_cast<meta_devices_t>(device));
}

int8_t SonorelService::readStoredMode(int8_t device) const {
    if (mSpHandler != nullptr) {
        if (const auto waiting = mSpHandler->waitingMode(rowDevice(device))) return *waiting;
    }
    return mMetaInfoSqliteUtil->getMetaAudioMode(static_cast<meta_devices_t>(device));
}

bool SonorelService::askMetaAudioOn(const char* method) {
    CallbackData reply;
    callClient(IHalvendClient::CLIENT_ID_META_AUDIO, IHalvendClient::CB_GET_META_AUDIO_ON,
               CallbackData(), &reply);
    SONOREL_LOGD("%s metaAudioEnable:%d", method, reply.enable);
    return reply.enable;
}

int8_t SonorelService::askMetaAudioMode(const char* method) {
    CallbackData reply;
    callClient(IHalvendClient::CLIENT_ID_META_AUDIO, IHalvendClient::CB_GET_META_AUDIO_MODE,
               CallbackData(), &reply);
    SONOREL_LOGD("%s --- metaAudioMode:%d", method, reply.mode);
    return reply.mode;
}

binder::Status SonorelService::setMetaAudioOnWithDev(bool on, int8_t device, int32_t* status) {
    SONOREL_LOGD("%s +++", __func__);
    if (isMetaAudioCanWork() && !justChangeDataBase(device)) {
        *status = setMetaAudioOnInt(on);
    }
    if (canDeferStoreWrites()) {
        mSpHandler->postMetaOn(SettingRow::on(rowDevice(device)), on, device);
    }
    // Asked again: the headset may have come or gone while the renderer thought.
    if (!justChangeDataBase(device)) {
        mMetaAudioOn = on;
    }
    return binder::Status::ok();
}

binder::Status SonorelService::setMetaAudioModeWithDev(int8_t mode, int8_t device,
                                                       int32_t* status) {
    SONOREL_LOGD("%s +++", __func__);
    if (isMetaAudioCanWork() && !justChangeDataBase(device)) {
        *status = setMetaAudioModeInt(mode);
    }
    if (canDeferStoreWrites()) {
        mSpHandler->postMetaMode(SettingRow::mode(rowDevice(device)), mode, device);
    }
    return binder::Status::ok();
}

}  // namespace android
