#include <qelto/MssDatabase.h>

#include "SettingsDatabase.h"

namespace android {
namespace {

enum StatementIndex : size_t { kGetMode, kSetMode };

StoreSchema mssSchema() {
    StoreSchema schema;
    schema.tables = mssTables();
    schema.statements = {
            {StoreStatement::kReads, "SELECT sound_widen_mode FROM MSS_INFO WHERE user_id = ?1"},
            {StoreStatement::kWrites,
             "INSERT INTO MSS_INFO(user_id, sound_widen_mode) VALUES(?1, ?2)"
             " ON CONFLICT DO UPDATE SET sound_widen_mode = excluded.sound_widen_mode"},
    };
    return schema;
}

RowKey modeOf(int32_t user) {
    RowKey key;
    key.statement = kSetMode;
    key.user = user;
    return key;
}

}  // namespace

MssDatabase::MssDatabase(const std::string& path)
        : mDatabase(std::make_unique<SettingsDatabase>(path, mssSchema(), &mLock)) {
    Mutex::Autolock lock(mLock);
    mDatabase->openEarly();
}

MssDatabase::~MssDatabase() = default;

int32_t MssDatabase::getSoundWidenMode() {
    Mutex::Autolock lock(mLock);
    if (const RowValue* const kept = mDatabase->kept().find(modeOf(mUser))) {
        return static_cast<int32_t>(std::get<int64_t>(*kept));
    }
    int32_t mode = 0;
    // A failure is logged there, and the mode is then what a new user has.
    (void)mDatabase->read(__func__, [user = mUser, &mode](const SettingsDatabase& database) {
        Statement query(database.statement(kGetMode));
        const int result = query.bind(1, user).step();
        if (result == SQLITE_ROW) mode = static_cast<int32_t>(query.integer(0));
        return result == SQLITE_ROW || result == SQLITE_DONE ? SQLITE_OK : result;
    });
    return mode;
}

void MssDatabase::setSoundWidenMode(int32_t mode) {
    Mutex::Autolock lock(mLock);
    const auto work = [user = mUser, mode](const SettingsDatabase& database) {
        return Statement(database.statement(kSetMode)).bind(1, user).bind(2, mode).run();
    };
    mDatabase->write(__func__, modeOf(mUser), mode, work);
}

void MssDatabase::setCurrentUserID(int32_t userId) {
    Mutex::Autolock lock(mLock);
    mUser = userId;
}

}  // namespace android
