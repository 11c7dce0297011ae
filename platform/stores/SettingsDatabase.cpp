#define LOG_TAG "SonorelStores"

#include "SettingsDatabase.h"

#include <log/log.h>
#include <qelto/DevicePath.h>

#include <algorithm>
#include <mutex>
#include <system_error>
#include <utility>

namespace android {
namespace {

constexpr int kSchemaVersion = 1;
constexpr int kPatienceMs = 1000;
constexpr int kImpatienceMs = 20;
constexpr std::chrono::milliseconds kFirstBackoff{1000};
constexpr std::chrono::milliseconds kLongestBackoff{60000};
// How often one call may repair what it meets: reopen, then replace.
constexpr int kMaxRepairs = 2;

int primaryCode(int result) {
    return result & 0xFF;
}

bool isDamage(int result) {
    return primaryCode(result) == SQLITE_CORRUPT || primaryCode(result) == SQLITE_NOTADB;
}

}  // namespace

SettingsDatabase::SettingsDatabase(const std::string& path, StoreSchema schema)
        : mShownPath(path),
          mSchema(std::move(schema)),
          mFile(DatabaseFile::forPath(mapDevicePath(path))),
          mOpenBackoff(kFirstBackoff) {}

SettingsDatabase::~SettingsDatabase() {
    // The last connection of all writes the log back into the database and removes it. No other
    // store of this process may open or replace the file meanwhile.
    const std::unique_lock<std::shared_mutex> exclusive(mFile->lock());
    FileIdentity now;
    if (mConnection != nullptr && (!mFile->identity(&now) || now != mIdentity)) abandon();
    mStatements.clear();
    mConnection.reset();
}

void SettingsDatabase::openEarly() {
    (void)acquire();
}

SettingsDatabase::InUse SettingsDatabase::acquire() {
    // Twice, in case the file is replaced just after it was opened.
    for (int attempt = 0; attempt < 2; ++attempt) {
        if (mConnection == nullptr && !open()) return {};
        InUse inUse(mFile->lock());
        FileIdentity now;
        if (mFile->identity(&now) && now == mIdentity) return inUse;
        inUse.unlock();
        ALOGW("%s: the file was replaced, opening it again", mShownPath.c_str());
        abandon();
    }
    return {};
}

bool SettingsDatabase::open() {
    const auto now = std::chrono::steady_clock::now();
    if (now < mNextOpen) return false;

    const std::unique_lock<std::shared_mutex> exclusive(mFile->lock());
    mOpenError.clear();
    if (openLocked(&mOpenError)) {
        mOpenBackoff = kFirstBackoff;
        mNextOpen = {};
        return true;
    }
    abandon();
    ALOGE("%s: cannot be opened: %s", mShownPath.c_str(), mOpenError.c_str());
    mNextOpen = std::chrono::steady_clock::now() + mOpenBackoff;
    mOpenBackoff = std::min(2 * mOpenBackoff, kLongestBackoff);
    return false;
}

bool SettingsDatabase::openLocked(std::string* outError) {
    if (!mFile->makeFolder(outError)) return false;
    const FolderLock folder(mFile->path());
    if (folder.isBusy()) {
        *outError = "its folder is locked by another process";
        return false;
    }
    std::string movedTo;
    if (!mFile->clearPath(&movedTo, outError)) return false;
    if (!movedTo.empty()) {
        ALOGE("%s: no database file, moved to %s", mShownPath.c_str(), movedTo.c_str());
    }
    FileIdentity now;
    const bool isCondemned = mHasCondemned && mFile->identity(&now) && now == mCondemned;
    mHasCondemned = false;
    int result = isCondemned ? SQLITE_CORRUPT : connect(outError);
    if (isDamage(result)) {
        if (!replaceDamaged(outError)) return false;
        result = connect(outError);
    }
    return result == SQLITE_OK;
}

bool SettingsDatabase::replaceDamaged(std::string* outError) {
    abandon();
    const std::string damage = outError->empty() ? "damaged" : *outError;
    std::string movedTo;
    if (!mFile->moveAside(&movedTo, outError)) return false;
    ALOGE("%s: %s; moved to %s, starting afresh", mShownPath.c_str(), damage.c_str(),
          movedTo.c_str());
    outError->clear();
    return true;
}

int SettingsDatabase::connect(std::string* outError) {
    constexpr int kFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
    sqlite3* connection = nullptr;
    int result = sqlite3_open_v2(mFile->path().c_str(), &connection, kFlags, nullptr);
    mConnection.reset(connection);
    if (result != SQLITE_OK) {
        *outError = errorText(result);
        return result;
    }
    (void)sqlite3_extended_result_codes(connection, 1);
    setPatience(mImpatient);
    // The file is data, never code, and a damaged page is an error where it is met.
    (void)sqlite3_db_config(connection, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    (void)sqlite3_db_config(connection, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    result = execute("PRAGMA cell_size_check = ON", outError);
    if (result == SQLITE_OK) result = check(outError);
    if (result == SQLITE_OK) result = configure(outError);
    if (result == SQLITE_OK) result = createTables(outError);
    if (result == SQLITE_OK) result = prepare(outError);
    if (result != SQLITE_OK && primaryCode(result) == SQLITE_BUSY) mImpatient = true;
    return result;
}

// Nothing is written before this has passed: a newer file stays as it is.
int SettingsDatabase::check(std::string* outError) {
    std::string text;
    int result = queryText("PRAGMA user_version", &text, outError);
    if (result != SQLITE_OK) return result;
    if (text.size() > 9 || strtol(text.c_str(), nullptr, 10) > kSchemaVersion) {
        *outError = "its schema " + text + " is newer than " + std::to_string(kSchemaVersion) +
                    ", it is left as it is";
        return SQLITE_MISMATCH;
    }
    if (!mFile->identity(&mIdentity)) {
        *outError = "it is gone";
        return SQLITE_CANTOPEN;
    }
    if (mFile->isChecked(mIdentity)) return SQLITE_OK;
    result = queryText("PRAGMA quick_check(1)", &text, outError);
    if (result == SQLITE_OK && text != "ok") {
        std::replace(text.begin(), text.end(), '\n', ' ');
        *outError = "quick_check: " + text;
        result = SQLITE_CORRUPT;
    }
    if (result == SQLITE_OK) mFile->setChecked(mIdentity, true);
    return result;
}

int SettingsDatabase::configure(std::string* outError) {
    std::string mode;
    const int result = queryText("PRAGMA journal_mode = WAL", &mode, outError);
    if (result != SQLITE_OK && primaryCode(result) != SQLITE_READONLY) return result;
    if (mode != "wal") {
        ALOGW("%s: no write-ahead log here (%s)", mShownPath.c_str(),
              result == SQLITE_OK ? mode.c_str() : outError->c_str());
    }
    outError->clear();
    // Every commit is in the kernel's hands when it returns, so it outlives this process; the log
    // reaches the disk in order, at the next checkpoint at the latest. Syncing each commit would
    // make a dragged scene position wait for the flash every time.
    return execute("PRAGMA synchronous = NORMAL", outError);
}

int SettingsDatabase::createTables(std::string* outError) {
    std::string version;
    int result = queryText("PRAGMA user_version", &version, outError);
    if (result != SQLITE_OK) return result;
    if (version == "0") {
        result = execute("BEGIN IMMEDIATE;" + mSchema.tables + "PRAGMA user_version = " +
                                 std::to_string(kSchemaVersion) + ";COMMIT;",
                         outError);
    } else {
        // Without a transaction of its own this takes no write lock where the tables exist, so that
        // a file that cannot be written can still be read.
        result = execute(mSchema.tables, outError);
    }
    if (result != SQLITE_OK || mSchema.markQuery.empty()) return result;

    std::string mark;
    result = queryText(mSchema.markQuery, &mark, outError);
    if (result == SQLITE_OK && mark.empty()) result = execute(mSchema.markCommand, outError);
    if (primaryCode(result) != SQLITE_READONLY) return result;
    outError->clear();
    return SQLITE_OK;
}

int SettingsDatabase::prepare(std::string* outError) {
    for (const std::string& sql : mSchema.statements) {
        sqlite3_stmt* prepared = nullptr;
        const int result =
                sqlite3_prepare_v3(mConnection.get(), sql.c_str(), static_cast<int>(sql.size()),
                                   SQLITE_PREPARE_PERSISTENT, &prepared, nullptr);
        mStatements.emplace_back(prepared);
        if (result != SQLITE_OK) {
            *outError = errorText(result);
            return result;
        }
    }
    return SQLITE_OK;
}

int SettingsDatabase::execute(const std::string& sql, std::string* outError) {
    const int result = sqlite3_exec(mConnection.get(), sql.c_str(), nullptr, nullptr, nullptr);
    if (result != SQLITE_OK) *outError = errorText(result);
    return result;
}

// The first column of the first row, empty without a row.
int SettingsDatabase::queryText(const std::string& sql, std::string* outText,
                                std::string* outError) {
    outText->clear();
    sqlite3_stmt* prepared = nullptr;
    int result = sqlite3_prepare_v2(mConnection.get(), sql.c_str(), static_cast<int>(sql.size()),
                                    &prepared, nullptr);
    const std::unique_ptr<sqlite3_stmt, FinalizeStatement> owner(prepared);
    if (result == SQLITE_OK) {
        Statement query(prepared);
        result = query.step();
        if (result == SQLITE_ROW) *outText = query.bytes(0);
        if (result == SQLITE_ROW || result == SQLITE_DONE) return SQLITE_OK;
    }
    *outError = errorText(result);
    return result;
}

bool SettingsDatabase::repair(const char* operation, int result, int attempt, InUse* inUse) {
    const std::string text = errorText(result);
    // A table may have been dropped or changed by somebody else: opening makes it again.
    const bool isStale = primaryCode(result) == SQLITE_ERROR || result == SQLITE_READONLY_DBMOVED;
    if (attempt < kMaxRepairs && (isDamage(result) || (isStale && attempt == 0))) {
        ALOGE("%s: %s: %s, opening it again", operation, mShownPath.c_str(), text.c_str());
        if (isDamage(result) && attempt > 0) {
            mCondemned = mIdentity;
            mHasCondemned = true;
        }
        inUse->unlock();
        {
            const std::unique_lock<std::shared_mutex> exclusive(mFile->lock());
            if (isDamage(result)) mFile->setChecked(mIdentity, false);
        }
        abandon();
        return true;
    }
    ALOGE("%s: %s: %s", operation, mShownPath.c_str(), text.c_str());
    if (primaryCode(result) == SQLITE_BUSY) setPatience(true);
    return false;
}

void SettingsDatabase::setPatience(bool impatient) {
    mImpatient = impatient;
    (void)sqlite3_busy_timeout(mConnection.get(), impatient ? kImpatienceMs : kPatienceMs);
}

void SettingsDatabase::logLostWrite(const char* operation) const {
    ALOGE("%s: %s: not stored, the database is not open: %s", operation, mShownPath.c_str(),
          mOpenError.c_str());
}

void SettingsDatabase::abandon() {
    mStatements.clear();
    if (mConnection == nullptr) return;
    // Closing the last connection would clear away the log at the path, which may be another file's
    // by now.
    (void)sqlite3_db_config(mConnection.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    mConnection.reset();
}

std::string SettingsDatabase::errorText(int result) const {
    sqlite3* connection = mConnection.get();
    const bool isLast = connection != nullptr &&
                        primaryCode(sqlite3_errcode(connection)) == primaryCode(result);
    std::string text = isLast ? sqlite3_errmsg(connection) : sqlite3_errstr(result);
    const int systemError = isLast ? sqlite3_system_errno(connection) : 0;
    if (systemError != 0) text += " (" + std::system_category().message(systemError) + ")";
    return text;
}

}  // namespace android
