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

void SpHandler::onMessageReceived(const sp<AMessage>& msg) {
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
