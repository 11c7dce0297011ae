// Files of former layouts, as their services left them.

#include <qelto/HomePosSeed.h>

#include <cstdlib>
#include <random>

#include "StoreFixture.h"
#include "support/LogCapture.h"

namespace android {
namespace {

using sonorel::test::ChildProcess;
using sonorel::test::LogCapture;
using sonorel::test::readFile;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::SizeIs;

constexpr const char* kBrought = "brought from layout 1 to 2, a copy of the former is beside it";

class StoreMigration : public StoreFixture {
protected:
    // All that every layout holds.
    static std::string rowsOf(const std::string& path) {
        RawDatabase raw(path);
        std::string rows = raw.query("PRAGMA integrity_check");
        for (const char* row : {"user_id || device || is_on || mode || seeded) FROM META_INFO",
                                "user_id || device || scene || hex(xyz)) FROM META_INFO_POSITION",
                                "table_name || version) FROM META_LAYOUT",
                                "user_id || sound_widen_mode) FROM MSS_INFO",
                                "user_id || package || value || listed) FROM FGE_INFO"}) {
            rows += ' ' + raw.query(std::string("SELECT group_concat(") + row);
        }
        return rows;
    }

    std::string copyPath() const { return mPath + ".layout-1"; }

    std::set<std::string> filesInFolder() const {
        std::set<std::string> names;
        for (const auto& entry :
             std::filesystem::directory_iterator(std::filesystem::path(mPath).parent_path())) {
            names.insert(entry.path().filename().string());
        }
        return names;
    }

