#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <charconv>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <random>

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
using ::testing::HasSubstr;
using ::testing::IsEmpty;

using StoreFault = StoreFixture;

ChildProcess::Options writer(const std::vector<std::string>& args) {
    ChildProcess::Options options;
    options.program = std::string(SONOREL_BIN_DIR) + "/store_writer";
    options.args = args;
    return options;
}

// -1 when the text begins with no number.
int numberIn(const std::string& text) {
    int number = -1;
    (void)std::from_chars(text.data(), text.data() + text.size(), number);  // Then it stays -1.
    return number;
}

TEST_F(StoreFault, PathThatCannotBeIsTriedAgainUntilItCan) {
    const std::string blocked = mFolder.write("blocked", "a file where a folder should be");
    LogCapture log(ANDROID_LOG_WARN);
    const auto meta = openMeta(blocked + "/meta.db");
    EXPECT_TRUE(log.contains(blocked + "/meta.db: cannot be opened: "));
    log.clear();
    // A storm of calls neither opens nor logs again and again; only lost writes are told.
    for (int i = 0; i < 1000; ++i)
        EXPECT_FALSE(meta->getMetaAudioOn(0));
    EXPECT_LE(log.lines().size(), 2u);
    EXPECT_FALSE(meta->needInitDefaultHomePos());
    log.clear();
    meta->setMetaAudioOn(true, 0);
    EXPECT_TRUE(log.contains("setMetaAudioOn: " + blocked + "/meta.db: not stored"));

    std::filesystem::remove(blocked);
    EXPECT_TRUE(eventually([&] {
        meta->setMetaAudioOn(true, 0);
        return meta->getMetaAudioOn(0);
    }));
    EXPECT_TRUE(openMeta(blocked + "/meta.db")->getMetaAudioOn(0));
}

TEST_F(StoreFault, WriteLockHeldByAnotherLosesOnlyNewWritesAndDoesNotAddUp) {
    const auto meta = openMeta();
    meta->updateMetaAudioMode(3, 0);
    RawDatabase other(mPath);
    other.run("BEGIN IMMEDIATE");
    const LogCapture log(ANDROID_LOG_WARN);
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 10; ++i)
        meta->updateMetaAudioMode(4, 0);
    const auto taken = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(log.count("updateMetaAudioMode: " + mPath + ": database is locked"), 10u);
    EXPECT_LT(taken, std::chrono::seconds(8)) << "ten times the full wait would be 10 s";
    EXPECT_EQ(meta->getMetaAudioMode(0), 3) << "reads go on";
    other.run("ROLLBACK");
    meta->updateMetaAudioMode(5, 0);
    EXPECT_EQ(openMeta()->getMetaAudioMode(0), 5);
}

TEST_F(StoreFault, FileHeldExclusivelyAtStartIsOpenedOnceItIsFree) {
    openMeta()->setMetaAudioOn(true, 0);
    auto other = std::make_unique<RawDatabase>(mPath);
    other->run("PRAGMA locking_mode = EXCLUSIVE; BEGIN EXCLUSIVE; COMMIT");
    EXPECT_EQ(other->query("SELECT count(*) FROM META_INFO"), "1");
    const LogCapture log(ANDROID_LOG_WARN);
    const auto meta = openMeta();
    EXPECT_TRUE(log.contains("cannot be opened: database is locked"));
    EXPECT_FALSE(meta->getMetaAudioOn(0));
    EXPECT_FALSE(meta->needInitDefaultHomePos());
    other.reset();
    EXPECT_TRUE(eventually([&] { return meta->getMetaAudioOn(0); }));
    EXPECT_THAT(damagedFiles(), IsEmpty()) << "busy is no damage";
}

TEST_F(StoreFault, FolderWithoutWriteAccessKeepsWhatIsStored) {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
    {
        const auto meta = openMeta();
        meta->setMetaAudioOn(true, 0);
        meta->updateMetaAudioMode(2, 0);
    }
    const std::string before = readFile(mPath);
    ChildProcess::Options options = writer({"probe", mPath});
    options.uid = 65534;
    ChildProcess child(options);
    const auto status = child.wait();
    ASSERT_TRUE(status.has_value());
    EXPECT_TRUE(status->exited && status->code == 0) << child.errors();
    EXPECT_EQ(child.output(), "on=0 mode=0 seed=0\n") << "defaults, and nothing to seed";
    EXPECT_THAT(child.errors(), HasSubstr(mPath));
    EXPECT_EQ(readFile(mPath), before);
    EXPECT_EQ(openMeta()->getMetaAudioMode(0), 2);
}

