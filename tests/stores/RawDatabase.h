#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <string>

namespace android {

// A connection beside the stores, as a tool or a foreign program would have one.
class RawDatabase {
public:
    explicit RawDatabase(const std::string& path) {
        EXPECT_EQ(sqlite3_open(path.c_str(), &mConnection), SQLITE_OK);
    }
    ~RawDatabase() { EXPECT_EQ(sqlite3_close(mConnection), SQLITE_OK); }
    RawDatabase(const RawDatabase&) = delete;
    RawDatabase& operator=(const RawDatabase&) = delete;

    void run(const std::string& sql) {
        EXPECT_EQ(sqlite3_exec(mConnection, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
                << sql << ": " << sqlite3_errmsg(mConnection);
    }

    // The last row's first column.
    std::string query(const std::string& sql) {
        std::string text;
        const auto take = [](void* out, int, char** values, char**) {
            *static_cast<std::string*>(out) = values[0] == nullptr ? "(null)" : values[0];
            return 0;
        };
        EXPECT_EQ(sqlite3_exec(mConnection, sql.c_str(), take, &text, nullptr), SQLITE_OK) << sql;
        return text;
    }

private:
    sqlite3* mConnection = nullptr;
};

}  // namespace android
