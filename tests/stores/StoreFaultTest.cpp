#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

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
using ::testing::Not;

using StoreFault = StoreFixture;

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

// By a process that may write neither the file nor its folder.
TEST_F(StoreFault, FolderWithoutWriteAccessIsRead) {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
    {
        const auto meta = openMeta();
        meta->setMetaAudioOn(true, 0);
        meta->updateMetaAudioMode(2, 0);
        meta->updateMetaInfoByScene(3, Position{0.5f, 0, 0}.data(), 0);
    }
    const std::string former = mFolder.path("former/meta.db");
    putFormerFile(former);
    // What a killed process leaves: a log that is not yet in the file.
    const std::string logged = mFolder.path("logged/meta.db");
    std::filesystem::create_directory(mFolder.path("logged"));
    RawDatabase open(mPath);
    open.run("UPDATE META_INFO SET mode = 6");
    for (const char* suffix : {"", "-wal", "-shm"})
        std::filesystem::copy_file(mPath + suffix, logged + suffix);

    const struct {
        std::string path, told;
    } rows[] = {{mPath, "on=1 mode=6 x=0.5 seed=1\n"},  // while another process has it open
                {former, "on=1 mode=2 x=2.5 seed=0\n"},
                {logged, "on=1 mode=6 x=0.5 seed=1\n"}};
    for (const auto& row : rows) {
        const std::string before = readFile(row.path);
        ChildProcess::Options options = writer({"probe", row.path});
        options.uid = 65534;
        ChildProcess child(options);
        const auto status = child.wait();
        ASSERT_TRUE(status.has_value());
        EXPECT_TRUE(status->exited && status->code == 0) << child.errors();
        EXPECT_EQ(child.output(), row.told) << child.errors();
        EXPECT_THAT(child.errors(), HasSubstr("updateMetaAudioMode: " + row.path + ": not stored"));
        EXPECT_EQ(readFile(row.path), before);
    }
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

// Files of both layouts that are opened where nothing can be written.
TEST_F(StoreFault, FullOrReadOnlyDiskIsReadAndWrittenOnceItCanBe) {
    const std::string folder = mFolder.path("small");
    const SmallDisk disk(folder);
    if (!disk.isMounted()) GTEST_SKIP() << "needs the right to mount";
    const std::string path = folder + "/meta.db";
    for (const bool isFull : {true, false}) {
        for (const bool isFormer : {true, false}) {
            SCOPED_TRACE(std::string(isFull ? "full" : "read only") + (isFormer ? ", former" : ""));
            putFormerFile(path);
            if (!isFormer) (void)openMeta(path);  // brings it up
            if (isFull) {
                std::ofstream(folder + "/filler") << std::string(400000, 'f');
            } else {
                ASSERT_EQ(mount("", folder.c_str(), "", MS_REMOUNT | MS_RDONLY, nullptr), 0);
            }
            const LogCapture log(ANDROID_LOG_WARN);
            const auto meta = openMeta(path);
            const sp<FgeDatabase> fge = new FgeDatabase(path);
            EXPECT_TRUE(meta->getMetaAudioOn(0)) << ::testing::PrintToString(log.messages());
            EXPECT_EQ(positionOf(meta, 3, 0), (Position{2.5f, -0.25f, 2}));
            EXPECT_EQ(switchesOf(fge)["com.example.racing"], 1);
            meta->updateMetaAudioMode(6, 0);
            EXPECT_EQ(meta->getMetaAudioMode(0), 2);
            EXPECT_TRUE(log.contains("updateMetaAudioMode: " + path + ": not stored"));
            EXPECT_THAT(std::filesystem::exists(path + ".layout-1.part"), false);

            if (isFull) {
                std::filesystem::remove(folder + "/filler");
            } else {
                ASSERT_EQ(mount("", folder.c_str(), "", MS_REMOUNT, "size=300k"), 0);
            }
            EXPECT_TRUE(eventually([&] {
                meta->updateMetaAudioMode(7, 0);
                return meta->getMetaAudioMode(0) == 7;
            })) << ::testing::PrintToString(log.messages());
            EXPECT_EQ(openMeta(path)->getMetaAudioMode(0), 7);
            for (const auto& entry : std::filesystem::directory_iterator(folder))
                EXPECT_THAT(entry.path().string(), Not(HasSubstr("damaged")));
        }
    }
}

// The same folder at a second place where it cannot be written: a store there takes no locks while
// nobody writes, and must see what others write later.
TEST_F(StoreFault, ReaderWithoutLocksSeesWhatOthersWrite) {
    const SmallDisk disk(mFolder.path("other"));  // for its mounts of its own
    if (!disk.isMounted()) GTEST_SKIP() << "needs the right to mount";
    openMeta()->updateMetaAudioMode(2, 0);
    const std::string from = std::filesystem::path(mPath).parent_path();
    const std::string to = mFolder.path("other");
    ASSERT_EQ(mount(from.c_str(), to.c_str(), "", MS_BIND, nullptr), 0);
    ASSERT_EQ(mount("", to.c_str(), "", MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr), 0);
    {
        const auto reader = openMeta(to + "/meta.db");
        EXPECT_EQ(reader->getMetaAudioMode(0), 2);
        openMeta()->updateMetaAudioMode(3, 0);  // and closed: the log is in the file
        EXPECT_EQ(reader->getMetaAudioMode(0), 3);
        const auto writer = openMeta();
        for (int i = 4; i < 20; ++i) {
            writer->updateMetaAudioMode(static_cast<signed char>(i), 0);
            EXPECT_EQ(reader->getMetaAudioMode(0), i);
        }
    }
    EXPECT_EQ(umount2(to.c_str(), MNT_DETACH), 0);
}

}  // namespace
}  // namespace android
