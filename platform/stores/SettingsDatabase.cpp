#define LOG_TAG "SonorelStores"

#include "SettingsDatabase.h"

#include <log/log.h>
#include <qelto/DevicePath.h>

#include <algorithm>
#include <mutex>
#include <utility>

namespace android {
namespace {

constexpr std::chrono::milliseconds kPatience{1000};
constexpr std::chrono::milliseconds kFirstBackoff{1000};
constexpr std::chrono::milliseconds kLongestBackoff{60000};
// How often one call may repair what it meets: reopen, then replace.
constexpr int kMaxRepairs = 2;

// Whether a file that fails so may be fit to be read: no right to write it, no room beside it, a
// lock on it.
bool mayBeReadable(int result) {
    const int code = primaryCode(result);
    return code == SQLITE_READONLY || code == SQLITE_CANTOPEN || code == SQLITE_IOERR ||
           code == SQLITE_FULL || code == SQLITE_PERM || code == SQLITE_BUSY;
}

// A path as the URI by which SQLite takes options.
std::string uriOf(const std::string& path, const char* options) {
    std::string uri = "file:";
    for (const char c : path) {
        if (c == '%' || c == '?' || c == '#') {
            char escaped[4];
            (void)snprintf(escaped, sizeof(escaped), "%%%02X", static_cast<unsigned>(c));
            uri += escaped;
        } else {
            uri += c;
        }
    }
    return uri + options;
}

}  // namespace

SettingsDatabase::SettingsDatabase(const std::string& path, StoreSchema schema, Mutex* storeLock)
        : mShownPath(path),
          mSchema(std::move(schema)),
          mStoreLock(*storeLock),
          mFile(DatabaseFile::forPath(mapDevicePath(path))),
          mOpenBackoff(kFirstBackoff),
          mRetry(WriteRetry::add(this)) {}

SettingsDatabase::~SettingsDatabase() {
    mRetry->end();
    if (!mKept.empty()) (void)storeKeptNow(kBriefly);
    for (const KeptWrite& write : mKept.all()) {
        ALOGE("%s: %s: given up: the database is locked", write.operation, mShownPath.c_str());
    }
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
    const bool isLimited = mConnection != nullptr && mAccess != Access::kWritable;
    if (isLimited && std::chrono::steady_clock::now() >= mNextOpen) abandon();
    // Twice, in case the file is replaced just after it was opened.
    for (int attempt = 0; attempt < 2; ++attempt) {
        if (mConnection == nullptr && !open()) return {};
        InUse inUse(mFile->lock());
        if (isCurrent()) return inUse;
        inUse.unlock();
        if (mAccess != Access::kSnapshot) {
            ALOGW("%s: the file was replaced, opening it again", mShownPath.c_str());
        }
        abandon();
    }
    return {};
}

bool SettingsDatabase::isCurrent() const {
    FileIdentity now;
    return mFile->identity(&now) && now == mIdentity && isUntorn();
}

bool SettingsDatabase::isUntorn() const {
    if (mAccess != Access::kSnapshot) return true;
    FileStamp now;
    return mFile->stamp(&now) && now == mStamp;
}

bool SettingsDatabase::open() {
    const bool mayWrite = std::chrono::steady_clock::now() >= mNextOpen;
    // What could be read a moment ago can be read again before writing is tried again.
    if (!mayWrite && !mIsReadable) return false;

    const std::unique_lock<std::shared_mutex> exclusive(mFile->lock());
    if (!mayWrite) return mIsReadable = openForReading(mOpenResult);
    mOpenError.clear();
    mOpenResult = openLocked(&mOpenError);
    if (mOpenResult == SQLITE_OK) {
        mOpenBackoff = kFirstBackoff;
        mNextOpen = {};
        return true;
    }
    abandon();
    mIsReadable = mayBeReadable(mOpenResult) && openForReading(mOpenResult);
    ALOGE("%s: cannot be opened%s: %s", mShownPath.c_str(), mIsReadable ? " for writing" : "",
          mOpenError.c_str());
    mNextOpen = std::chrono::steady_clock::now() + mOpenBackoff;
    mOpenBackoff = std::min(2 * mOpenBackoff, kLongestBackoff);
    return mIsReadable;
}

int SettingsDatabase::openLocked(std::string* outError) {
    if (!mFile->makeFolder(outError)) return SQLITE_CANTOPEN;
    const FolderLock folder(mFile->path());
    if (folder.isBusy()) {
        *outError = "its folder is locked by another process";
        return SQLITE_BUSY;
    }
    std::string movedTo;
    if (!mFile->clearPath(&movedTo, outError)) return SQLITE_CANTOPEN;
    if (!movedTo.empty()) {
        ALOGE("%s: no database file, moved to %s", mShownPath.c_str(), movedTo.c_str());
    }
    FileIdentity now;
    const bool isCondemned = mHasCondemned && mFile->identity(&now) && now == mCondemned;
    mHasCondemned = false;
    int result = isCondemned ? SQLITE_CORRUPT : openForWriting(outError);
    if (isDamage(result)) {
        if (!replaceDamaged(outError)) return SQLITE_CANTOPEN;
        result = openForWriting(outError);
    }
    if (isBusy(result)) mImpatient = true;
    return result;
}

int SettingsDatabase::openForWriting(std::string* outError) {
    constexpr int kFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
    int result = connect(mFile->path(), kFlags, outError);
    if (result == SQLITE_OK && sqlite3_db_readonly(mConnection.get(), "main") == 1) {
        *outError = errorText(nullptr, SQLITE_READONLY);
        result = SQLITE_READONLY;
    }
    // Nothing is written before the file has passed the check: a newer one stays as it is.
    int layout = 0;
    if (result == SQLITE_OK) result = check(&layout, outError);
    if (result == SQLITE_OK) result = configure(outError);
    int former = 0;
    if (result == SQLITE_OK) result = bringUp(mConnection.get(), *mFile, &former, outError);
    if (result == SQLITE_OK && former != 0) {
        ALOGI("%s: brought from layout %d to %d, a copy of the former is beside it",
              mShownPath.c_str(), former, kFileLayout);
    }
    if (result == SQLITE_OK) {
        result = completeTables(mConnection.get(), mSchema.tables, mSchema.mark, outError);
    }
    mAccess = Access::kWritable;
    if (result == SQLITE_OK) result = prepare(outError);
    return result;
}

// `cause` is why it could not be opened for writing.
bool SettingsDatabase::openForReading(int cause) {
    FileStamp before;
    if (!mFile->stamp(&before)) return false;
    // Without a log beside it the file itself is all there is to read. SQLite would make files
    // beside it even to read it, unless told that nobody changes it; a change shows in the stamp.
    const bool isSnapshot = !before.hasLog && !isBusy(cause);
    std::string error;
    int layout = 0;
    int result = connect(uriOf(mFile->path(), isSnapshot ? "?immutable=1" : ""),
                         SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, &error);
    if (result == SQLITE_OK) result = check(&layout, &error);
    if (result == SQLITE_OK) {
        result = checkShapes(mConnection.get(), layout, mSchema.tables, &error);
    }
    mAccess = isSnapshot ? Access::kSnapshot : Access::kReadOnly;
    if (result == SQLITE_OK) result = prepare(&error);
    mStamp = before;
    if (result == SQLITE_OK && isUntorn()) return true;
    abandon();
    return false;
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

int SettingsDatabase::connect(const std::string& name, int flags, std::string* outError) {
    sqlite3* connection = nullptr;
    const int result =
            sqlite3_open_v2(name.c_str(), &connection, flags | SQLITE_OPEN_NOMUTEX, nullptr);
    mConnection.reset(connection);
    if (result != SQLITE_OK) {
        *outError = errorText(connection, result);
        return result;
    }
    (void)sqlite3_extended_result_codes(connection, 1);
    setPatience(mImpatient);
    // The file is data, never code, and a damaged page is an error where it is met.
    (void)sqlite3_db_config(connection, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    (void)sqlite3_db_config(connection, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    return execute(connection, "PRAGMA cell_size_check = ON", outError);
}

int SettingsDatabase::check(int* outLayout, std::string* outError) {
    int result = readLayout(mConnection.get(), outLayout, outError);
    if (result != SQLITE_OK) return result;
    if (!mFile->identity(&mIdentity)) {
        *outError = "it is gone";
        return SQLITE_CANTOPEN;
    }
    if (mFile->isChecked(mIdentity)) return SQLITE_OK;
    std::string text;
    result = queryText(mConnection.get(), "PRAGMA quick_check(1)", &text, outError);
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
    const int result = queryText(mConnection.get(), "PRAGMA journal_mode = WAL", &mode, outError);
    if (result != SQLITE_OK) return result;
    if (mode != "wal") ALOGW("%s: no write-ahead log here (%s)", mShownPath.c_str(), mode.c_str());
    // Every commit is in the kernel's hands when it returns, so it outlives this process; the log
    // reaches the disk in order, at the next checkpoint at the latest. Syncing each commit would
    // make a dragged scene position wait for the flash every time.
    return execute(mConnection.get(), "PRAGMA synchronous = NORMAL", outError);
}

int SettingsDatabase::prepare(std::string* outError) {
    for (const StoreStatement& statement : mSchema.statements) {
        sqlite3_stmt* prepared = nullptr;
        // What writes may name columns that a file of a former layout lacks; what reads does not.
        const bool isUsed = mAccess == Access::kWritable || statement.use == StoreStatement::kReads;
        const std::string& sql = statement.sql;
        const int result =
                isUsed ? sqlite3_prepare_v3(mConnection.get(), sql.c_str(),
                                            static_cast<int>(sql.size()), SQLITE_PREPARE_PERSISTENT,
                                            &prepared, nullptr)
                       : SQLITE_OK;
        mStatements.emplace_back(prepared);
        if (result != SQLITE_OK) {
            *outError = errorText(mConnection.get(), result);
            return result;
        }
    }
    return SQLITE_OK;
}

bool SettingsDatabase::repair(const char* operation, int result, int attempt, InUse* inUse) {
    if (mAccess != Access::kWritable) {
        // It may have been written while it was read. Nothing is moved: that is for who can write.
        inUse->unlock();
        if (attempt < kMaxRepairs && !isUntorn()) {
            abandon();
            return true;
        }
        return false;
    }
    // A table may have been dropped or changed by somebody else: opening makes it again.
    const bool isStale = primaryCode(result) == SQLITE_ERROR || result == SQLITE_READONLY_DBMOVED;
    if (attempt < kMaxRepairs && (isDamage(result) || (isStale && attempt == 0))) {
        ALOGE("%s: %s: %s, opening it again", operation, mShownPath.c_str(),
              errorText(mConnection.get(), result).c_str());
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
    if (isBusy(result)) setPatience(true);
    return false;
}

void SettingsDatabase::setPatience(bool impatient) {
    mImpatient = impatient;
    const auto patience = impatient ? kBriefly : kPatience;
    (void)sqlite3_busy_timeout(mConnection.get(), static_cast<int>(patience.count()));
}

void SettingsDatabase::logFailure(const char* operation, int result) const {
    ALOGE("%s: %s: %s", operation, mShownPath.c_str(),
          errorText(mConnection.get(), result).c_str());
}

void SettingsDatabase::logLostWrite(const char* operation, int result) const {
    if (mAccess == Access::kWritable) {
        logFailure(operation, result);
    } else {
        ALOGE("%s: %s: not stored, the database is not open%s: %s", operation, mShownPath.c_str(),
              mConnection == nullptr ? "" : " for writing", mOpenError.c_str());
    }
}

void SettingsDatabase::keep(KeptWrite write) {
    const char* const operation = write.operation;
    switch (mKept.keep(std::move(write))) {
        case KeptWrites::Kept::kNew:
            ALOGW("%s: %s: database is locked, kept until it is free", operation,
                  mShownPath.c_str());
            break;
        case KeptWrites::Kept::kFull:
            ALOGE("%s: %s: database is locked, and too much is kept already: not stored", operation,
                  mShownPath.c_str());
            break;
        case KeptWrites::Kept::kReplaced:
            break;
    }
    WriteRetry::wake();
}

size_t SettingsDatabase::storeKeptNow(std::chrono::milliseconds patience) {
    while (!mKept.empty()) {
        mImpatient = true;  // A success sets it back.
        if (mConnection != nullptr) {
            (void)sqlite3_busy_timeout(mConnection.get(), static_cast<int>(patience.count()));
        }
        const KeptWrite& write = mKept.oldest();
        const auto work = [this, &write](const SettingsDatabase& database) {
            return mAccess == Access::kWritable ? write.work(database) : whyNotOpen();
        };
        const int result = perform(write.operation, work);
        if (isBusy(result)) break;
        if (result == SQLITE_OK) {
            ALOGI("%s: %s: what was kept is stored", write.operation, mShownPath.c_str());
        } else {
            logLostWrite(write.operation, result);
        }
        mKept.dropOldest();
    }
    return mKept.size();
}

size_t SettingsDatabase::storeKept(std::chrono::milliseconds patience, bool isLast) {
    Mutex::Autolock lock(mStoreLock);
    if (mKept.empty()) return 0;
    if (isLast) mNextOpen = {};
    const size_t left = storeKeptNow(patience);
    if (left != 0 && mConnection != nullptr) setPatience(true);
    for (const KeptWrite& write : mKept.all()) {
        if (!isLast) break;
        ALOGE("%s: %s: could not be stored in time, the database is locked", write.operation,
              mShownPath.c_str());
    }
    return left;
}

void SettingsDatabase::abandon() {
    mStatements.clear();
    mAccess = Access::kNone;
    if (mConnection == nullptr) return;
    // Closing the last connection would clear away the log at the path, which may be another file's
    // by now.
    (void)sqlite3_db_config(mConnection.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    mConnection.reset();
}

}  // namespace android
