#include "FileLayout.h"

#include <strings.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <mutex>
#include <utility>

#include "DatabaseFile.h"
#include "Statement.h"

namespace android {
namespace {

constexpr size_t kMaxTableLength = 64;
constexpr const char* kUsualMetaTable = "META_INFO";
constexpr const char* kLayoutTable = "META_LAYOUT";
constexpr const char* kOtherTables[] = {"MSS_INFO", "FGE_INFO", kLayoutTable};

std::string createTable(const std::string& name, const std::string& columns) {
    return "CREATE TABLE \"" + name + "\"(" + columns + ") STRICT";
}

// A table's kind and columns as one text, empty when it is missing.
int readShape(sqlite3* connection, const std::string& table, std::string* outShape,
              std::string* outError) {
    const std::string name = quoted(table);
    return queryText(
            connection,
            "SELECT type || (SELECT group_concat(c, '') FROM (SELECT ', ' || name || ' ' || type"
            " || ' ' || \"notnull\" || ' ' || pk || ' ' || coalesce(dflt_value, '') AS c FROM"
            " pragma_table_xinfo(" +
                    name +
                    ") ORDER BY cid)) FROM sqlite_schema WHERE type IN ('table', 'view') AND"
                    " name = " +
                    name + " COLLATE NOCASE",
            outShape, outError);
}

// The shape that a table's own steps give it in a fresh database.
int makeShape(int layout, const TableLayout& table, std::string* outShape, std::string* outError) {
    sqlite3* raw = nullptr;
    int result = sqlite3_open(":memory:", &raw);
    const OwnedConnection memory(raw);
    for (int n = 0; n < layout && result == SQLITE_OK; ++n)
        result = execute(raw, table.steps.at(static_cast<size_t>(n)), outError);
    return result == SQLITE_OK ? readShape(raw, table.name, outShape, outError) : result;
}

// The same, made once in the life of the process.
int expectedShape(int layout, const TableLayout& table, std::string* outShape,
                  std::string* outError) {
    static std::mutex lock;
    static auto& shapes = *new std::map<std::pair<int, std::string>, std::string>;
    const std::lock_guard<std::mutex> guard(lock);
    const auto known = shapes.find({layout, table.name});
    if (known != shapes.end()) {
        *outShape = known->second;
        return SQLITE_OK;
    }
    const int result = makeShape(layout, table, outShape, outError);
    if (result == SQLITE_OK) shapes[{layout, table.name}] = *outShape;
    return result;
}

// Every table that any store may have in the file.
int allTables(sqlite3* connection, int layout, std::vector<TableLayout>* outTables,
              std::string* outError) {
    *outTables = mssTables();
    const auto add = [outTables](const std::vector<TableLayout>& tables) {
        for (const TableLayout& table : tables) {
            const auto isSame = [&table](const TableLayout& known) {
                return strcasecmp(known.name.c_str(), table.name.c_str()) == 0;
            };
            if (std::none_of(outTables->begin(), outTables->end(), isSame)) {
                outTables->push_back(table);
            }
        }
    };
    add(fgeTables());
    // The names in META_LAYOUT can be read only once that table is known to be what it should be;
    // the usual table may stand in a file whose writer ended before it could record the name.
    const std::vector<TableLayout> usual = metaTables(kUsualMetaTable);
    add(usual);
    int result = checkShapes(connection, layout, usual, outError);
    std::string shape;
    if (result == SQLITE_OK) result = readShape(connection, kLayoutTable, &shape, outError);
    if (result != SQLITE_OK || shape.empty()) return result;
    std::string names;
    result = queryText(connection, "SELECT group_concat(table_name, ' ') FROM META_LAYOUT", &names,
                       outError);
    for (size_t begin = 0; begin < names.size();) {
        const size_t end = std::min(names.find(' ', begin), names.size());
        const std::string name = names.substr(begin, end - begin);
        if (isMetaTableName(name)) add(metaTables(name));
        begin = end + 1;
    }
    return result;
}

// The tables that are there, in the shape of that layout.
int checkAllTables(sqlite3* connection, int layout, std::vector<TableLayout>* outTables,
                   std::string* outError) {
    std::vector<TableLayout> tables;
    int result = allTables(connection, layout, &tables, outError);
    if (result == SQLITE_OK) result = checkShapes(connection, layout, tables, outError);
    for (const TableLayout& table : tables) {
        std::string shape;
        if (result == SQLITE_OK) result = readShape(connection, table.name, &shape, outError);
        // The store that needs a missing one makes it, in the newest layout.
        if (!shape.empty()) outTables->push_back(table);
    }
    return result;
}

// One step for the whole file, after a copy of it when `copyTo` is given. Nobody else can write
// between the copy and the step. outTaken is false when another process was faster.
int takeStep(sqlite3* connection, int from, const DatabaseFile* copyTo, bool* outTaken,
             std::string* outError) {
    *outTaken = false;
    Transaction transaction(connection);
    int result = transaction.begin();
    if (result != SQLITE_OK) {
        *outError = errorText(connection, result);
        return result;
    }
    int layout = 0;
    result = readLayout(connection, &layout, outError);
    if (result != SQLITE_OK || layout != from) return result;
    std::vector<TableLayout> tables;
    result = checkAllTables(connection, from, &tables, outError);
    if (result == SQLITE_OK && copyTo != nullptr) {
        result = copyTo->copyAside("layout-" + std::to_string(from), outError);
    }
    for (const TableLayout& table : tables) {
        if (result != SQLITE_OK) return result;
        result = execute(connection, table.steps.at(static_cast<size_t>(from)), outError);
    }
    if (result == SQLITE_OK) {
        result = execute(connection, "PRAGMA user_version = " + std::to_string(from + 1), outError);
    }
    if (result == SQLITE_OK) {
        result = transaction.commit();
        if (result != SQLITE_OK) *outError = errorText(connection, result);
    }
    *outTaken = result == SQLITE_OK;
    return result;
}

int isMarked(sqlite3* connection, const LayoutMark& mark, bool* outMarked, std::string* outError) {
    *outMarked = true;
    if (mark.table.empty()) return SQLITE_OK;
    std::string text;
    const int result =
            queryText(connection,
                      "SELECT 1 FROM META_LAYOUT WHERE table_name = " + quoted(mark.table) +
                              " AND version = " + quoted(mark.version),
                      &text, outError);
    *outMarked = !text.empty();
    return result;
}

int makeMissing(sqlite3* connection, const std::vector<TableLayout>& tables,
                std::string* outError) {
    for (const TableLayout& table : tables) {
        std::string shape;
        int result = readShape(connection, table.name, &shape, outError);
        for (const std::string& step : table.steps) {
            if (result == SQLITE_OK && shape.empty()) result = execute(connection, step, outError);
        }
        if (result != SQLITE_OK) return result;
    }
    return SQLITE_OK;
}

}  // namespace

std::vector<TableLayout> metaTables(const std::string& name) {
    const std::string positions = name + "_POSITION";
    return {{name,
             {createTable(name,
                          "user_id INTEGER NOT NULL, device INTEGER NOT NULL,"
                          " is_on INTEGER NOT NULL DEFAULT 0, mode INTEGER NOT NULL DEFAULT 0,"
                          " seeded INTEGER NOT NULL DEFAULT 0, PRIMARY KEY(user_id, device)") +
                      ", WITHOUT ROWID",
              ""}},
            {positions,
             {createTable(positions,
                          "user_id INTEGER NOT NULL, device INTEGER NOT NULL,"
                          " scene INTEGER NOT NULL, xyz BLOB NOT NULL CHECK(length(xyz) = 12),"
                          " PRIMARY KEY(user_id, device, scene)") +
                      ", WITHOUT ROWID",
              // Where an older position came from is not known: it stays as if chosen.
              "ALTER TABLE \"" + positions + "\" ADD COLUMN chosen INTEGER NOT NULL DEFAULT 1"}},
            {kLayoutTable,
             {createTable(kLayoutTable, "table_name TEXT PRIMARY KEY, version TEXT NOT NULL") +
                      ", WITHOUT ROWID",
              ""}}};
}

std::vector<TableLayout> mssTables() {
    return {{"MSS_INFO",
             {createTable("MSS_INFO",
                          "user_id INTEGER PRIMARY KEY, sound_widen_mode INTEGER NOT NULL"),
              ""}}};
}

std::vector<TableLayout> fgeTables() {
    return {{"FGE_INFO",
             {createTable("FGE_INFO",
                          "user_id INTEGER NOT NULL, package TEXT NOT NULL, value INTEGER NOT NULL,"
                          " listed INTEGER NOT NULL, PRIMARY KEY(user_id, package)") +
                      ", WITHOUT ROWID",
              ""}}};
}

bool isMetaTableName(const std::string& name) {
    const auto isWordChar = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               c == '_';
    };
    if (name.empty() || name.size() > kMaxTableLength) return false;
    if (name[0] >= '0' && name[0] <= '9') return false;
    if (!std::all_of(name.begin(), name.end(), isWordChar)) return false;
    if (strncasecmp(name.c_str(), "sqlite_", 7) == 0) return false;
    return std::none_of(
            std::begin(kOtherTables), std::end(kOtherTables),
            [&name](const char* other) { return strcasecmp(name.c_str(), other) == 0; });
}

