#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qelto/FgeDatabase.h>
#include <qelto/MetaInfoSqliteUtil.h>
#include <qelto/MssDatabase.h>

#include <array>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "stores/RawDatabase.h"
#include "support/ChildProcess.h"
#include "support/ProjectFile.h"
#include "support/TempDir.h"

namespace android {

using Position = std::array<float, 3>;
using Switches = std::map<std::string, int>;

class StoreFixture : public ::testing::Test {
protected:
    static sp<MetaInfoSqliteUtil> openMeta(const std::string& path, int device = 0) {
        return new MetaInfoSqliteUtil(path, "META_INFO", 14, 1.5f, device);
    }
    sp<MetaInfoSqliteUtil> openMeta() const { return openMeta(mPath); }
    sp<MssDatabase> openMss() const { return new MssDatabase(mPath); }
    sp<FgeDatabase> openFge() const { return new FgeDatabase(mPath); }

    static Position positionOf(const sp<MetaInfoSqliteUtil>& store, int scene, int8_t device = -2,
                               Position position = {-7, -7, -7}) {
        store->getMetaInfoByScene(scene, position.data(), device);
        return position;
    }
    static Switches switchesOf(const sp<FgeDatabase>& store) {
        Switches switches;
        store->getSwitchForPkgName(switches);
        return switches;
    }

    // The store_writer program.
    static sonorel::test::ChildProcess::Options writer(const std::vector<std::string>& args) {
        sonorel::test::ChildProcess::Options options;
        options.program = std::string(SONOREL_BIN_DIR) + "/store_writer";
        options.args = args;
        return options;
    }

    // Puts a file that a service of an earlier layout wrote at `path`.
    static void putFormerFile(const std::string& path) {
        namespace fs = std::filesystem;
        fs::create_directories(fs::path(path).parent_path());
        fs::copy_file(sonorel::test::projectFile("tests/data/stores/layout-1.db"), path,
                      fs::copy_options::overwrite_existing);
    }

    // What was moved aside as damaged: full paths, without the -wal and -shm beside each.
    std::set<std::string> damagedFiles() const {
        std::set<std::string> paths;
        std::error_code error;
        for (const auto& entry : std::filesystem::directory_iterator(
                     std::filesystem::path(mPath).parent_path(), error)) {
            std::string path = entry.path().string();
            for (const char* companion : {"-wal", "-shm"}) {
                const size_t at = path.rfind(companion);
                if (at != std::string::npos && at + 4 == path.size()) path.erase(at);
            }
            if (path.find(".damaged-") != std::string::npos) paths.insert(path);
        }
        return paths;
    }

    const sonorel::test::TempDir mFolder;
    const std::string mPath = mFolder.path("multimedia/meta.db");
};

}  // namespace android
