#include "service/SpHandler.h"

#include <media/stagefright/foundation/AString.h>
#include <qelto/FgeDatabase.h>
#include <qelto/MetaInfoSqliteUtil.h>

#include "service/ServiceLog.h"

namespace android {

SpHandler::SpHandler(const sp<MetaInfoSqliteUtil>& metaInfoSqliteUtil)
        : mMetaInfoSqliteUtil(metaInfoSqliteUtil) {}

SpHandler::~SpHandler() = default;

void SpHandler::setFgeDatabase(const sp<FgeDatabase>& fgeDatabase) {
    sp<FgeDatabase> replaced;  // released, maybe with its last reference, after the leaf
    Mutex::Autolock lock(mFgeLock);
    replaced = mFgeDatabase;
    mFgeDatabase = fgeDatabase;
}

void SpHandler::postMetaOn(const SettingRow& row, bool on, int32_t dev) {
    const sp<AMessage> msg = new AMessage(kWhatMetaOn, this);
    msg->setInt32("meta_on", on ? 1 : 0);
    msg->setInt32("meta_dev", dev);
    post(row, msg);
}

void SpHandler::postMetaMode(const SettingRow& row, int32_t mode, int32_t dev) {
    const sp<AMessage> msg = new AMessage(kWhatMetaMode, this);
    msg->setInt32("meta_mode", mode);
    msg->setInt32("meta_dev", dev);
    post(row, msg);
}

void SpHandler::postMetaScenePos(const SettingRow& row, int32_t dev, const float* pos) {
    const sp<AMessage> msg = new AMessage(kWhatMetaScenePos, this);
    msg->setInt32("meta_scene", row.scene);
    msg->setInt32("meta_dev", dev);
    msg->setFloat("meta_pos_x", pos[0]);
    msg->setFloat("meta_pos_y", pos[1]);
    msg->setFloat("meta_pos_z", pos[2]);
    post(row, msg);
}

void SpHandler::postFastGameEffect(const std::string& pkgName, int32_t value) {
    const sp<AMessage> msg = new AMessage(kWhatFastGameEffect, this);
    msg->setString("fge_pkgname", pkgName.c_str(), static_cast<ssize_t>(pkgName.size()));
    msg->setInt32("fge_switch", value);
    post(SettingRow::gameSwitch(pkgName), msg);
}

void SpHandler::post(const SettingRow& row, const sp<AMessage>& msg) {
    if (mWrites.post(row, msg)) return;
    SONOREL_LOGE("%s: not stored, too many settings wait: %s", __func__, row.text().c_str());
}

void SpHandler::writeNow(const SettingRow& row, const std::function<void()>& write) {
    Mutex::Autolock order(mWriteLock);
    mWrites.drop(row);
    write();
}

std::optional<bool> SpHandler::waitingOn(int32_t device) const {
    const sp<AMessage> msg = mWrites.newest(SettingRow::on(device));
    int32_t on = 0;
    if (msg == nullptr || !msg->findInt32("meta_on", &on)) return std::nullopt;
    return on == 1;
}

std::optional<int8_t> SpHandler::waitingMode(int32_t device) const {
    const sp<AMessage> msg = mWrites.newest(SettingRow::mode(device));
    int32_t mode = 0;
    if (msg == nullptr || !msg->findInt32("meta_mode", &mode)) return std::nullopt;
    return static_cast<int8_t>(mode);
}

bool SpHandler::waitingScenePos(int32_t device, int32_t scene, float* outPos) const {
    const sp<AMessage> msg = mWrites.newest(SettingRow::scenePos(device, scene));
    return msg != nullptr && msg->findFloat("meta_pos_x", &outPos[0]) &&
           msg->findFloat("meta_pos_y", &outPos[1]) && msg->findFloat("meta_pos_z", &outPos[2]);
}

std::map<std::string, int> SpHandler::waitingGameSwitches() const {
    std::map<std::string, int> switches;
    for (const auto& [pkgName, msg] : mWrites.newestGameSwitches()) {
        int32_t value = 0;
        if (msg->findInt32("fge_switch", &value)) switches[pkgName] = value;
    }
    return switches;
}

void SpHandler::onMessageReceived(const sp<AMessage>& msg) {
    Mutex::Autolock order(mWriteLock);
    const sp<AMessage> newest = mWrites.begin(msg);
    if (newest == nullptr) return;
    carryOut(newest);
    mWrites.end();
}

void SpHandler::carryOut(const sp<AMessage>& msg) {
    switch (msg->what()) {
        case kWhatMetaOn:
            return handleMetaOn(msg);
        case kWhatMetaMode:
            return handleMetaMode(msg);
        case kWhatMetaScenePos:
            return handleMetaScenePos(msg);
        case kWhatFastGameEffect:
            return handleFastGameEffect(msg);
        default:
            SONOREL_LOGE("onMessageReceived : unknown msg key %d", static_cast<int>(msg->what()));
    }
}

void SpHandler::handleMetaOn(const sp<AMessage>& msg) {
    int32_t on = -1;
    int32_t dev = -1;
    if (!msg->findInt32("meta_on", &on) || !msg->findInt32("meta_dev", &dev)) {
        SONOREL_LOGE("parse failed : on[%d] dev[%d]", on, dev);
        return;
    }
    onSetMetaOnWithDev(on, dev);
}

void SpHandler::handleMetaMode(const sp<AMessage>& msg) {
    int32_t mode = -1;
    int32_t dev = -1;
    if (!msg->findInt32("meta_mode", &mode) || !msg->findInt32("meta_dev", &dev)) {
        SONOREL_LOGE("parse failed : mode[%d] dev[%d]", mode, dev);
        return;
    }
    onSetMetaModeWithDev(mode, dev);
}

void SpHandler::handleMetaScenePos(const sp<AMessage>& msg) {
    int32_t scene = -1;
    int32_t dev = -1;
    float pos[3] = {};
    if (!msg->findInt32("meta_scene", &scene) || !msg->findInt32("meta_dev", &dev) ||
        !msg->findFloat("meta_pos_x", &pos[0]) || !msg->findFloat("meta_pos_y", &pos[1]) ||
        !msg->findFloat("meta_pos_z", &pos[2])) {
        SONOREL_LOGE("parse failed : scene[%d] dev[%d] pos[%f|%f|%f]", scene, dev,
                     static_cast<double>(pos[0]), static_cast<double>(pos[1]),
                     static_cast<double>(pos[2]));
        return;
    }
    onSetMetaScenePosWithDev(scene, dev, pos);
}

void SpHandler::handleFastGameEffect(const sp<AMessage>& msg) {
    AString pkgName;
    int32_t value = -1;
    if (!msg->findString("fge_pkgname", &pkgName) || !msg->findInt32("fge_switch", &value)) {
        SONOREL_LOGE("FastGameEffect: %s parse failed", "onMessageReceived");
        return;
    }
    onSetFastGameEffectOn(std::string(pkgName.c_str(), pkgName.size()), value);
}

void SpHandler::onSetMetaOnWithDev(int on, int dev) {
    if (mMetaInfoSqliteUtil == nullptr) return;
    mMetaInfoSqliteUtil->setMetaAudioOn(on == 1, static_cast<meta_devices_t>(dev));
}

void SpHandler::onSetMetaModeWithDev(int mode, int dev) {
    if (mMetaInfoSqliteUtil == nullptr) return;
    mMetaInfoSqliteUtil->updateMetaAudioMode(static_cast<int8_t>(mode),
                                             static_cast<meta_devices_t>(dev));
}

void SpHandler::onSetMetaScenePosWithDev(int scene, int dev, float* pos) {
    if (mMetaInfoSqliteUtil == nullptr) return;
    mMetaInfoSqliteUtil->updateMetaInfoByScene(scene, pos, static_cast<meta_devices_t>(dev));
}

void SpHandler::onSetFastGameEffectOn(const std::string& pkgName, int value) {
    sp<FgeDatabase> store;
    {
        Mutex::Autolock lock(mFgeLock);
        store = mFgeDatabase;
    }
    if (store == nullptr) return;
    SONOREL_LOGD("FastGameEffect: %s pkgName: %s, switch: %d", __func__, pkgName.c_str(), value);
    store->setFastGameEffectOn(pkgName, value);
}

}  // namespace android