int readLayout(sqlite3* connection, int* outLayout, std::string* outError) {
    std::string text;
    const int result = queryText(connection, "PRAGMA user_version", &text, outError);
    if (result != SQLITE_OK) return result;
    const long layout = strtol(text.c_str(), nullptr, 10);
    if (layout < 0) {
        *outError = "its schema " + text + " is none of ours";
        return SQLITE_CORRUPT;
    }
    if (layout > kFileLayout) {
        *outError = "its schema " + text + " is newer than " + std::to_string(kFileLayout) +
                    ", it is left as it is";
        return SQLITE_MISMATCH;
    }
    *outLayout = static_cast<int>(layout);
    return SQLITE_OK;
}

int checkShapes(sqlite3* connection, int layout, const std::vector<TableLayout>& tables,
                std::string* outError, bool* outAllThere) {
    bool isMissing = false;
    for (const TableLayout& table : tables) {
        std::string expected;
        std::string found;
        int result = expectedShape(layout, table, &expected, outError);
        if (result != SQLITE_OK) return result;
        result = readShape(connection, table.name, &found, outError);
        // A view that leads nowhere has no columns to read.
        const bool isUnreadable = primaryCode(result) == SQLITE_ERROR;
        if (isUnreadable || (result == SQLITE_OK && !found.empty() && found != expected)) {
            *outError = "table " + table.name + " has another shape";
            return SQLITE_CORRUPT;
        }
        if (result != SQLITE_OK) return result;
        isMissing = isMissing || found.empty();
    }
    if (outAllThere != nullptr) *outAllThere = !isMissing;
    return SQLITE_OK;
}

