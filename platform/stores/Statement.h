#pragma once

#include <cstdint>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace android {

// One use of a prepared statement: bind, step, read columns. The destructor resets it for the next
// use. The first error sticks and is what step() then returns. Texts and blobs are not copied: they
// must live until the last step().
class Statement {
public:
    explicit Statement(sqlite3_stmt* prepared) : mPrepared(prepared) {}
    ~Statement();
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    Statement& bind(int index, int64_t number);
    Statement& bindText(int index, std::string_view text);
    Statement& bindBlob(int index, std::string_view bytes);

    // SQLITE_ROW, SQLITE_DONE or an error code.
    [[nodiscard]] int step();
    // For a statement without rows: SQLITE_OK or an error code.
    [[nodiscard]] int run();

    int64_t integer(int column) const;
    // Valid until the next step.
    std::string_view bytes(int column) const;

private:
    sqlite3_stmt* const mPrepared;
    int mError = 0;
};

// A write transaction, rolled back unless committed.
class Transaction {
public:
    explicit Transaction(sqlite3* connection) : mConnection(connection) {}
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    // SQLITE_OK or an error code. begin() waits for other writers.
    [[nodiscard]] int begin();
    [[nodiscard]] int commit();

private:
    sqlite3* const mConnection;
    bool mBegun = false;
};

}  // namespace android
