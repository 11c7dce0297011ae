#include <qelto/FgeDatabase.h>

#include <algorithm>
#include <set>

#include "SettingsDatabase.h"

namespace android {
namespace {

constexpr int kNotListed = -1;

enum StatementIndex : size_t { kGetAll, kSetValue, kAdd, kSetListed };

// A package that leaves the list keeps its row and value, so that the value returns with it.
StoreSchema fgeSchema() {
    StoreSchema schema;
    schema.tables = fgeTables();
    schema.statements = {
            {StoreStatement::kReads,
             "SELECT package, value, listed FROM FGE_INFO WHERE user_id = ?1"},
            {StoreStatement::kWrites,
             "INSERT INTO FGE_INFO(user_id, package, value, listed) VALUES(?1, ?2, ?3, 1)"
             " ON CONFLICT DO UPDATE SET value = excluded.value"},
            {StoreStatement::kWrites,
             "INSERT INTO FGE_INFO(user_id, package, value, listed) VALUES(?1, ?2, ?3, ?4)"},
            {StoreStatement::kWrites,
             "UPDATE FGE_INFO SET listed = ?3 WHERE user_id = ?1 AND package = ?2"},
    };
    return schema;
}

// Of one package's value, or with kSetListed and no package of the user's list.
RowKey keyOf(StatementIndex statement, int32_t user, const std::string& package = "") {
    RowKey key;
    key.statement = statement;
    key.user = user;
    key.package = package;
    return key;
}

struct StoredSwitch {
    int value;
    bool listed;
};
using StoredSwitches = std::map<std::string, StoredSwitch>;

int readSwitches(const SettingsDatabase& database, int32_t user, StoredSwitches* outSwitches) {
    outSwitches->clear();
    Statement query(database.statement(kGetAll));
    query.bind(1, user);
    int result = query.step();
    for (; result == SQLITE_ROW; result = query.step()) {
        (*outSwitches)[std::string(query.bytes(0))] = {static_cast<int>(query.integer(1)),
                                                       query.integer(2) != 0};
    }
    return result == SQLITE_DONE ? SQLITE_OK : result;
}

// What the writes that are still kept will change, in their order.
void addKept(const KeptWrites& kept, int32_t user, StoredSwitches* switches) {
    for (const KeptWrite& write : kept.all()) {
        if (write.key.user != user) continue;
        if (const auto* const value = std::get_if<int64_t>(&write.value)) {
            const auto added = switches->insert({write.key.package, {0, true}}).first;
            added->second.value = static_cast<int>(*value);
        } else if (const auto* const listed = std::get_if<std::set<std::string>>(&write.value)) {
            for (auto& [pkg, entry] : *switches)
                entry.listed = listed->count(pkg) != 0;
            for (const std::string& pkg : *listed)
                switches->insert({pkg, {0, true}});
        }
    }
}

// Writes the rows that differ from what the list asks for.
int writeDifferences(const SettingsDatabase& database, int32_t user, const StoredSwitches& stored,
                     const std::set<std::string>& listed) {
    for (const auto& [pkg, entry] : stored) {
        const bool isListed = listed.count(pkg) != 0;
        if (isListed == entry.listed) continue;
        Statement update(database.statement(kSetListed));
        const int result = update.bind(1, user).bindText(2, pkg).bind(3, isListed).run();
        if (result != SQLITE_OK) return result;
    }
    for (const std::string& pkg : listed) {
        if (stored.count(pkg) != 0) continue;
        Statement insert(database.statement(kAdd));
        const int result = insert.bind(1, user).bindText(2, pkg).bind(3, 0).bind(4, true).run();
        if (result != SQLITE_OK) return result;
    }
    return SQLITE_OK;
}

int writeList(const SettingsDatabase& database, int32_t user, const std::set<std::string>& listed) {
    Transaction transaction(database.connection());
    int result = transaction.begin();
    StoredSwitches stored;
    if (result == SQLITE_OK) result = readSwitches(database, user, &stored);
    if (result == SQLITE_OK) result = writeDifferences(database, user, stored, listed);
    return result == SQLITE_OK ? transaction.commit() : result;
}

}  // namespace

FgeDatabase::FgeDatabase(const std::string& path)
        : mDatabase(std::make_unique<SettingsDatabase>(path, fgeSchema(), &mLock)) {
    Mutex::Autolock lock(mLock);
    mDatabase->openEarly();
}

FgeDatabase::~FgeDatabase() = default;

void FgeDatabase::getSwitchForPkgName(std::map<std::string, int>& map) {
    const int32_t user = mCurrentUserId;
    StoredSwitches stored;
    {
        Mutex::Autolock lock(mLock);
        const bool isRead = mDatabase->read(__func__, [&](const SettingsDatabase& database) {
            return readSwitches(database, user, &stored);
        });
        if (!isRead && mDatabase->kept().empty()) return;
        addKept(mDatabase->kept(), user, &stored);
    }
    for (const auto& [pkg, entry] : stored)
        map[pkg] = entry.listed ? entry.value : kNotListed;
}

void FgeDatabase::setFastGameEffectOn(const std::string& pkgName, int value) {
    const int32_t user = mCurrentUserId;
    Mutex::Autolock lock(mLock);
    const auto work = [user, pkgName, value](const SettingsDatabase& database) {
        Statement upsert(database.statement(kSetValue));
        return upsert.bind(1, user).bindText(2, pkgName).bind(3, value).run();
    };
    mDatabase->write(__func__, keyOf(kSetValue, user, pkgName), value, work);
}

void FgeDatabase::updateDataBase(const std::vector<std::string>& pkgs,
                                 const std::map<std::string, int>& /*known*/) {
    const int32_t user = mCurrentUserId;
    const std::set<std::string> listed(pkgs.begin(), pkgs.end());
    Mutex::Autolock lock(mLock);
    const auto work = [user, listed](const SettingsDatabase& database) {
        return writeList(database, user, listed);
    };
    mDatabase->write(__func__, keyOf(kSetListed, user), listed, work);
}

}  // namespace android
