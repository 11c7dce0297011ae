// Carries out deferred store writes, one at a time, on the "SpHandler" looper.
//
// Binder methods that address a device class, and the game effect's switch, post their write here
// instead of waiting for the database. What a caller sets last is what ends up in the store,
// whether it was deferred or not. Takes none of the service's locks.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <media/stagefright/foundation/AHandler.h>
#include <media/stagefright/foundation/AMessage.h>
#include <utils/Mutex.h>
#include <utils/StrongPointer.h>

#include "service/DeferredWrites.h"

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

    // Any thread: posts the write of one setting. That of a game switch may wait for others that
    // were posted before; what does not exist may not be taken and is then logged. See
    // DeferredWrites.
    void postMetaOn(const SettingRow& row, bool on, int32_t dev) EXCLUDES(mWriteLock);
    void postMetaMode(const SettingRow& row, int32_t mode, int32_t dev) EXCLUDES(mWriteLock);
    void postMetaScenePos(const SettingRow& row, int32_t dev, const float* pos)
            EXCLUDES(mWriteLock);
    void postFastGameEffect(const std::string& pkgName, int32_t value) EXCLUDES(mWriteLock);

    // Any thread: runs `write`, which stores a value for the row on this thread; a deferred write
    // of the row that was posted before is not carried out any more.
    void writeNow(const SettingRow& row, const std::function<void()>& write) EXCLUDES(mWriteLock);

    // Any thread: the value that waits for its store write, which readers of the store would miss.
    std::optional<bool> waitingOn(int32_t device) const;
    std::optional<int8_t> waitingMode(int32_t device) const;
    [[nodiscard]] bool waitingScenePos(int32_t device, int32_t scene, float* outPos) const;
    std::map<std::string, int> waitingGameSwitches() const;
    // What is not stored yet.
    std::vector<SettingRow> waitingRows() const { return mWrites.waiting(); }

    void onMessageReceived(const sp<AMessage>& msg) override EXCLUDES(mWriteLock);

private:
    void post(const SettingRow& row, const sp<AMessage>& msg);
    void carryOut(const sp<AMessage>& msg) REQUIRES(mWriteLock);
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

    DeferredWrites mWrites;
    // Held over one store write each, as the store's own lock is: no deferred write can land behind
    // a newer one that a binder thread makes.
    Mutex mWriteLock ACQUIRED_BEFORE(mFgeLock);

    // Leaf: held for the pointer's copy only.
    Mutex mFgeLock;
    sp<FgeDatabase> mFgeDatabase GUARDED_BY(mFgeLock);
};

}  // namespace android
