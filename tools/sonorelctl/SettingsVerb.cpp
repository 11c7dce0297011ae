// `settings`: what the settings database holds, read from the file and told in words. Needs no
// service.

#include <sqlite3.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "sonorelctl/Connection.h"
#include "sonorelctl/Json.h"
#include "sonorelctl/Verb.h"

namespace sonorel::ctl {
namespace {

constexpr char kDatabase[] = "/data/qelto/multimedia/meta.db";

struct CloseDatabase {
    void operator()(sqlite3* database) const { (void)sqlite3_close(database); }
};
struct FinalizeStatement {
    void operator()(sqlite3_stmt* statement) const { (void)sqlite3_finalize(statement); }
};
using Database = std::unique_ptr<sqlite3, CloseDatabase>;
using Statement = std::unique_ptr<sqlite3_stmt, FinalizeStatement>;

// SQLITE_ROW when the table is there, SQLITE_DONE when it is not, else what went wrong.
int findTable(sqlite3* database, const char* table) {
    sqlite3_stmt* raw = nullptr;
    const int result = sqlite3_prepare_v2(database, "SELECT 1 FROM sqlite_schema WHERE name = ?1",
                                          -1, &raw, nullptr);
    const Statement statement(raw);
    if (result != SQLITE_OK) return result;
    (void)sqlite3_bind_text(statement.get(), 1, table, -1, SQLITE_STATIC);
    return sqlite3_step(statement.get());
}

// A file of the first layout does not say which positions a user chose.
bool tellsChosenPositions(sqlite3* database) {
    sqlite3_stmt* raw = nullptr;
    (void)sqlite3_prepare_v2(database, "SELECT chosen FROM META_INFO_POSITION", -1, &raw, nullptr);
    return Statement(raw) != nullptr;
}

// Calls `onRow` for each row; a table that is not there has none. False, and a line, for a failure.
template <typename OnRow>
bool forEachRow(sqlite3* database, const std::string& path, const char* table, const char* query,
                OnRow onRow) {
    int result = findTable(database, table);
    if (result == SQLITE_ROW) {
        sqlite3_stmt* raw = nullptr;
        result = sqlite3_prepare_v2(database, query, -1, &raw, nullptr);
        const Statement statement(raw);
        while (result == SQLITE_OK || result == SQLITE_ROW) {
            result = sqlite3_step(statement.get());
            if (result == SQLITE_ROW) onRow(statement.get());
        }
    }
    if (result == SQLITE_DONE) return true;
    (void)fail(kExitUsage, path + ": " + sqlite3_errmsg(database));
    return false;
}

std::string textAt(sqlite3_stmt* row, int column) {
    const unsigned char* const text = sqlite3_column_text(row, column);
    return text == nullptr ? std::string() : reinterpret_cast<const char*>(text);
}

Json positionAt(sqlite3_stmt* row, int column) {
    float xyz[3] = {};
    const void* const bytes = sqlite3_column_blob(row, column);
    if (bytes == nullptr || sqlite3_column_bytes(row, column) != static_cast<int>(sizeof(xyz))) {
        return nullptr;
    }
    std::memcpy(xyz, bytes, sizeof(xyz));
    Json position = Json::array();
    for (const float value : xyz)
        position.push_back(toJson(value));
    return position;
}

const char* deviceName(int device) {
    if (device == 0) return "speaker";
    return device == 1 ? "headset" : "other";
}

// By user: device name to settings, sound widening mode, game effect switches.
bool readSettings(sqlite3* database, const std::string& path, std::map<int, Json>* outUsers) {
    const auto device = [outUsers](sqlite3_stmt* row) -> Json& {
        return (*outUsers)[sqlite3_column_int(row, 0)]["devices"]
                          [deviceName(sqlite3_column_int(row, 1))];
    };
    return forEachRow(database, path, "META_INFO",
                      "SELECT user_id, device, is_on, mode, seeded FROM META_INFO"
                      " ORDER BY user_id, device",
                      [&](sqlite3_stmt* row) {
                          Json& settings = device(row);
                          settings["on"] = sqlite3_column_int(row, 2) != 0;
                          settings["mode"] = sqlite3_column_int(row, 3);
                          settings["seeded"] = sqlite3_column_int(row, 4) != 0;
                      }) &&
           forEachRow(database, path, "META_INFO_POSITION",
                      tellsChosenPositions(database)
                              ? "SELECT user_id, device, scene, xyz, chosen FROM META_INFO_POSITION"
                                " ORDER BY user_id, device, scene"
                              : "SELECT user_id, device, scene, xyz, 1 FROM META_INFO_POSITION"
                                " ORDER BY user_id, device, scene",
                      [&](sqlite3_stmt* row) {
                          Json& settings = device(row);
                          const int scene = sqlite3_column_int(row, 2);
                          settings["scenes"][std::to_string(scene)] = positionAt(row, 3);
                          // Scenes whose position is the product's, not one that a user chose.
                          if (sqlite3_column_int(row, 4) == 0) settings["home"].push_back(scene);
                      }) &&
           forEachRow(database, path, "MSS_INFO", "SELECT user_id, sound_widen_mode FROM MSS_INFO",
                      [&](sqlite3_stmt* row) {
                          (*outUsers)[sqlite3_column_int(row, 0)]["soundWidenMode"] =
                                  sqlite3_column_int(row, 1);
                      }) &&
           forEachRow(database, path, "FGE_INFO",
                      "SELECT user_id, package, value, listed FROM FGE_INFO"
                      " ORDER BY user_id, package",
                      [&](sqlite3_stmt* row) {
                          Json& game = (*outUsers)[sqlite3_column_int(row, 0)]["gameEffect"]
                                                  [textAt(row, 1)];
                          game["value"] = sqlite3_column_int(row, 2);
                          game["listed"] = sqlite3_column_int(row, 3) != 0;
                      });
}

bool contains(const Json& scenes, const std::string& scene) {
    return std::any_of(scenes.begin(), scenes.end(), [&scene](const Json& each) {
        return std::to_string(each.get<int>()) == scene;
    });
}

void printDevice(const std::string& name, const Json& settings) {
    const bool on = settings.value("on", false);
    (void)std::printf("  %s: spatial audio %s, mode %d%s\n", name.c_str(), on ? "on" : "off",
                      settings.value("mode", 0),
                      settings.value("seeded", false) ? "" : ", home positions not written yet");
    if (!settings.contains("scenes")) return;
    for (const auto& [scene, position] : settings["scenes"].items()) {
        const bool isHome = contains(settings.value("home", Json::array()), scene);
        (void)std::printf("    scene %s at %s%s\n", scene.c_str(), toLine(position).c_str(),
                          isHome ? " (home)" : "");
    }
}

void printUser(int user, const Json& settings) {
    (void)std::printf("User %d\n", user);
    if (settings.contains("devices")) {
        for (const auto& [name, device] : settings["devices"].items())
            printDevice(name, device);
    }
    if (settings.contains("soundWidenMode")) {
        (void)std::printf("  sound widening mode %d\n", settings["soundWidenMode"].get<int>());
    }
    if (!settings.contains("gameEffect")) return;
    for (const auto& [package, game] : settings["gameEffect"].items()) {
        (void)std::printf("  game effect of %s: %d%s\n", package.c_str(), game["value"].get<int>(),
                          game["listed"].get<bool>() ? "" : " (left the list)");
    }
}

int showSettings(const std::string& root, bool json) {
    const std::string path = root + kDatabase;
    sqlite3* raw = nullptr;
    const int opened = sqlite3_open_v2(path.c_str(), &raw, SQLITE_OPEN_READONLY, nullptr);
    const Database database(raw);
    if (opened != SQLITE_OK)
        return fail(kExitUsage,
                    path + ": " + (raw == nullptr ? "out of memory" : sqlite3_errmsg(raw)));
    std::map<int, Json> users;
    if (!readSettings(database.get(), path, &users)) return kExitUsage;
    if (json) {
        Json all = Json::object();
        for (const auto& [user, settings] : users)
            all[std::to_string(user)] = settings;
        (void)std::printf("%s\n", toLine(all).c_str());
        return kExitOk;
    }
    for (const auto& [user, settings] : users)
        printUser(user, settings);
    if (users.empty()) (void)std::printf("Nothing is stored yet.\n");
    return kExitOk;
}

}  // namespace

void addSettingsVerb(CLI::App& app, const Globals&, Action* outAction) {
    struct Options {
        std::string root;
        bool json = false;
    };
    const auto options = std::make_shared<Options>();
    CLI::App* const verb = app.add_subcommand(
            "settings",
            "Tells what the settings database of a device root holds; needs no service");
    verb->add_option("--root", options->root, "Device root (default: /)")
            ->envname("SONOREL_DEVICE_ROOT")
            ->type_name("DIR")
            ->check(CLI::ExistingDirectory);
    verb->add_flag("--json", options->json, "One JSON object, by user");
    verb->callback([options, outAction] {
        *outAction = [options] { return showSettings(options->root, options->json); };
    });
}

}  // namespace sonorel::ctl
