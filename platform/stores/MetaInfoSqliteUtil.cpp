#define LOG_TAG "SonorelStores"

#include <qelto/MetaInfoSqliteUtil.h>

#include <log/log.h>

#include <array>
#include <cstdio>
#include <cstring>

#include "SettingsDatabase.h"

namespace android {
namespace {

constexpr const char* kDefaultTable = "META_INFO";

enum StatementIndex : size_t {
    kGetOn,
    kSetOn,
    kGetMode,
    kSetMode,
    kGetSeeded,
    kSetSeeded,
    kGetPosition,
    kSetPosition,
    kSeedPosition,
};

using Position = std::array<float, 3>;

std::string usableTable(const std::string& name) {
    if (isMetaTableName(name)) return name;
    ALOGE("refused table name '%.64s', using %s", name.c_str(), kDefaultTable);
    return kDefaultTable;
}

StoreStatement getColumn(const std::string& table, const std::string& column) {
    return {StoreStatement::kReads,
            "SELECT " + column + " FROM " + table + " WHERE user_id = ?1 AND device = ?2"};
}

StoreStatement setColumn(const std::string& table, const std::string& column) {
    return {StoreStatement::kWrites, "INSERT INTO " + table + "(user_id, device, " + column +
                                             ") VALUES(?1, ?2, ?3) ON CONFLICT DO UPDATE SET " +
                                             column + " = excluded." + column};
}

// A position is chosen unless seeding wrote it, and seeding leaves chosen ones alone.
StoreStatement setPosition(const std::string& table, bool chosen) {
    return {StoreStatement::kWrites,
            "INSERT INTO " + table + "(user_id, device, scene, xyz, chosen) VALUES(?1, ?2, ?3, ?4" +
                    (chosen ? ", 1) ON CONFLICT DO UPDATE SET xyz = excluded.xyz, chosen = 1"
                            : ", 0) ON CONFLICT DO UPDATE SET xyz = excluded.xyz"
                              " WHERE chosen = 0")};
}

// Positions are the bytes of three floats: as numbers, SQLite would turn not-a-number into NULL and
// lose the sign of zero.
StoreSchema metaSchema(const std::string& name, float layoutVersion) {
    char version[32];
    (void)snprintf(version, sizeof(version), "%.9g", static_cast<double>(layoutVersion));
    const std::string table = '"' + name + '"';
    const std::string positions = '"' + name + "_POSITION\"";
    StoreSchema schema;
    schema.tables = metaTables(name);
    schema.mark = {name, version};
    schema.statements = {
            getColumn(table, "is_on"),
            setColumn(table, "is_on"),
            getColumn(table, "mode"),
            setColumn(table, "mode"),
            getColumn(table, "seeded"),
            setColumn(table, "seeded"),
            {StoreStatement::kReads,
             "SELECT xyz FROM " + positions + " WHERE user_id = ?1 AND device = ?2 AND scene = ?3"},
            setPosition(positions, true),
            setPosition(positions, false),
    };
    return schema;
}

int runSetColumn(const SettingsDatabase& database, size_t set, int user, int device, int value) {
    return Statement(database.statement(set)).bind(1, user).bind(2, device).bind(3, value).run();
}

int runSetPosition(const SettingsDatabase& database, StatementIndex statement, int user, int device,
                   int scene, const Position& position) {
    Statement upsert(database.statement(statement));
    upsert.bind(1, user).bind(2, device).bind(3, scene);
    upsert.bindBlob(4, {reinterpret_cast<const char*>(position.data()), sizeof(position)});
    return upsert.run();
}

}  // namespace

MetaInfoSqliteUtil::MetaInfoSqliteUtil(const std::string& path, const std::string& table,
                                       int sceneBound, float layoutVersion, int device)
        : mSceneBound(sceneBound),
          mDatabase(std::make_unique<SettingsDatabase>(
                  path, metaSchema(usableTable(table), layoutVersion), &mLock)) {
    if (device == META_DEVICE_SPEAKER || device == META_DEVICE_HEADSET) {
        mDevice = static_cast<meta_devices_t>(device);
    } else {
        ALOGE("%s: refused initial device %d", path.c_str(), device);
    }
    Mutex::Autolock lock(mLock);
    mDatabase->openEarly();
}

MetaInfoSqliteUtil::~MetaInfoSqliteUtil() = default;

meta_devices_t MetaInfoSqliteUtil::getCurrentDevice() const {
    Mutex::Autolock lock(mLock);
    return mDevice;
}

void MetaInfoSqliteUtil::setCurrentDevice(meta_devices_t device) {
    if (device != META_DEVICE_SPEAKER && device != META_DEVICE_HEADSET) {
        ALOGE("%s: refused device %d", __func__, device);
        return;
    }
    Mutex::Autolock lock(mLock);
    mDevice = device;
}

void MetaInfoSqliteUtil::setCurrentUserID(int userId) {
    Mutex::Autolock lock(mLock);
    mUser = userId;
}

bool MetaInfoSqliteUtil::getMetaAudioOn(meta_devices_t device) {
    Mutex::Autolock lock(mLock);
    Row row;
    return resolve(__func__, device, &row) &&
           readColumn(__func__, {kGetOn, kSetOn}, row, 0, 0) != 0;
}

void MetaInfoSqliteUtil::setMetaAudioOn(bool on, meta_devices_t device) {
    Mutex::Autolock lock(mLock);
    Row row;
    if (resolve(__func__, device, &row)) writeColumn(__func__, kSetOn, row, on ? 1 : 0);
}

signed char MetaInfoSqliteUtil::getMetaAudioMode(meta_devices_t device) {
    Mutex::Autolock lock(mLock);
    Row row;
    if (!resolve(__func__, device, &row)) return 0;
    return static_cast<signed char>(readColumn(__func__, {kGetMode, kSetMode}, row, 0, 0));
}

void MetaInfoSqliteUtil::updateMetaAudioMode(signed char mode, meta_devices_t device) {
    Mutex::Autolock lock(mLock);
    Row row;
    if (resolve(__func__, device, &row)) writeColumn(__func__, kSetMode, row, mode);
}

void MetaInfoSqliteUtil::getMetaInfoByScene(int scene, float* pos3, meta_devices_t device) {
    if (!isScene(__func__, scene, pos3)) return;
    Mutex::Autolock lock(mLock);
    Row row;
    if (!resolve(__func__, device, &row)) return;
    const RowKey key = {kSetPosition, row.user, row.device, scene, ""};
    if (const RowValue* const kept = mDatabase->kept().find(key)) {
        memcpy(pos3, std::get<std::string>(*kept).data(), sizeof(Position));
        return;
    }
    // A failure is logged there and leaves the position as it is, like a scene without one.
    (void)mDatabase->read(__func__, [&](const SettingsDatabase& database) {
        Statement query(database.statement(kGetPosition));
        const int result = query.bind(1, row.user).bind(2, row.device).bind(3, scene).step();
        if (result == SQLITE_ROW) {
            const auto bytes = query.bytes(0);
            if (bytes.size() != sizeof(Position)) return SQLITE_CORRUPT;
            memcpy(pos3, bytes.data(), sizeof(Position));
        }
        return result == SQLITE_ROW || result == SQLITE_DONE ? SQLITE_OK : result;
    });
}

// NOLINTNEXTLINE(readability-non-const-parameter): the platform's signature
void MetaInfoSqliteUtil::updateMetaInfoByScene(int scene, float* pos3, meta_devices_t device) {
    if (!isScene(__func__, scene, pos3)) return;
    Position position;
    memcpy(position.data(), pos3, sizeof(position));
    Mutex::Autolock lock(mLock);
    Row row;
    if (!resolve(__func__, device, &row)) return;
    const auto work = [row, scene, position](const SettingsDatabase& database) {
        return runSetPosition(database, kSetPosition, row.user, row.device, scene, position);
    };
    mDatabase->write(__func__, {kSetPosition, row.user, row.device, scene, ""},
                     std::string(reinterpret_cast<const char*>(position.data()), sizeof(position)),
                     work);
}

bool MetaInfoSqliteUtil::needInitDefaultHomePos() {
    Mutex::Autolock lock(mLock);
    return readColumn(__func__, {kGetSeeded, kSetSeeded}, {mUser, mDevice}, 1, 0) == 0;
}

void MetaInfoSqliteUtil::customDefaultHomePosInited() {
    Mutex::Autolock lock(mLock);
    writeColumn(__func__, kSetSeeded, {mUser, mDevice}, 1);
}

void MetaInfoSqliteUtil::seedHomePositions(meta_devices_t device,
                                           const std::map<int, Position>& positions) {
    for (const auto& [scene, position] : positions) {
        if (!isScene(__func__, scene, position.data())) return;
    }
    Mutex::Autolock lock(mLock);
    Row row;
    if (!resolve(__func__, device, &row)) return;
    if (readColumn(__func__, {kGetSeeded, kSetSeeded}, row, 1, 0) != 0) return;
    // Somebody else may seed at the same moment: both write the same.
    mDatabase->writeNowOrNever(__func__, [&](const SettingsDatabase& database) {
        Transaction transaction(database.connection());
        int result = transaction.begin();
        for (const auto& [scene, position] : positions) {
            if (result != SQLITE_OK) return result;
            result = runSetPosition(database, kSeedPosition, row.user, row.device, scene, position);
        }
        if (result == SQLITE_OK) {
            result = runSetColumn(database, kSetSeeded, row.user, row.device, 1);
        }
        return result == SQLITE_OK ? transaction.commit() : result;
    });
}

bool MetaInfoSqliteUtil::resolve(const char* operation, meta_devices_t device, Row* outRow) const {
    if (device == META_DEVICE_CURRENT || device == META_DEVICE_UNSPECIFIED) device = mDevice;
    *outRow = {mUser, device};
    if (device == META_DEVICE_SPEAKER || device == META_DEVICE_HEADSET) return true;
    ALOGE("%s: refused device %d", operation, device);
    return false;
}

bool MetaInfoSqliteUtil::isScene(const char* operation, int scene, const float* pos3) const {
    if (scene >= 1 && scene < mSceneBound && pos3 != nullptr) return true;
    ALOGE("%s: refused scene %d, position %s", operation, scene,
          pos3 == nullptr ? "missing" : "given");
    return false;
}

// `unreadable` when the store fails, `missing` when there is no row.
int MetaInfoSqliteUtil::readColumn(const char* operation, Column column, const Row& row,
                                   int unreadable, int missing) {
    if (const RowValue* const kept =
                mDatabase->kept().find({column.set, row.user, row.device, 0, ""})) {
        return static_cast<int>(std::get<int64_t>(*kept));
    }
    int value = missing;
    const bool isRead = mDatabase->read(operation, [&](const SettingsDatabase& database) {
        Statement query(database.statement(column.get));
        const int result = query.bind(1, row.user).bind(2, row.device).step();
        value = result == SQLITE_ROW ? static_cast<int>(query.integer(0)) : missing;
        return result == SQLITE_ROW || result == SQLITE_DONE ? SQLITE_OK : result;
    });
    return isRead ? value : unreadable;
}

void MetaInfoSqliteUtil::writeColumn(const char* operation, size_t set, const Row& row, int value) {
    const auto work = [set, row, value](const SettingsDatabase& database) {
        return runSetColumn(database, set, row.user, row.device, value);
    };
    mDatabase->write(operation, {set, row.user, row.device, 0, ""}, value, work);
}

}  // namespace android
