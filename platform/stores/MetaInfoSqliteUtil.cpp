#define LOG_TAG "SonorelStores"

#include <qelto/MetaInfoSqliteUtil.h>

#include <log/log.h>
#include <strings.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

#include "SettingsDatabase.h"

namespace android {
namespace {

constexpr size_t kMaxTableLength = 64;
constexpr const char* kDefaultTable = "META_INFO";
constexpr const char* kOtherTables[] = {"MSS_INFO", "FGE_INFO", "META_LAYOUT"};

enum StatementIndex : size_t {
    kGetOn,
    kSetOn,
    kGetMode,
    kSetMode,
    kGetSeeded,
    kSetSeeded,
    kGetPosition,
    kSetPosition,
};

using Position = std::array<float, 3>;

bool isTableName(const std::string& name) {
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

std::string usableTable(const std::string& name) {
    if (isTableName(name)) return name;
    ALOGE("refused table name '%.64s', using %s", name.c_str(), kDefaultTable);
    return kDefaultTable;
}

std::string getColumn(const std::string& table, const std::string& column) {
    return "SELECT " + column + " FROM " + table + " WHERE user_id = ?1 AND device = ?2";
}

std::string setColumn(const std::string& table, const std::string& column) {
    return "INSERT INTO " + table + "(user_id, device, " + column +
           ") VALUES(?1, ?2, ?3) ON CONFLICT DO UPDATE SET " + column + " = excluded." + column;
}

// Positions are the bytes of three floats: as numbers, SQLite would turn not-a-number into NULL and
// lose the sign of zero.
StoreSchema metaSchema(const std::string& name, float layoutVersion) {
    char version[32];
    (void)snprintf(version, sizeof(version), "%.9g", static_cast<double>(layoutVersion));
    const std::string table = '"' + name + '"';
    const std::string positions = '"' + name + "_POSITION\"";
    StoreSchema schema;
    schema.tables = "CREATE TABLE IF NOT EXISTS " + table +
                    "(user_id INTEGER NOT NULL, device INTEGER NOT NULL,"
                    " is_on INTEGER NOT NULL DEFAULT 0, mode INTEGER NOT NULL DEFAULT 0,"
                    " seeded INTEGER NOT NULL DEFAULT 0,"
                    " PRIMARY KEY(user_id, device)) STRICT, WITHOUT ROWID;"
                    "CREATE TABLE IF NOT EXISTS " +
                    positions +
                    "(user_id INTEGER NOT NULL, device INTEGER NOT NULL, scene INTEGER NOT NULL,"
                    " xyz BLOB NOT NULL CHECK(length(xyz) = 12),"
                    " PRIMARY KEY(user_id, device, scene)) STRICT, WITHOUT ROWID;"
                    "CREATE TABLE IF NOT EXISTS META_LAYOUT("
                    "table_name TEXT PRIMARY KEY, version TEXT NOT NULL) STRICT, WITHOUT ROWID;";
    schema.markQuery = "SELECT 1 FROM META_LAYOUT WHERE table_name = '" + name +
                       "' AND version = '" + version + "'";
    schema.markCommand =
            "INSERT OR REPLACE INTO META_LAYOUT VALUES('" + name + "', '" + version + "')";
    schema.statements = {
            getColumn(table, "is_on"),
            setColumn(table, "is_on"),
            getColumn(table, "mode"),
            setColumn(table, "mode"),
            getColumn(table, "seeded"),
            setColumn(table, "seeded"),
            "SELECT xyz FROM " + positions + " WHERE user_id = ?1 AND device = ?2 AND scene = ?3",
            "INSERT INTO " + positions +
                    "(user_id, device, scene, xyz) VALUES(?1, ?2, ?3, ?4)"
                    " ON CONFLICT DO UPDATE SET xyz = excluded.xyz",
    };
    return schema;
}

}  // namespace

MetaInfoSqliteUtil::MetaInfoSqliteUtil(const std::string& path, const std::string& table,
                                       int sceneBound, float layoutVersion, int device)
        : mSceneBound(sceneBound),
          mDatabase(std::make_unique<SettingsDatabase>(
                  path, metaSchema(usableTable(table), layoutVersion))) {
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
    return resolve(__func__, device, &row) && readColumn(__func__, kGetOn, row, 0, 0) != 0;
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
    return static_cast<signed char>(readColumn(__func__, kGetMode, row, 0, 0));
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
    (void)mDatabase->write(__func__, [&](const SettingsDatabase& database) {
        Statement upsert(database.statement(kSetPosition));
        upsert.bind(1, row.user).bind(2, row.device).bind(3, scene);
        upsert.bindBlob(4, {reinterpret_cast<const char*>(position.data()), sizeof(position)});
        return upsert.run();
    });
}

bool MetaInfoSqliteUtil::needInitDefaultHomePos() {
    Mutex::Autolock lock(mLock);
    return readColumn(__func__, kGetSeeded, {mUser, mDevice}, 1, 0) == 0;
}

void MetaInfoSqliteUtil::customDefaultHomePosInited() {
    Mutex::Autolock lock(mLock);
    writeColumn(__func__, kSetSeeded, {mUser, mDevice}, 1);
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
int MetaInfoSqliteUtil::readColumn(const char* operation, int statement, const Row& row,
                                   int unreadable, int missing) {
    int value = missing;
    const bool isRead = mDatabase->read(operation, [&](const SettingsDatabase& database) {
        Statement query(database.statement(static_cast<size_t>(statement)));
        const int result = query.bind(1, row.user).bind(2, row.device).step();
        value = result == SQLITE_ROW ? static_cast<int>(query.integer(0)) : missing;
        return result == SQLITE_ROW || result == SQLITE_DONE ? SQLITE_OK : result;
    });
    return isRead ? value : unreadable;
}

void MetaInfoSqliteUtil::writeColumn(const char* operation, int statement, const Row& row,
                                     int value) {
    // A failure is logged there; the service has nobody to tell.
    (void)mDatabase->write(operation, [&](const SettingsDatabase& database) {
        Statement upsert(database.statement(static_cast<size_t>(statement)));
        return upsert.bind(1, row.user).bind(2, row.device).bind(3, value).run();
    });
}

}  // namespace android
