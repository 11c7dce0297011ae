#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <ostream>
#include <thread>

#include "StoreFixture.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"
#include "support/Wait.h"

namespace android {
namespace {

using sonorel::test::ChildProcess;
using sonorel::test::eventually;
using sonorel::test::LogCapture;
using sonorel::test::readFile;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

constexpr int kPackages = 1000;

std::vector<std::string> packages() {
    std::vector<std::string> names;
    names.reserve(kPackages);
    for (int i = 0; i < kPackages; ++i)
        names.push_back("com.example.game" + std::to_string(i));
    return names;
}

class StoreDamage : public StoreFixture {
protected:
    // A file of some dozen pages, closed and without a log.
    void fillFile() const {
        openMeta()->setMetaAudioOn(true, 0);
        openMss()->setSoundWidenMode(5);
        openFge()->updateDataBase(packages(), {});
        ASSERT_FALSE(std::filesystem::exists(mPath + "-wal"));
    }

    // All three stores must take and keep settings.
    void expectWorking() const {
        {
            const auto meta = openMeta();
            meta->updateMetaAudioMode(3, 1);
            openMss()->setSoundWidenMode(6);
            openFge()->setFastGameEffectOn("game", 7);
        }
        EXPECT_EQ(openMeta()->getMetaAudioMode(1), 3);
        EXPECT_EQ(openMss()->getSoundWidenMode(), 6);
        EXPECT_EQ(switchesOf(openFge())["game"], 7);
    }
};

struct Damage {
    const char* name;
    std::function<void(const std::string& path)> apply;
};

void overwrite(const std::string& path, off_t offset, const std::string& bytes) {
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(offset);
    file << bytes;
    ASSERT_TRUE(file.flush());
}

std::ostream& operator<<(std::ostream& out, const Damage& damage) {
    return out << damage.name;
}

class StoreDamageOf : public StoreDamage, public ::testing::WithParamInterface<Damage> {};

TEST_P(StoreDamageOf, IsMovedAsideWholeAndReplaced) {
    fillFile();
    ASSERT_NO_FATAL_FAILURE(GetParam().apply(mPath));
    const bool isFile = std::filesystem::is_regular_file(mPath);
    const std::string before = isFile ? readFile(mPath) : "";
    LogCapture log(ANDROID_LOG_WARN);
    EXPECT_FALSE(openMeta()->getMetaAudioOn(0));
    EXPECT_TRUE(log.contains("moved to meta.db.damaged-20"))
            << ::testing::PrintToString(log.messages());
    ASSERT_THAT(damagedFiles(), SizeIs(1));
    const std::string aside = *damagedFiles().begin();
    EXPECT_TRUE(isFile ? readFile(aside) == before : std::filesystem::exists(aside + "/kept"));
    log.clear();
    expectWorking();
    EXPECT_THAT(damagedFiles(), SizeIs(1));
    EXPECT_THAT(log.messages(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
        Variants, StoreDamageOf,
        ::testing::Values(
                Damage{"Garbage",
                       [](const auto& path) { std::ofstream(path) << std::string(9000, 'g'); }},
                Damage{"FewBytes", [](const auto& path) { std::ofstream(path) << "not it"; }},
                Damage{"TruncatedInAPage",
                       [](const auto& path) {
                           std::filesystem::resize_file(path,
                                                        std::filesystem::file_size(path) / 2 - 100);
                       }},
                Damage{"TruncatedToTheFirstPage",
                       [](const auto& path) { std::filesystem::resize_file(path, 4096); }},
                Damage{"OverwrittenPage",
                       [](const auto& path) {
                           overwrite(path, 5 * 4096, std::string(4096, '\xA5'));
                       }},
                Damage{"ZeroedPage",
                       [](const auto& path) {
                           overwrite(path, 5 * 4096, std::string(4096, '\0'));
                       }},
                Damage{"BadPageSize", [](const auto& path) { overwrite(path, 16, "\x12\x34"); }},
                Damage{"Directory",
                       [](const auto& path) {
                           std::filesystem::remove(path);
                           std::filesystem::create_directories(path + "/kept");
                       }}),
        [](const auto& variant) { return variant.param.name; });

TEST_F(StoreDamage, EmptyFileAndPipe) {
    fillFile();
    std::filesystem::resize_file(mPath, 0);
    expectWorking();
    EXPECT_THAT(damagedFiles(), IsEmpty()) << "there is nothing in it to keep";

    std::filesystem::remove(mPath);
    ASSERT_EQ(mkfifo(mPath.c_str(), 0600), 0);
    expectWorking();
    EXPECT_THAT(damagedFiles(), SizeIs(1));
}

TEST_F(StoreDamage, LogWithoutItsDatabaseIsNotPlayedIntoAFreshOne) {
    mFolder.write("multimedia/meta.db-wal", std::string(5000, 'w'));
    expectWorking();
    ASSERT_THAT(damagedFiles(), SizeIs(1));
    EXPECT_EQ(readFile(*damagedFiles().begin() + "-wal"), std::string(5000, 'w'));
}

TEST_F(StoreDamage, SecondDamageInOneSecondGetsAnotherName) {
    for (int i = 0; i < 4; ++i) {
        std::filesystem::create_directories(std::filesystem::path(mPath).parent_path());
        std::ofstream(mPath) << std::string(9000, static_cast<char>('a' + i));
        EXPECT_FALSE(openMeta()->getMetaAudioOn(0));
    }
    EXPECT_THAT(damagedFiles(), SizeIs(4));
}

TEST_F(StoreDamage, ThreeStoresThatMeetItAtOnceReplaceItOnce) {
    fillFile();
    overwrite(mPath, off_t{5} * 4096, std::string(4096, '\xA5'));
    std::thread meta([this] { openMeta()->setMetaAudioOn(true, 1); });
    std::thread mss([this] { openMss()->setSoundWidenMode(9); });
    std::thread fge([this] { openFge()->setFastGameEffectOn("game", 1); });
    meta.join();
    mss.join();
    fge.join();
    EXPECT_THAT(damagedFiles(), SizeIs(1));
    EXPECT_TRUE(openMeta()->getMetaAudioOn(1));
    EXPECT_EQ(openMss()->getSoundWidenMode(), 9);
    EXPECT_EQ(switchesOf(openFge())["game"], 1);
}

TEST_F(StoreDamage, DamageUnderOpenStoresIsRepairedAndWritesGoToTheNewFile) {
    fillFile();
    const auto meta = openMeta();
    const auto mss = openMss();
    const auto fge = openFge();
    ASSERT_THAT(switchesOf(fge), SizeIs(kPackages));
    // By another process: closing the file here would drop this process's locks on it.
    ChildProcess::Options options;
    options.program = "/bin/dd";
    options.args = {"if=/dev/urandom", "of=" + mPath, "bs=4096",
                    "seek=1",          "count=8",     "conv=notrunc"};
    ChildProcess dd(options);
    ASSERT_TRUE(dd.wait().has_value());
    const LogCapture log(ANDROID_LOG_WARN);
    mss->setSoundWidenMode(8);  // Another connection's commit makes the next read look at the file.
    (void)switchesOf(fge);
    EXPECT_TRUE(log.contains("moved to meta.db.damaged-"))
            << ::testing::PrintToString(log.messages());

    meta->updateMetaAudioMode(4, 0);
    mss->setSoundWidenMode(9);
    fge->updateDataBase({"a"}, {});
    fge->setFastGameEffectOn("a", 2);
    EXPECT_THAT(damagedFiles(), Not(IsEmpty()));
    RawDatabase raw(mPath);
    EXPECT_EQ(raw.query("SELECT mode FROM META_INFO"), "4");
    EXPECT_EQ(raw.query("SELECT sound_widen_mode FROM MSS_INFO"), "9");
    EXPECT_EQ(raw.query("SELECT value FROM FGE_INFO"), "2");
    EXPECT_EQ(raw.query("PRAGMA integrity_check"), "ok");
}

TEST_F(StoreDamage, FileTakenAwayUnderOpenStoresIsMadeAgain) {
    const auto meta = openMeta();
    const auto mss = openMss();
    meta->setMetaAudioOn(true, 0);
    std::filesystem::rename(mPath, mPath + ".taken");
    mss->setSoundWidenMode(3);
    meta->updateMetaAudioMode(2, 0);
    EXPECT_FALSE(meta->getMetaAudioOn(0));
    EXPECT_EQ(openMss()->getSoundWidenMode(), 3);
    EXPECT_EQ(openMeta()->getMetaAudioMode(0), 2);
}

TEST_F(StoreDamage, DroppedTableIsMadeAgain) {
    const auto meta = openMeta();
    meta->setMetaAudioOn(true, 0);
    RawDatabase(mPath).run("DROP TABLE META_INFO");
    meta->updateMetaAudioMode(2, 0);
    EXPECT_EQ(meta->getMetaAudioMode(0), 2);
    EXPECT_FALSE(meta->getMetaAudioOn(0));
    EXPECT_THAT(damagedFiles(), IsEmpty());
}

TEST_F(StoreDamage, NewerSchemaIsLeftUntouchedAndReadsAnswerDefaults) {
    std::filesystem::create_directories(std::filesystem::path(mPath).parent_path());
    {
        RawDatabase raw(mPath);
        raw.run("PRAGMA journal_mode = WAL; CREATE TABLE META_INFO(other); PRAGMA user_version = "
                "3");
    }
    const std::string before = readFile(mPath);
    const LogCapture log(ANDROID_LOG_WARN);
    const auto meta = openMeta();
    const auto fge = openFge();
    meta->setMetaAudioOn(true, 0);
    meta->customDefaultHomePosInited();
    fge->updateDataBase({"a"}, {});
    EXPECT_FALSE(meta->getMetaAudioOn(0));
    EXPECT_FALSE(meta->needInitDefaultHomePos()) << "there is nowhere to seed to";
    EXPECT_THAT(switchesOf(fge), IsEmpty());
    EXPECT_EQ(openMss()->getSoundWidenMode(), 0);
    EXPECT_TRUE(log.contains("its schema 3 is newer than 2"));
    EXPECT_TRUE(log.contains("setMetaAudioOn: " + mPath + ": not stored"));
    EXPECT_TRUE(readFile(mPath) == before);
    EXPECT_THAT(damagedFiles(), IsEmpty());

    std::filesystem::remove(mPath);
    EXPECT_TRUE(eventually([&] {
        meta->setMetaAudioOn(true, 0);
        return meta->getMetaAudioOn(0);
    })) << "opening is tried again";
}

}  // namespace
}  // namespace android
