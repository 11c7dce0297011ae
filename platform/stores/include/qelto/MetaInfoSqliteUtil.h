#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include <utils/Mutex.h>
#include <utils/RefBase.h>

namespace android {

class SettingsDatabase;

// A class of output devices that has settings of its own.
using meta_devices_t = int8_t;
constexpr meta_devices_t META_DEVICE_SPEAKER = 0;
constexpr meta_devices_t META_DEVICE_HEADSET = 1;
constexpr meta_devices_t META_DEVICE_UNSPECIFIED = -1;  // the store's current device
constexpr meta_devices_t META_DEVICE_CURRENT = -2;      // the store's current device

// The meta audio settings, kept for each user and device class: on or off, the mode, a position for
// each scene, and whether the product's default home positions have been written.
//
// A write returns once SQLite has it: it then outlives the end of the process, however that comes.
// A power failure may take back the writes of the last half minute or so, latest first, and never
// leaves half a write. Nothing here fails visibly. A write that meets a file which another process
// locks is kept and stored once the file is free; reads answer it meanwhile. Any other write that
// cannot be done is logged and dropped. A read that cannot be done answers what a new user would
// get (off, mode 0, positions untouched). A file that cannot be written is still read. While the
// file cannot be opened, or not for writing, opening it is tried again now and then.
//
// A scene that is not in 1..bound-1 or a device that is none of the above is refused with a log
// line. Thread-safe; a call waits for the disk, and about 1 s at most for another process.
class MetaInfoSqliteUtil : public RefBase {
public:
    // `path` is the device's path of the database file, which is made with its folders when it is
    // missing. `table` is a plain SQL name; scenes run from 1 below `sceneBound`; `layoutVersion`
    // is recorded in the file. User 0 and `device` are current at first.
    MetaInfoSqliteUtil(const std::string& path, const std::string& table, int sceneBound,
                       float layoutVersion, int device);
    MetaInfoSqliteUtil(const MetaInfoSqliteUtil&) = delete;
    MetaInfoSqliteUtil& operator=(const MetaInfoSqliteUtil&) = delete;

    meta_devices_t getCurrentDevice() const EXCLUDES(mLock);
    void setCurrentDevice(meta_devices_t device) EXCLUDES(mLock);
    void setCurrentUserID(int userId) EXCLUDES(mLock);

    bool getMetaAudioOn(meta_devices_t device) EXCLUDES(mLock);
    void setMetaAudioOn(bool on, meta_devices_t device) EXCLUDES(mLock);

    signed char getMetaAudioMode(meta_devices_t device) EXCLUDES(mLock);
    void updateMetaAudioMode(signed char mode, meta_devices_t device) EXCLUDES(mLock);

    // pos3 points to three floats. They come back bit for bit, not-a-number included, and stay as
    // they are when the scene has no stored position.
    void getMetaInfoByScene(int scene, float* pos3, meta_devices_t device) EXCLUDES(mLock);
    // Only reads them; the pointer is what the platform's own store asks for.
    void updateMetaInfoByScene(int scene, float* pos3, meta_devices_t device) EXCLUDES(mLock);

    // Whether the current user and device still lack the product's home positions. False when that
    // cannot be read, so that a passing fault never overwrites a user's positions.
    bool needInitDefaultHomePos() EXCLUDES(mLock);
    void customDefaultHomePosInited() EXCLUDES(mLock);

    // Not among the platform's operations, callers use qelto/HomePosSeed.h: gives the current user
    // and `device` these positions by scene and the mark, all or nothing, unless the mark is there.
    // A position that a user chose stays. What fails is done on the next call.
    void seedHomePositions(meta_devices_t device,
                           const std::map<int, std::array<float, 3>>& positions) EXCLUDES(mLock);

protected:
    ~MetaInfoSqliteUtil() override;

private:
    // The row of META_INFO that a call is about.
    struct Row {
        int user;
        int device;
    };
    [[nodiscard]] bool resolve(const char* operation, meta_devices_t device, Row* outRow) const
            REQUIRES(mLock);
    [[nodiscard]] bool isScene(const char* operation, int scene, const float* pos3) const;
    // The statements that read and write a column, by index.
    struct Column {
        size_t get;
        size_t set;
    };
    int readColumn(const char* operation, Column column, const Row& row, int unreadable,
                   int missing) REQUIRES(mLock);
    void writeColumn(const char* operation, size_t set, const Row& row, int value) REQUIRES(mLock);

    const int mSceneBound;
    mutable Mutex mLock;
    const std::unique_ptr<SettingsDatabase> mDatabase PT_GUARDED_BY(mLock);
    int mUser GUARDED_BY(mLock) = 0;
    meta_devices_t mDevice GUARDED_BY(mLock) = META_DEVICE_SPEAKER;
};

}  // namespace android