int bringUp(sqlite3* connection, const DatabaseFile& file, int* outFrom, std::string* outError) {
    *outFrom = 0;
    int layout = 0;
    int result = readLayout(connection, &layout, outError);
    if (layout == 0) return result;
    for (; layout < kFileLayout && result == SQLITE_OK; ++layout) {
        bool isTaken = false;
        result = takeStep(connection, layout, *outFrom == 0 ? &file : nullptr, &isTaken, outError);
        if (isTaken && *outFrom == 0) *outFrom = layout;
    }
    return result;
}

int completeTables(sqlite3* connection, const std::vector<TableLayout>& tables,
                   const LayoutMark& mark, std::string* outError) {
    int layout = 0;
    int result = readLayout(connection, &layout, outError);
    if (result == SQLITE_OK && layout != 0) {
        bool isComplete = false;
        result = checkShapes(connection, layout, tables, outError, &isComplete);
        if (result == SQLITE_OK && isComplete) {
            result = isMarked(connection, mark, &isComplete, outError);
        }
        if (result != SQLITE_OK || isComplete) return result;
    }
    Transaction transaction(connection);
    if (result == SQLITE_OK) {
        result = transaction.begin();
        if (result != SQLITE_OK) *outError = errorText(connection, result);
    }
    // Again, under the lock: another process may have been faster.
    if (result == SQLITE_OK) result = readLayout(connection, &layout, outError);
    if (result == SQLITE_OK && layout != 0 && layout != kFileLayout) {
        *outError = "an older program has just made it";
        return SQLITE_BUSY;
    }
    if (result == SQLITE_OK) result = makeMissing(connection, tables, outError);
    if (result == SQLITE_OK) result = checkShapes(connection, kFileLayout, tables, outError);
    if (result == SQLITE_OK && !mark.table.empty()) {
        result = execute(connection,
                         "INSERT OR REPLACE INTO META_LAYOUT VALUES(" + quoted(mark.table) + ", " +
                                 quoted(mark.version) + ")",
                         outError);
    }
    if (result == SQLITE_OK && layout == 0) {
        result = execute(connection, "PRAGMA user_version = " + std::to_string(kFileLayout),
                         outError);
    }
    if (result == SQLITE_OK) {
        result = transaction.commit();
        if (result != SQLITE_OK) *outError = errorText(connection, result);
    }
    return result;
}

}  // namespace android
