#pragma once

#include <sqlite3.h>

#include <chrono>
#include <memory>
#include <shared_mutex>
#include <string>
#include <utility>
#include <vector>

#include <utils/Mutex.h>

#include "DatabaseFile.h"
#include "FileLayout.h"
#include "KeptWrites.h"
#include "Sql.h"
#include "Statement.h"
#include "WriteRetry.h"

namespace android {

struct StoreStatement {
    enum Use { kReads, kWrites };
    Use use;
    std::string sql;
};

// What a store keeps in the file.
struct StoreSchema {
    std::vector<TableLayout> tables;
    LayoutMark mark;
    // Prepared once per connection, used by index.
    std::vector<StoreStatement> statements;
};

// One store's connection to a database file that several stores may share. It is opened on the
// first use and again whenever the path names another file. A file of a former layout is brought
// up; a damaged one, or one with tables of another shape, is moved aside and replaced by a fresh
// one; one of a newer layout is not touched; one that can be read but not written is read. While it
// cannot be opened, or not for writing, opening is tried again after a second, then at growing
// distances of up to a minute.
//
// A write that meets a locked file is kept and carried out later, see write().
//
// Not thread-safe: a store calls it under its own lock, which it passes to the constructor, since
// the thread that retries kept writes takes it as well. Two objects on one path, in any threads or
// processes, are safe beside each other.
class SettingsDatabase final : private WriteRetry::Keeper {
public:
    // `path` is the device's path; log lines show it.
    SettingsDatabase(const std::string& path, StoreSchema schema, Mutex* storeLock);
    // Tries once more to store what is kept. Called without the store's lock.
    ~SettingsDatabase() override;
    SettingsDatabase(const SettingsDatabase&) = delete;
    SettingsDatabase& operator=(const SettingsDatabase&) = delete;

    // Opens it now, so that its state shows in the log at start-up.
    void openEarly();

    // Runs `work`, a callable that takes this object, uses its statement() and returns SQLITE_OK or
    // an error code, perhaps again after a repair. False when it could not be done; that is then
    // logged under the operation's name.
    template <typename Work>
    [[nodiscard]] bool read(const char* operation, Work&& work) {
        const int result = perform(operation, work);
        if (result != SQLITE_OK && mConnection != nullptr) logFailure(operation, result);
        return result == SQLITE_OK;
    }

    // The same for a change of one row to `value`. When another process or connection locks the
    // file for longer than patience lasts, the write is kept until the file is free; kept() answers
    // it until then. A later write of the row takes its place. `work` owns all that it needs, since
    // it may run later; the operation's name is a literal.
    template <typename Work>
    void write(const char* operation, RowKey key, RowValue value, Work&& work) {
        const int result = performWrite(operation, work);
        if (result == SQLITE_OK) return;
        if (isBusy(result)) {
            keep({std::move(key), std::move(value), operation, std::forward<Work>(work)});
        } else {
            logLostWrite(operation, result);
        }
    }

    // The same for a change that is done now or not at all: it is never kept.
    template <typename Work>
    void writeNowOrNever(const char* operation, Work&& work) {
        const int result = performWrite(operation, work);
        if (result != SQLITE_OK) logLostWrite(operation, result);
    }

    const KeptWrites& kept() const { return mKept; }

    // Only inside `work`.
    sqlite3_stmt* statement(size_t index) const { return mStatements[index].get(); }
    sqlite3* connection() const { return mConnection.get(); }

private:
    using InUse = std::shared_lock<std::shared_mutex>;
    // How long a call waits for a file that was locked a moment ago.
    static constexpr std::chrono::milliseconds kBriefly{20};
    // How the file is open.
    enum class Access {
        kNone,
        kWritable,
        kReadOnly,
        kSnapshot,  // read only, and without locks: nobody seemed to be writing
    };

    template <typename Work>
    int perform(const char* operation, Work& work) {
        for (int attempt = 0;; ++attempt) {
            InUse inUse = acquire();
            if (!inUse) return whyNotOpen();
            const int result = work(std::as_const(*this));
            if (result == SQLITE_OK && isUntorn()) {
                if (mImpatient) setPatience(false);
                return SQLITE_OK;
            }
            if (!repair(operation, result, attempt, &inUse)) {
                return result == SQLITE_OK ? SQLITE_BUSY : result;  // torn again and again
            }
        }
    }

    // What was kept before goes first, so that the order in which callers wrote is that of the
    // file.
    template <typename Work>
    int performWrite(const char* operation, Work& work) {
        if (!mKept.empty() && storeKeptNow(kBriefly) != 0) return SQLITE_BUSY;
        const auto writing = [this, &work](const SettingsDatabase& database) {
            return mAccess == Access::kWritable ? work(database) : whyNotOpen();
        };
        return perform(operation, writing);
    }

    // The file's shared lock with a connection to the file that the path names now; without the
    // lock when there is none.
    InUse acquire();
    bool isCurrent() const;
    // Whether what was just read without locks was not being written meanwhile.
    bool isUntorn() const;
    // Decides after a failed `work` whether to run it again, and prepares that.
    bool repair(const char* operation, int result, int attempt, InUse* inUse);
    void setPatience(bool impatient);
    // An error code, also when the file is taken away faster than it can be opened.
    int whyNotOpen() const { return mOpenResult == SQLITE_OK ? SQLITE_CANTOPEN : mOpenResult; }
    void logFailure(const char* operation, int result) const;
    void logLostWrite(const char* operation, int result) const;

    void keep(KeptWrite write);
    // Waits so long for a locked file, and returns how many are left because it is locked still.
    size_t storeKeptNow(std::chrono::milliseconds patience);
    size_t storeKept(std::chrono::milliseconds patience, bool isLast) override;

    // The calls below need the file's lock exclusively.
    bool open();
    int openLocked(std::string* outError);
    int openForWriting(std::string* outError);
    bool openForReading(int cause);
    bool replaceDamaged(std::string* outError);
    int connect(const std::string& name, int flags, std::string* outError);
    int connectWritable(std::string* outError);
    int check(int* outLayout, std::string* outError);
    int configure(std::string* outError);
    int prepare(std::string* outError);

    // Lets go of the connection without touching the files at the path.
    void abandon();

    const std::string mShownPath;
    const StoreSchema mSchema;
    Mutex& mStoreLock;
    const std::shared_ptr<DatabaseFile> mFile;
    OwnedConnection mConnection;
    Access mAccess = Access::kNone;
    std::vector<OwnedStatement> mStatements;
    FileIdentity mIdentity;  // of the file behind mConnection
    FileStamp mStamp;        // the same for a snapshot
    // A file that showed damage although it passed the check.
    FileIdentity mCondemned;
    bool mHasCondemned = false;
    // Another process held the file for too long: until a call succeeds, wait only briefly, so that
    // a row of calls does not add up.
    bool mImpatient = false;
    // Why it is not open, or not for writing.
    int mOpenResult = SQLITE_CANTOPEN;
    std::string mOpenError;
    // The last opening that failed for writing succeeded for reading.
    bool mIsReadable = false;
    std::chrono::steady_clock::time_point mNextOpen;
    std::chrono::milliseconds mOpenBackoff;
    KeptWrites mKept;
    const std::shared_ptr<WriteRetry> mRetry;
};

}  // namespace android
