#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <utils/Mutex.h>
#include <utils/RefBase.h>

namespace android {

class SettingsDatabase;

// The fast game effect's switch of each package, for each user. Durability, failures and threads:
// as MetaInfoSqliteUtil, with which it may share the file.
class FgeDatabase : public RefBase {
public:
    // `path` is the device's path of the database file.
    explicit FgeDatabase(const std::string& path);
    FgeDatabase(const FgeDatabase&) = delete;
    FgeDatabase& operator=(const FgeDatabase&) = delete;

    // The user whose switches the calls below read and write. May be assigned from any thread; a
    // call takes the value it finds when it begins.
    std::atomic<int32_t> mCurrentUserId{0};

    // Sets an entry for every stored package: its value, or -1 while it is not in the list. Other
    // entries stay; all stay when the store cannot be read.
    void getSwitchForPkgName(std::map<std::string, int>& map) EXCLUDES(mLock);

    // Stores one package's value. For a package that has left the list the value shows when it
    // comes back.
    void setFastGameEffectOn(const std::string& pkgName, int value) EXCLUDES(mLock);

    // Brings the store in line with the list of switchable packages: new ones are added with 0,
    // those that stay keep their values, those that left read as -1 until they return with their
    // values. The values that the caller knows are not needed: the store has them. All or nothing.
    void updateDataBase(const std::vector<std::string>& pkgs,
                        const std::map<std::string, int>& known) EXCLUDES(mLock);

protected:
    ~FgeDatabase() override;

private:
    Mutex mLock;
    const std::unique_ptr<SettingsDatabase> mDatabase PT_GUARDED_BY(mLock);
};

}  // namespace android
