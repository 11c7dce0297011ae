#include "Sql.h"

#include <system_error>

#include "Statement.h"

namespace android {

int execute(sqlite3* connection, const std::string& sql, std::string* outError) {
    const int result = sqlite3_exec(connection, sql.c_str(), nullptr, nullptr, nullptr);
    if (result != SQLITE_OK) *outError = errorText(connection, result);
    return result;
}

int queryText(sqlite3* connection, const std::string& sql, std::string* outText,
              std::string* outError) {
    outText->clear();
    sqlite3_stmt* prepared = nullptr;
    int result = sqlite3_prepare_v2(connection, sql.c_str(), static_cast<int>(sql.size()),
                                    &prepared, nullptr);
    const OwnedStatement owner(prepared);
    if (result == SQLITE_OK) {
        Statement query(prepared);
        result = query.step();
        if (result == SQLITE_ROW) *outText = query.bytes(0);
        if (result == SQLITE_ROW || result == SQLITE_DONE) return SQLITE_OK;
    }
    *outError = errorText(connection, result);
    return result;
}

std::string errorText(sqlite3* connection, int result) {
    const bool isLast = connection != nullptr &&
                        primaryCode(sqlite3_errcode(connection)) == primaryCode(result);
    std::string text = isLast ? sqlite3_errmsg(connection) : sqlite3_errstr(result);
    const int systemError = isLast ? sqlite3_system_errno(connection) : 0;
    if (systemError != 0) text += " (" + std::system_category().message(systemError) + ")";
    return text;
}

std::string quoted(const std::string& text) {
    std::string literal = "'";
    for (const char c : text) {
        literal += c;
        if (c == '\'') literal += c;
    }
    return literal + "'";
}

}  // namespace android
