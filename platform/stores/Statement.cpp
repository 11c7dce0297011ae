#include "Statement.h"

#include <sqlite3.h>

namespace android {

Statement::~Statement() {
    (void)sqlite3_reset(mPrepared);  // Repeats the error of the last step, which was reported.
}

Statement& Statement::bind(int index, int64_t number) {
    if (mError == SQLITE_OK) mError = sqlite3_bind_int64(mPrepared, index, number);
    return *this;
}

Statement& Statement::bindText(int index, std::string_view text) {
    if (mError == SQLITE_OK) {
        // A null pointer would bind NULL instead of the empty text.
        mError = sqlite3_bind_text64(mPrepared, index, text.empty() ? "" : text.data(), text.size(),
                                     SQLITE_STATIC, SQLITE_UTF8);
    }
    return *this;
}

Statement& Statement::bindBlob(int index, std::string_view bytes) {
    if (mError == SQLITE_OK) {
        mError = sqlite3_bind_blob64(mPrepared, index, bytes.data(), bytes.size(), SQLITE_STATIC);
    }
    return *this;
}

int Statement::step() {
    if (mError != SQLITE_OK) return mError;
    const int result = sqlite3_step(mPrepared);
    if (result != SQLITE_ROW && result != SQLITE_DONE) mError = result;
    return result;
}

int Statement::run() {
    const int result = step();
    return result == SQLITE_DONE || result == SQLITE_ROW ? SQLITE_OK : result;
}

int64_t Statement::integer(int column) const {
    return sqlite3_column_int64(mPrepared, column);
}

std::string_view Statement::bytes(int column) const {
    // The pointer before the length: the other order may convert in between.
    const auto* data = static_cast<const char*>(sqlite3_column_blob(mPrepared, column));
    const int size = sqlite3_column_bytes(mPrepared, column);
    return data == nullptr ? std::string_view() : std::string_view(data, static_cast<size_t>(size));
}

Transaction::~Transaction() {
    // A failed statement may have rolled back already.
    if (mBegun && sqlite3_get_autocommit(mConnection) == 0) {
        (void)sqlite3_exec(mConnection, "ROLLBACK", nullptr, nullptr, nullptr);
    }
}

int Transaction::begin() {
    const int result = sqlite3_exec(mConnection, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
    mBegun = result == SQLITE_OK;
    return result;
}

int Transaction::commit() {
    return sqlite3_exec(mConnection, "COMMIT", nullptr, nullptr, nullptr);
}

}  // namespace android
