// Carries out deferred store writes, one at a time and in posting order, on the "SpHandler" looper.
//
// Binder methods that address a device class, and the game effect's switch, post their write here
// instead of waiting for the database. Takes none of the service's locks.
#pragma once

#include <cstdint>
#include <string>

#include <media/stagefright/foundation/AHandler.h>
#include <media/stagefright/foundation/AMessage.h>
#include <utils/Mutex.h>
#include <utils/StrongPointer.h>

namespace android {

class FgeDatabase;
class MetaInfoSqliteUtil;

class SpHandler : public AHandler {
public:
    // What a message asks for, and its entries.
    enum What : uint32_t {
        kWhatMetaOn = 0,          // int32 "meta_on" (1 = on), int32 "meta_dev"
        kWhatMetaMode = 1,        // int32 "meta_mode", int32 "meta_dev"
        kWhatMetaScenePos = 2,    // int32 "meta_scene", "meta_dev"; floats "meta_pos_x", "_y", "_z"
        kWhatFastGameEffect = 3,  // string "fge_pkgname", int32 "fge_switch"
    };

    // A null store makes its messages no-ops.
    explicit SpHandler(const sp<MetaInfoSqliteUtil>& metaInfoSqliteUtil);
    ~SpHandler() override;
    SpHandler(const SpHandler&) = delete;
    SpHandler& operator=(const SpHandler&) = delete;

    // The game effect's store for the messages to come; called on binder threads before each post.
    void setFgeDatabase(const sp<FgeDatabase>& fgeDatabase) EXCLUDES(mFgeLock);

    void onMessageReceived(const sp<AMessage>& msg) override;

private:
    void handleMetaOn(const sp<AMessage>& msg);
    void handleMetaMode(const sp<AMessage>& msg);
    void handleMetaScenePos(const sp<AMessage>& msg);
    void handleFastGameEffect(const sp<AMessage>& msg);

    void onSetMetaOnWithDev(int on, int dev);
    void onSetMetaModeWithDev(int mode, int dev);
    void onSetMetaScenePosWithDev(int scene, int dev, float* pos);
    void onSetFastGameEffectOn(const std::string& pkgName, int value) EXCLUDES(mFgeLock);

    // Constant after construction.
    const sp<MetaInfoSqliteUtil> mMetaInfoSqliteUtil;

    // Leaf: held for the pointer's copy only.
    Mutex mFgeLock;
    sp<FgeDatabase> mFgeDatabase GUARDED_BY(mFgeLock);
};

}  // namespace android
