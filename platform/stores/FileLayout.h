// The layouts that the database file has had, and how a file of a former one is brought up. The
// layout belongs to the file, not to a store: whichever store opens it first brings up all tables,
// those of the others included. The file's user_version is its layout.
//
//   1  the first
//   2  positions say whether a user chose them
//
// A new layout is one more step at the tables that change, a new number here, and a file of the
// layout before it in tests/data/stores.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "Sql.h"

namespace android {

class DatabaseFile;

constexpr int kFileLayout = 2;

struct TableLayout {
    std::string name;
    // SQL: steps[n - 1] leads this table from layout n - 1 to n, layout 0 being no table at all.
    // Empty where the table does not change.
    std::array<std::string, kFileLayout> steps;
};

// The tables of each store. `name` is a plain SQL name.
std::vector<TableLayout> metaTables(const std::string& name);
std::vector<TableLayout> mssTables();
std::vector<TableLayout> fgeTables();

// Whether a name may be that of a settings table: a plain word that no other table has.
bool isMetaTableName(const std::string& name);

// The functions below return SQLITE_OK or an error code, and then set outError.

// 0 for a file that no store has used. SQLITE_MISMATCH for a layout that this code does not know.
[[nodiscard]] int readLayout(sqlite3* connection, int* outLayout, std::string* outError);

// SQLITE_CORRUPT when one of the tables is there with another shape than it has in that layout.
// outAllThere, which may be null: none is missing.
[[nodiscard]] int checkShapes(sqlite3* connection, int layout,
                              const std::vector<TableLayout>& tables, std::string* outError,
                              bool* outAllThere = nullptr);

// Brings a file of a former layout up to kFileLayout, one transaction a step, so that an end of the
// process at any moment leaves the file in one layout or the next and a later call goes on. A copy
// of the file is set aside first. Does nothing to a file of layout 0 or kFileLayout. Other
// processes may do the same at once. outFrom is the layout of which a copy was set aside, 0 when
// there was nothing to do.
[[nodiscard]] int bringUp(sqlite3* connection, const DatabaseFile& file, int* outFrom,
                          std::string* outError);

// Makes those of the tables that are missing and records `mark` in META_LAYOUT unless it is
// recorded; a file of layout 0 gets its number. One transaction, and none when nothing is missing.
struct LayoutMark {
    std::string table;  // empty: nothing to record
    std::string version;
};
[[nodiscard]] int completeTables(sqlite3* connection, const std::vector<TableLayout>& tables,
                                 const LayoutMark& mark, std::string* outError);

}  // namespace android
