#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <utils/Mutex.h>
#include <utils/RefBase.h>

namespace android {

class SettingsDatabase;

// The MSS settings of each user. Durability, failures and threads: as MetaInfoSqliteUtil, with
// which it may share the file.
class MssDatabase : public RefBase {
public:
    // `path` is the device's path of the database file. User 0 is current at first.
    explicit MssDatabase(const std::string& path);
    MssDatabase(const MssDatabase&) = delete;
    MssDatabase& operator=(const MssDatabase&) = delete;

    // The sound-widen mode of the current user, 0 when none was ever stored.
    int32_t getSoundWidenMode() EXCLUDES(mLock);
    // Any number is a mode.
    void setSoundWidenMode(int32_t mode) EXCLUDES(mLock);
    void setCurrentUserID(int32_t userId) EXCLUDES(mLock);

protected:
    ~MssDatabase() override;

private:
    Mutex mLock;
    const std::unique_ptr<SettingsDatabase> mDatabase PT_GUARDED_BY(mLock);
    int32_t mUser GUARDED_BY(mLock) = 0;
};

}  // namespace android