// A file system of 300 kB, which only this process's main thread sees.
class SmallDisk {
public:
    explicit SmallDisk(const std::string& folder) {
        mkdir(folder.c_str(), 0755);
        mMounted = unshare(CLONE_NEWNS) == 0 &&
                   mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                   mount("tmpfs", folder.c_str(), "tmpfs", 0, "size=300k") == 0;
        mFolder = folder;
    }
    ~SmallDisk() {
        if (mMounted) umount2(mFolder.c_str(), MNT_DETACH);
    }
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;
    bool isMounted() const { return mMounted; }

private:
    std::string mFolder;
    bool mMounted = false;
};

TEST_F(StoreFault, FullDiskLosesOnlyNewWrites) {
    const std::string folder = mFolder.path("small");
    const SmallDisk disk(folder);
    if (!disk.isMounted()) GTEST_SKIP() << "needs the right to mount";
    const std::string path = folder + "/meta.db";
    const auto meta = openMeta(path);
    const sp<FgeDatabase> fge = new FgeDatabase(path);
    meta->setMetaAudioOn(true, 0);
    fge->updateDataBase({"a"}, {});
    fge->setFastGameEffectOn("a", 4);

    std::ofstream(folder + "/filler") << std::string(400000, 'f');
    const LogCapture log(ANDROID_LOG_WARN);
    std::vector<std::string> many;
    many.reserve(2000);
    for (int i = 0; i < 2000; ++i)
        many.push_back("com.example.game" + std::to_string(i));
    fge->updateDataBase(many, {});
    for (int i = 0; i < 100; ++i) {
        const auto number = static_cast<float>(i);
        meta->updateMetaInfoByScene(1 + i % 13, Position{number, number, number}.data(), i % 2);
    }
    EXPECT_TRUE(log.contains("updateDataBase: " + path + ": database or disk is full"))
            << ::testing::PrintToString(log.messages());
    EXPECT_TRUE(meta->getMetaAudioOn(0));
    EXPECT_THAT(switchesOf(fge), ::testing::ElementsAre(::testing::Pair("a", 4)))
            << "the list came in whole or not at all";

    std::filesystem::remove(folder + "/filler");
    meta->updateMetaAudioMode(6, 0);
    fge->updateDataBase({"a", "b"}, {});
    EXPECT_TRUE(openMeta(path)->getMetaAudioOn(0));
    EXPECT_EQ(openMeta(path)->getMetaAudioMode(0), 6);
    EXPECT_THAT(switchesOf(fge),
                ::testing::ElementsAre(::testing::Pair("a", 4), ::testing::Pair("b", 0)));
}

// SONOREL_KILL_ROUNDS asks for a longer run.
TEST_F(StoreFault, AcknowledgedWritesOutliveTheProcess) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing changes the environment
    const char* asked = getenv("SONOREL_KILL_ROUNDS");
    const int rounds = asked == nullptr ? 5 : numberIn(asked);
    std::mt19937 random(std::random_device{}());
    int next = 1;
    for (int round = 0; round < rounds; ++round) {
        ChildProcess child(writer({"count", mPath, std::to_string(next)}));
        const int enough = next + static_cast<int>(random() % 400);
        ASSERT_TRUE(child.waitForLine(std::to_string(enough))) << child.errors();
        child.kill(SIGKILL);
        ASSERT_TRUE(child.wait().has_value());
        EXPECT_EQ(child.errors(), "");
        const std::string output = child.output();
        // The last whole line: a number that all stores had acknowledged.
        const size_t end = output.rfind('\n');
        const size_t begin = output.rfind('\n', end - 1);
        const int last = numberIn(output.substr(begin == std::string::npos ? 0 : begin + 1));

        ASSERT_GE(last, next);

        const LogCapture log(ANDROID_LOG_WARN);
        const int mode = openMss()->getSoundWidenMode();
        EXPECT_GE(mode, last);
        EXPECT_LE(mode, last + 1) << "one write may have been under way";
        EXPECT_GE(switchesOf(openFge())["counter"], last);
        EXPECT_GE(positionOf(openMeta(), 1 + last % 13)[2], static_cast<float>(last));
        EXPECT_THAT(log.messages(), IsEmpty());
        EXPECT_THAT(damagedFiles(), IsEmpty());
        next = mode + 1;
    }
}

}  // namespace
}  // namespace android
