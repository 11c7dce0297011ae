// Small steps on an SQLite connection that the files of this folder share.
#pragma once

#include <sqlite3.h>

#include <memory>
#include <string>

namespace android {

struct CloseConnection {
    void operator()(sqlite3* connection) const { (void)sqlite3_close_v2(connection); }
};
struct FinalizeStatement {
    void operator()(sqlite3_stmt* statement) const { (void)sqlite3_finalize(statement); }
};
using OwnedConnection = std::unique_ptr<sqlite3, CloseConnection>;
using OwnedStatement = std::unique_ptr<sqlite3_stmt, FinalizeStatement>;

// A result code without SQLite's details.
inline int primaryCode(int result) {
    return result & 0xFF;
}
inline bool isBusy(int result) {
    return primaryCode(result) == SQLITE_BUSY;
}
inline bool isDamage(int result) {
    return primaryCode(result) == SQLITE_CORRUPT || primaryCode(result) == SQLITE_NOTADB;
}

// Both return SQLITE_OK or an error code, and then set outError to errorText().
[[nodiscard]] int execute(sqlite3* connection, const std::string& sql, std::string* outError);
// outText is the first column of the first row, empty without a row.
[[nodiscard]] int queryText(sqlite3* connection, const std::string& sql, std::string* outText,
                            std::string* outError);

// A result in SQLite's words, with the system's reason where there is one. The connection may be
// null.
std::string errorText(sqlite3* connection, int result);

// A text as an SQL literal, quotes included.
std::string quoted(const std::string& text);

}  // namespace android