    void expectMigrated(const std::string& rowsBefore) const {
        EXPECT_EQ(rowsOf(mPath), rowsBefore);
        EXPECT_EQ(rowsOf(copyPath()), rowsBefore);
        EXPECT_THAT(filesInFolder(), ElementsAre("meta.db", "meta.db.layout-1"));
        RawDatabase raw(mPath);
        EXPECT_EQ(raw.query("PRAGMA user_version"), "2");
        EXPECT_EQ(raw.query("SELECT group_concat(DISTINCT chosen) FROM META_INFO_POSITION"), "1");
        EXPECT_EQ(RawDatabase(copyPath()).query("PRAGMA user_version"), "1");
    }
};

TEST_F(StoreMigration, FirstLayoutAnswersAsItsServiceDid) {
    putFormerFile(mPath);
    const std::string before = rowsOf(mPath);
    {
        const LogCapture log(ANDROID_LOG_INFO);
        const auto meta = openMeta();
        const auto mss = openMss();
        const auto fge = openFge();
        EXPECT_EQ(log.messages(), std::vector<std::string>{mPath + ": " + kBrought});
        const struct {
            int user;
            int8_t device;
            bool on;
            int mode;
            Position scene3, scene13;
        } rows[] = {{0, 0, true, 2, {2.5f, -0.25f, 2}, {0, 0, 1}},
                    {0, 1, false, 12, {0, 0, 2}, {2, 0.125f, -8}},
                    {10, 0, true, 5, {5.5f, -0.25f, 5}, {0, 0, 1}},
                    {10, 1, true, 15, {0, 0, 2}, {5, 0.125f, -8}}};
        for (const auto& row : rows) {
            meta->setCurrentUserID(row.user);
            meta->setCurrentDevice(row.device);
            EXPECT_EQ(meta->getMetaAudioOn(-2), row.on);
            EXPECT_EQ(meta->getMetaAudioMode(-2), row.mode);
            EXPECT_EQ(positionOf(meta, 3), row.scene3);
            EXPECT_EQ(positionOf(meta, 13), row.scene13);
            EXPECT_FALSE(meta->needInitDefaultHomePos());
        }
        EXPECT_EQ(mss->getSoundWidenMode(), 1);
        mss->setCurrentUserID(10);
        EXPECT_EQ(mss->getSoundWidenMode(), 2);
        EXPECT_THAT(switchesOf(fge),
                    ElementsAre(Pair("com.example.gone", -1), Pair("com.example.puzzle", 0),
                                Pair("com.example.racing", 1)));
        fge->mCurrentUserId = 10;
        EXPECT_EQ(switchesOf(fge)["com.example.puzzle"], 7);
    }
    expectMigrated(before);

    const std::string copy = readFile(copyPath());
    const LogCapture log(ANDROID_LOG_INFO);
    openMeta()->updateMetaAudioMode(3, 0);
    EXPECT_THAT(log.messages(), IsEmpty()) << "a second opening has nothing to do";
    EXPECT_EQ(readFile(copyPath()), copy);
}

TEST_F(StoreMigration, ToolReadsBothLayoutsAndTellsWhatIsHome) {
    const std::string root = mFolder.path("root");
    const std::string path = root + "/data/qelto/multimedia/meta.db";
    putFormerFile(path);
    ChildProcess::Options options;
    options.program = std::string(SONOREL_BIN_DIR) + "/sonorelctl";
    options.args = {"settings", "--root", root};
    const auto told = [&options] {
        ChildProcess tool(options);
        EXPECT_TRUE(tool.wait().has_value());
        return tool.output() + tool.errors();
    };
    EXPECT_THAT(told(), HasSubstr("scene 3 at [2.5,-0.25,2.0]\n"));
    const auto meta = openMeta(path);
    meta->setCurrentUserID(11);
    seedHomePositions(meta, 0, {{2, {2, 3, 4}}});
    EXPECT_THAT(told(), AllOf(HasSubstr("scene 3 at [2.5,-0.25,2.0]\n"),
                              HasSubstr("scene 2 at [2.0,3.0,4.0] (home)\n")));
}

// What no store of this process opens is brought up with the rest.
TEST_F(StoreMigration, TablesOfOtherNamesComeAlong) {
    putFormerFile(mPath);
    RawDatabase(mPath).run(
            "CREATE TABLE OTHER_POSITION(user_id INTEGER NOT NULL, device INTEGER NOT NULL, scene"
            " INTEGER NOT NULL, xyz BLOB NOT NULL CHECK(length(xyz) = 12), PRIMARY KEY(user_id,"
            " device, scene)) STRICT, WITHOUT ROWID;"
            "INSERT INTO OTHER_POSITION VALUES(0, 0, 2, zeroblob(12));"
            "INSERT INTO META_LAYOUT VALUES('OTHER', '1.5'), ('other', 'x'), ('a b', 'x')");
    EXPECT_EQ(openMss()->getSoundWidenMode(), 1);
    const sp<MetaInfoSqliteUtil> other = new MetaInfoSqliteUtil(mPath, "OTHER", 14, 1.5f, 0);
    EXPECT_EQ(positionOf(other, 2), (Position{0, 0, 0}));
    EXPECT_THAT(damagedFiles(), IsEmpty());
}

TEST_F(StoreMigration, ProcessesAtOnceMigrateItOnce) {
    putFormerFile(mPath);
    const std::string before = rowsOf(mPath);
    std::vector<std::unique_ptr<ChildProcess>> children;
    children.reserve(4);
    for (int i = 0; i < 4; ++i)
        children.push_back(std::make_unique<ChildProcess>(writer({"open", mPath, "0"})));
    std::string told;
    for (const auto& child : children) {
        const auto status = child->wait();
        ASSERT_TRUE(status.has_value() && status->exited && status->code == 0);
        told += child->errors();
    }
    const size_t first = told.find(kBrought);
    EXPECT_NE(first, std::string::npos) << told;
    EXPECT_EQ(told.find(kBrought, first + 1), std::string::npos) << told;
    expectMigrated(before);
}

// Several processes open the file at once and each is killed before one of its changes to files.
// SONOREL_MIGRATION_ROUNDS asks for a longer run, SONOREL_SEED for a certain one.
TEST_F(StoreMigration, KilledAtAnyMomentLosesNothing) {
    const auto number = [](const char* name, long usual) {
        const char* const text = getenv(name);  // NOLINT(concurrency-mt-unsafe): nobody sets it
        return text == nullptr ? usual : strtol(text, nullptr, 10);
    };
    const long rounds = number("SONOREL_MIGRATION_ROUNDS", 8);
    const auto seed = static_cast<unsigned>(
            number("SONOREL_SEED", static_cast<long>(std::random_device{}() % 1000000)));
    printf("SONOREL_SEED=%u\n", seed);
    std::mt19937 random(seed);
    putFormerFile(mPath);
    const std::string before = rowsOf(mPath);
    ChildProcess whole(writer({"open", mPath, "0"}));
    ASSERT_TRUE(whole.wait().has_value());
    const auto changes = static_cast<unsigned>(strtol(whole.output().c_str(), nullptr, 10));
    ASSERT_GT(changes, 10U) << whole.errors();

    long killed = 0;
    for (long round = 0; round < rounds && !HasFailure(); ++round) {
        SCOPED_TRACE(round);
        std::filesystem::remove_all(std::filesystem::path(mPath).parent_path());
        putFormerFile(mPath);
        std::vector<std::unique_ptr<ChildProcess>> children;
        children.reserve(3);
        for (int i = 0; i < 3; ++i) {
            const std::string dieAt = std::to_string(1 + random() % changes);
            children.push_back(std::make_unique<ChildProcess>(writer({"open", mPath, dieAt})));
        }
        for (const auto& child : children) {
            const auto status = child->wait();
            ASSERT_TRUE(status.has_value());
            if (!status->exited && status->signal == SIGKILL) ++killed;
        }
        if (std::filesystem::exists(copyPath())) {
            EXPECT_EQ(rowsOf(copyPath()), before);
        }
        EXPECT_EQ(openMss()->getSoundWidenMode(), 1);
        EXPECT_EQ(openMeta()->getMetaAudioMode(1), 12);
        EXPECT_EQ(switchesOf(openFge())["com.example.racing"], 1);
        expectMigrated(before);
    }
    EXPECT_GE(killed, rounds);
}

struct Misfit {
    const char* name;
    const char* sql;
};

void PrintTo(const Misfit& misfit, std::ostream* out) {
    *out << misfit.name;
}

class StoreMisfit : public StoreMigration, public ::testing::WithParamInterface<Misfit> {};

// In a file of either layout: whoever meets it moves the file aside as it is.
TEST_P(StoreMisfit, IsMovedAsideAndNotStamped) {
    for (const bool isFormer : {true, false}) {
        std::filesystem::remove_all(std::filesystem::path(mPath).parent_path());
        putFormerFile(mPath);
        if (!isFormer) (void)openMeta();  // brings it up
        RawDatabase(mPath).run(GetParam().sql);
        const std::string stamp = RawDatabase(mPath).query("PRAGMA user_version");
        // Twice: the store that meets it may be the last of them, and takes the others' first
        // values away with the file.
        for (int time = 0; time < 2; ++time) {
            openMeta()->updateMetaInfoByScene(1, Position{1, 2, 3}.data(), 0);
            openMss()->setSoundWidenMode(6);
            openFge()->setFastGameEffectOn("game", 7);
        }
        ASSERT_THAT(damagedFiles(), SizeIs(1));
        EXPECT_EQ(positionOf(openMeta(), 1, 0), (Position{1, 2, 3}));
        EXPECT_EQ(openMss()->getSoundWidenMode(), 6);
        EXPECT_EQ(switchesOf(openFge())["game"], 7);
        EXPECT_EQ(RawDatabase(*damagedFiles().begin()).query("PRAGMA user_version"), stamp);
    }
}

INSTANTIATE_TEST_SUITE_P(
        Variants, StoreMisfit,
        ::testing::Values(
                Misfit{"ColumnMissing", "ALTER TABLE META_INFO DROP COLUMN mode"},
                Misfit{"ColumnMore",
                       "ALTER TABLE META_INFO ADD COLUMN more INTEGER NOT NULL"
                       " DEFAULT 0"},
                Misfit{"OtherType",
                       "DROP TABLE FGE_INFO; CREATE TABLE FGE_INFO(user_id INTEGER NOT NULL,"
                       " package TEXT NOT NULL, value TEXT NOT NULL, listed INTEGER NOT NULL,"
                       " PRIMARY KEY(user_id, package)) STRICT, WITHOUT ROWID"},
                Misfit{"OtherKey",
                       "DROP TABLE MSS_INFO; CREATE TABLE MSS_INFO(user_id INTEGER,"
                       " sound_widen_mode INTEGER NOT NULL) STRICT"},
                Misfit{"View",
                       "DROP TABLE MSS_INFO; CREATE VIEW MSS_INFO AS SELECT 0 AS user_id,"
                       " 1 AS sound_widen_mode"},
                Misfit{"ViewOfNothing",
                       "DROP TABLE META_INFO_POSITION; CREATE VIEW"
                       " META_INFO_POSITION AS SELECT * FROM nowhere"},
                Misfit{"NoNumber",
                       "ALTER TABLE META_INFO_POSITION RENAME COLUMN xyz TO abc;"
                       "PRAGMA user_version = 0"},
                Misfit{"NegativeNumber", "PRAGMA user_version = -1"}),
        [](const auto& variant) { return variant.param.name; });

}  // namespace
}  // namespace android
