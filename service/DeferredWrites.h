// The store writes that wait for the looper, one for each setting.
//
// A caller who sets the same thing again before the looper came to it replaces the value that
// waits, so the queue never grows beyond the number of settings, and a value that is older than the
// newest choice is never written. Until the write is done, newest() answers the value that readers
// of the store would miss.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <media/stagefright/foundation/AMessage.h>
#include <utils/Condition.h>
#include <utils/Mutex.h>
#include <utils/StrongPointer.h>

namespace android {

// One setting of the current user.
struct SettingRow {
    enum class Kind : uint8_t { kOn, kMode, kScenePos, kGameSwitch };

    static SettingRow on(int32_t device) { return {Kind::kOn, device, 0, ""}; }
    static SettingRow mode(int32_t device) { return {Kind::kMode, device, 0, ""}; }
    static SettingRow scenePos(int32_t device, int32_t scene) {
        return {Kind::kScenePos, device, scene, ""};
    }
    static SettingRow gameSwitch(const std::string& pkgName) {
        return {Kind::kGameSwitch, 0, 0, pkgName};
    }

    // A device class and, for a position, a scene that the settings store keeps.
    bool isKept() const;
    // For log lines: "position of scene 3, device 1".
    std::string text() const;
    bool operator<(const SettingRow& other) const;

    Kind kind;
    int32_t device;  // 0 or 1 in a row that is kept
    int32_t scene;
    std::string pkgName;
};

class DeferredWrites {
public:
    // How many game switches may wait; who posts more of them waits himself. As many rows of
    // devices and scenes that do not exist may wait; more of them are not taken.
    static constexpr size_t kMaxRows = 256;

    DeferredWrites() = default;
    DeferredWrites(const DeferredWrites&) = delete;
    DeferredWrites& operator=(const DeferredWrites&) = delete;

    // Makes `msg` the row's newest choice and, unless a message of the row waits already, posts it.
    // The message must not be changed any more. False when it is not taken.
    [[nodiscard]] bool post(const SettingRow& row, const sp<AMessage>& msg) EXCLUDES(mLock);

    // A value for the row is about to be written by other means: what waits is not written.
    void drop(const SettingRow& row) EXCLUDES(mLock);

    // On the looper: the message to carry out now that `delivered` has come; null when the row's
    // choice was dropped. A message that did not come from post() is carried out as it is. After
    // the write the looper calls end().
    sp<AMessage> begin(const sp<AMessage>& delivered) EXCLUDES(mLock);
    void end() EXCLUDES(mLock);

    // The newest choice of a row that is kept, while it is not stored; else null.
    sp<AMessage> newest(const SettingRow& row) const EXCLUDES(mLock);
    // The newest choices of all game switches that are not stored, by package.
    std::map<std::string, sp<AMessage>> newestGameSwitches() const EXCLUDES(mLock);
    // What is not stored.
    std::vector<SettingRow> waiting() const EXCLUDES(mLock);

private:
    struct Choice {
        sp<AMessage> newest;   // null once dropped
        sp<AMessage> queued;   // the row's one message in the looper's queue, perhaps an older one
        sp<AMessage> written;  // what the looper is writing now
    };
    using Choices = std::map<SettingRow, Choice>;

    // The rows of the kind of `row` that count against kMaxRows; null for one that is always taken.
    size_t* counted(const SettingRow& row) REQUIRES(mLock);
    bool isFull(const SettingRow& row) REQUIRES(mLock);
    void forget(Choices::iterator choice) REQUIRES(mLock);

    // Leaf: held for the instructions that copy in or out.
    mutable Mutex mLock;
    Condition mRoom;
    Choices mChoices GUARDED_BY(mLock);
    size_t mGameRows GUARDED_BY(mLock) = 0;
    size_t mUnknownRows GUARDED_BY(mLock) = 0;
};

}  // namespace android
