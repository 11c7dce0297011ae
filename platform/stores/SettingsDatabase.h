#pragma once

#include <sqlite3.h>

#include <chrono>
#include <memory>
#include <shared_mutex>
#include <string>
#include <utility>
#include <vector>

#include "DatabaseFile.h"
#include "Statement.h"

namespace android {

// What a store keeps in the file.
struct StoreSchema {
    // CREATE ... IF NOT EXISTS commands.
    std::string tables;
    // A query and what to do when it finds no row; both may be empty.
    std::string markQuery;
    std::string markCommand;
    // Prepared once per connection, used by index.
    std::vector<std::string> statements;
};

// One store's connection to a database file that several stores may share. It is opened on the
// first use and again whenever the path names another file; a damaged file is moved aside and
// replaced by a fresh one; one of a newer schema is not touched. While it cannot be opened, opening
// is tried again after a second, then at growing distances of up to a minute.
//
// Not thread-safe: a store calls it under its own lock. Two objects on one path, in any threads or
// processes, are safe beside each other.
class SettingsDatabase {
public:
    // `path` is the device's path; log lines show it.
    SettingsDatabase(const std::string& path, StoreSchema schema);
    ~SettingsDatabase();
    SettingsDatabase(const SettingsDatabase&) = delete;
    SettingsDatabase& operator=(const SettingsDatabase&) = delete;

    // Opens it now, so that its state shows in the log at start-up.
    void openEarly();

    // Runs `work`, a callable that takes this object, uses its statement() and returns SQLITE_OK or
    // an error code, perhaps again after a repair. False when it could not be done; that is then
    // logged under the operation's name. The two differ in that a lost write is logged even while
    // the file is known to be out of reach.
    template <typename Work>
    [[nodiscard]] bool read(const char* operation, Work&& work) {
        return perform(operation, work);
    }
    template <typename Work>
    [[nodiscard]] bool write(const char* operation, Work&& work) {
        if (perform(operation, work)) return true;
        if (mConnection == nullptr) logLostWrite(operation);
        return false;
    }

    // Only inside `work`.
    sqlite3_stmt* statement(size_t index) const { return mStatements[index].get(); }
    sqlite3* connection() const { return mConnection.get(); }

private:
    struct CloseConnection {
        void operator()(sqlite3* connection) const { (void)sqlite3_close_v2(connection); }
    };
    struct FinalizeStatement {
        void operator()(sqlite3_stmt* statement) const { (void)sqlite3_finalize(statement); }
    };
    using InUse = std::shared_lock<std::shared_mutex>;

    template <typename Work>
    bool perform(const char* operation, Work& work) {
        for (int attempt = 0;; ++attempt) {
            InUse inUse = acquire();
            if (!inUse) return false;
            const int result = work(std::as_const(*this));
            if (result == SQLITE_OK) {
                if (mImpatient) setPatience(false);
                return true;
            }
            if (!repair(operation, result, attempt, &inUse)) return false;
        }
    }

    // The file's shared lock with a connection to the file that the path names now; without the
    // lock when there is none.
    InUse acquire();
    // Decides after a failed `work` whether to run it again, and prepares that.
    bool repair(const char* operation, int result, int attempt, InUse* inUse);
    void setPatience(bool impatient);
    void logLostWrite(const char* operation) const;

    // The calls below need the file's lock exclusively.
    bool open();
    bool openLocked(std::string* outError);
    bool replaceDamaged(std::string* outError);
    int connect(std::string* outError);
    int check(std::string* outError);
    int configure(std::string* outError);
    int createTables(std::string* outError);
    int prepare(std::string* outError);
    int execute(const std::string& sql, std::string* outError);
    int queryText(const std::string& sql, std::string* outText, std::string* outError);

    // Lets go of the connection without touching the files at the path.
    void abandon();
    std::string errorText(int result) const;

    const std::string mShownPath;
    const StoreSchema mSchema;
    const std::shared_ptr<DatabaseFile> mFile;
    std::unique_ptr<sqlite3, CloseConnection> mConnection;
    std::vector<std::unique_ptr<sqlite3_stmt, FinalizeStatement>> mStatements;
    FileIdentity mIdentity;  // of the file behind mConnection
    // A file that showed damage although it passed the check.
    FileIdentity mCondemned;
    bool mHasCondemned = false;
    // Another process held the file for too long: until a call succeeds, wait only briefly, so that
    // a row of calls does not add up.
    bool mImpatient = false;
    std::string mOpenError;
    std::chrono::steady_clock::time_point mNextOpen;
    std::chrono::milliseconds mOpenBackoff;
};

}  // namespace android
