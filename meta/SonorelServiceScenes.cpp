#include <algorithm>

#include <qelto/HomePosSeed.h>
#include <qelto/MetaInfoSqliteUtil.h>

#include "meta/SettingsDevices.h"
#include "policy/PolicyTables.h"
#include "service/ServiceLog.h"
#include "service/SonorelService.h"
#include "service/SpHandler.h"

namespace android {

namespace {

constexpr int32_t kFirstScene = 1;
constexpr int32_t kLastScene = 13;
constexpr size_t kPosSize = 3;  // x, y, z

const MetaSceInfForParseXml* findScene(const PolicyTables& tables, int32_t scene) {
    const auto found = tables.mMetaAudioSceMap.find(scene);
    return found == tables.mMetaAudioSceMap.end() ? nullptr : found->second;
}

const float* homePos(const MetaSceInfForParseXml& record, bool speaker) {
    return speaker ? record.HomePosCustomModeSpk : record.HomePosCustomMode;
}

}  // namespace

binder::Status SonorelService::javaCallSetCurrentPos(int32_t scene, const std::vector<float>& pos) {
    if (!isAllowedFindHalvend() || pos.size() < kPosSize) return binder::Status::ok();
    SONOREL_LOGD("%s +++", __func__);
    if (isMetaAudioCanWork()) {
        setCurrentPosInt(scene, pos);
    }
    if (mMetaInfoSqliteUtil != nullptr) {
        float xyz[kPosSize] = {pos[0], pos[1], pos[2]};
        storeNow(SettingRow::scenePos(rowDevice(kDeviceCurrent), scene),
                 [&] { mMetaInfoSqliteUtil->updateMetaInfoByScene(scene, xyz, kDeviceCurrent); });
    }
    return binder::Status::ok();
}

binder::Status SonorelService::setCurrentPosWithDev(int32_t scene, const std::vector<float>& pos,
                                                    int8_t device) {
    SONOREL_LOGD("%s +++", __func__);
    if (pos.size() < kPosSize) return binder::Status::ok();
    if (isMetaAudioCanWork() && !justChangeDataBase(device)) {
        setCurrentPosInt(scene, pos);
    }
    if (canDeferStoreWrites()) {
        mSpHandler->postMetaScenePos(SettingRow::scenePos(rowDevice(device), scene), device,
                                     pos.data());
    }
    return binder::Status::ok();
}

void SonorelService::setCurrentPosInt(int32_t scene, const std::vector<float>& pos) {
    if (pos.size() < kPosSize) return;
    SONOREL_LOGD("%s +++ scene:%d data:%f,%f,%f", __func__, scene, static_cast<double>(pos[0]),
                 static_cast<double>(pos[1]), static_cast<double>(pos[2]));
    CallbackData in;
    in.scene = scene;
    in.data = pos;
    callClient(IHalvendClient::CLIENT_ID_META_AUDIO, IHalvendClient::CB_SET_CURRENT_POS, in,
               nullptr);
    SONOREL_LOGD("%s --- scene:%d", __func__, scene);
}

binder::Status SonorelService::javaCallGetCurrentPos(int32_t scene, std::vector<float>* pos) {
    getCurrentPos(__func__, scene, kDeviceCurrent, isMetaAudioCanWork(), pos);
    return binder::Status::ok();
}

binder::Status SonorelService::getCurrentPosWithDev(int32_t scene, std::vector<float>* pos,
                                                    int8_t device) {
    getCurrentPos(__func__, scene, device, isMetaAudioCanWork() && !justChangeDataBase(device),
                  pos);
    return binder::Status::ok();
}

void SonorelService::getCurrentPos(const char* method, int32_t scene, int8_t device, bool live,
                                   std::vector<float>* pos) {
    if (pos->size() < kPosSize) return;
    CallbackData reply;
    if (live) {
        CallbackData in;
        in.scene = scene;
        callClient(IHalvendClient::CLIENT_ID_META_AUDIO, IHalvendClient::CB_GET_CURRENT_POS, in,
                   &reply);
    }
    // Without a renderer, or with one that failed or sent too little, the stored position answers.
    if (reply.status == 0 && reply.data.size() >= kPosSize) {
        std::copy_n(reply.data.begin(), kPosSize, pos->begin());
    } else {
        readStoredPos(scene, device, pos);
    }
    SONOREL_LOGD("%s scene:%d data:%f,%f,%f", method, scene, static_cast<double>((*pos)[0]),
                 static_cast<double>((*pos)[1]), static_cast<double>((*pos)[2]));
}

void SonorelService::readStoredPos(int32_t scene, int8_t device, std::vector<float>* pos) const {
    if (mMetaInfoSqliteUtil == nullptr) return;
    float xyz[kPosSize] = {};
    if (mSpHandler == nullptr || !mSpHandler->waitingScenePos(rowDevice(device), scene, xyz)) {
        mMetaInfoSqliteUtil->getMetaInfoByScene(scene, xyz, static_cast<meta_devices_t>(device));
    }
    std::copy_n(xyz, kPosSize, pos->begin());
}

binder::Status SonorelService::javaCallGetDefaultPos(int32_t scene, std::vector<float>* pos) {
    getDefaultPos(__func__, scene, mSupportSpeaker && !mIsHeadSetConnected, pos);
    return binder::Status::ok();
}

binder::Status SonorelService::getDefaultPosWithDev(int32_t scene, std::vector<float>* pos,
                                                    int8_t device) {
    getDefaultPos(__func__, scene, device == kDeviceSpeaker, pos);
    return binder::Status::ok();
}

void SonorelService::getDefaultPos(const char* method, int32_t scene, bool speaker,
                                   std::vector<float>* pos) {
    if (scene > kLastScene || pos->size() < kPosSize) return;
    const auto tables = policyTables();
    const MetaSceInfForParseXml* const record = findScene(*tables, scene);
    if (record == nullptr) return;
    std::copy_n(homePos(*record, speaker), kPosSize, pos->begin());
    SONOREL_LOGD("%s scene:%d data:%f,%f,%f", method, scene, static_cast<double>((*pos)[0]),
                 static_cast<double>((*pos)[1]), static_cast<double>((*pos)[2]));
}

void SonorelService::initCustomDefaultSceneHomePos() {
    if (mMetaInfoSqliteUtil == nullptr) return;
    seedHomePos(mMetaInfoSqliteUtil->getCurrentDevice());
}

void SonorelService::seedHomePos(int8_t device) {
    const auto tables = policyTables();
    HomePositions positions;
    for (int32_t scene = kFirstScene; scene <= kLastScene; ++scene) {
        const MetaSceInfForParseXml* const record = findScene(*tables, scene);
        if (record == nullptr) continue;
        std::copy_n(homePos(*record, device == kDeviceSpeaker), kPosSize, positions[scene].begin());
    }
    seedHomePositions(mMetaInfoSqliteUtil, static_cast<meta_devices_t>(device), positions);
}

void SonorelService::initCustomSceneHomePos() {
    if (mMetaInfoSqliteUtil == nullptr) return;
    // The store may have a fresh file, or may have had no room when it was to be seeded.
    initCustomDefaultSceneHomePos();
    for (int32_t scene = kFirstScene; scene <= kLastScene; ++scene) {
        std::vector<float> pos(kPosSize);
        readStoredPos(scene, kDeviceCurrent, &pos);
        setCurrentPosInt(scene, pos);
    }
}

}  // namespace android
