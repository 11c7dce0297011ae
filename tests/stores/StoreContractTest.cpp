#include <cfloat>
#include <climits>
#include <cmath>
#include <cstring>
#include <limits>
#include <thread>

#include <qelto/HomePosSeed.h>

#include "StoreFixture.h"
#include "support/LogCapture.h"
#include "support/ScopedEnv.h"

namespace android {
namespace {

using sonorel::test::LogCapture;
using sonorel::test::ScopedEnv;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

using StoreContract = StoreFixture;

TEST_F(StoreContract, NewUserHasDefaults) {
    const LogCapture log(ANDROID_LOG_INFO);
    const auto meta = openMeta();
    EXPECT_FALSE(meta->getMetaAudioOn(-2));
    EXPECT_EQ(meta->getMetaAudioMode(-2), 0);
    EXPECT_EQ(positionOf(meta, 5), (Position{-7, -7, -7})) << "no row, nothing written";
    EXPECT_TRUE(meta->needInitDefaultHomePos());
    EXPECT_EQ(openMss()->getSoundWidenMode(), 0);
    EXPECT_THAT(switchesOf(openFge()), IsEmpty());
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(StoreContract, EveryUserAndDeviceHasItsOwnSettings) {
    const std::vector<std::pair<int, int8_t>> owners{{0, 0}, {0, 1}, {10, 0}, {10, 1}, {-3, 1}};
    const auto write = [](const sp<MetaInfoSqliteUtil>& meta, int mark, int8_t device) {
        meta->setMetaAudioOn(mark % 2 == 1, device);
        meta->updateMetaAudioMode(static_cast<signed char>(mark - 2), device);
        for (int scene = 1; scene <= 13; ++scene) {
            const auto number = static_cast<float>(100 * mark + scene);
            meta->updateMetaInfoByScene(scene, Position{number, -number, 0.1f}.data(), device);
        }
    };
    {
        const auto meta = openMeta();
        int mark = 0;
        for (const auto& [user, device] : owners) {
            meta->setCurrentUserID(user);
            write(meta, 9, device);  // Overwritten by the next.
            write(meta, mark++, device);
        }
    }
    const auto meta = openMeta();
    int mark = 0;
    for (const auto& [user, device] : owners) {
        meta->setCurrentUserID(user);
        EXPECT_EQ(meta->getMetaAudioOn(device), mark % 2 == 1);
        EXPECT_EQ(meta->getMetaAudioMode(device), mark - 2);
        for (int scene = 1; scene <= 13; ++scene) {
            const auto number = static_cast<float>(100 * mark + scene);
            EXPECT_EQ(positionOf(meta, scene, device), (Position{number, -number, 0.1f}));
        }
        ++mark;
    }
}

TEST_F(StoreContract, MinusOneAndMinusTwoAreTheCurrentDevice) {
    const auto meta = openMeta(mPath, 1);
    EXPECT_EQ(meta->getCurrentDevice(), 1);
    meta->setMetaAudioOn(true, -2);
    meta->updateMetaAudioMode(4, -1);
    EXPECT_TRUE(meta->getMetaAudioOn(1));
    EXPECT_EQ(meta->getMetaAudioMode(1), 4);
    EXPECT_FALSE(meta->getMetaAudioOn(0));
    meta->setCurrentDevice(0);
    EXPECT_EQ(meta->getCurrentDevice(), 0);
    EXPECT_FALSE(meta->getMetaAudioOn(-1));
    EXPECT_EQ(meta->getMetaAudioMode(-2), 0);
}

TEST_F(StoreContract, SeedingIsMarkedForEachUserAndDevice) {
    const auto meta = openMeta();
    meta->customDefaultHomePosInited();
    EXPECT_FALSE(meta->needInitDefaultHomePos());
    meta->setCurrentDevice(1);
    EXPECT_TRUE(meta->needInitDefaultHomePos());
    meta->setCurrentUserID(10);
    meta->customDefaultHomePosInited();
    meta->setCurrentUserID(0);
    EXPECT_TRUE(meta->needInitDefaultHomePos());
    const auto again = openMeta(mPath, 1);
    again->setCurrentUserID(10);
    EXPECT_FALSE(again->needInitDefaultHomePos());
    EXPECT_FALSE(again->getMetaAudioOn(-2)) << "the mark brings no setting with it";
}

// A trigger stands for what may go wrong half way.
TEST_F(StoreContract, HomePositionsAreSeededWholeOrNotAtAllAndSpareWhatUsersChose) {
    const auto meta = openMeta();
    const HomePositions home{{2, {2, 2, 2}}, {3, {3, 3, 3}}, {13, {13, 0, 0}}};
    meta->updateMetaInfoByScene(2, Position{7, 7, 7}.data(), 1);
    RawDatabase raw(mPath);
    raw.run("CREATE TRIGGER broken BEFORE INSERT ON META_INFO_POSITION WHEN NEW.scene = 13"
            " BEGIN SELECT RAISE(FAIL, 'no scene 13'); END");
    const LogCapture log(ANDROID_LOG_WARN);
    seedHomePositions(meta, 1, home);
    EXPECT_TRUE(log.contains("seedHomePositions: " + mPath + ": constraint failed"));
    EXPECT_EQ(raw.query("SELECT count(*) FROM META_INFO_POSITION"), "1");
    EXPECT_EQ(raw.query("SELECT count(*) FROM META_INFO"), "0") << "no mark";

    raw.run("DROP TRIGGER broken");
    seedHomePositions(meta, 1, home);
    seedHomePositions(meta, 1, {{3, {9, 9, 9}}});
    EXPECT_EQ(meta->getCurrentDevice(), 0);
    EXPECT_TRUE(meta->needInitDefaultHomePos());
    EXPECT_EQ(positionOf(meta, 2, 1), (Position{7, 7, 7}));
    EXPECT_EQ(positionOf(meta, 3, 1), (Position{3, 3, 3}));
    meta->updateMetaInfoByScene(13, Position{8, 8, 8}.data(), 1);
    EXPECT_EQ(raw.query("SELECT group_concat(scene || '=' || chosen) FROM META_INFO_POSITION"),
              "2=1,3=0,13=1");
    meta->setCurrentDevice(1);
    EXPECT_FALSE(meta->needInitDefaultHomePos());
}

std::array<uint32_t, 3> bitsOf(const Position& position) {
    std::array<uint32_t, 3> bits{};
    memcpy(bits.data(), position.data(), sizeof(bits));
    return bits;
}

TEST_F(StoreContract, PositionsComeBackBitForBit) {
    float oddNaN = 0;
    const uint32_t bits = 0xFFA12345;
    memcpy(&oddNaN, &bits, sizeof(bits));
    Position odd{oddNaN, -0.0f, std::numeric_limits<float>::denorm_min()};
    Position huge{std::numeric_limits<float>::infinity(), -FLT_MAX, 0.1f};
    {
        const auto meta = openMeta();
        meta->updateMetaInfoByScene(1, odd.data(), 0);
        meta->updateMetaInfoByScene(13, huge.data(), 0);
    }
    const auto meta = openMeta();
    EXPECT_EQ(bitsOf(positionOf(meta, 1, 0)), bitsOf(odd));
    EXPECT_EQ(positionOf(meta, 13, 0), huge);
}

TEST_F(StoreContract, BadScenesAndDevicesAreRefusedWithALine) {
    const auto meta = openMeta();
    Position position{1, 2, 3};
    for (const int scene : {0, -1, 14, INT_MIN, INT_MAX}) {
        const LogCapture log;
        meta->updateMetaInfoByScene(scene, position.data(), 0);
        EXPECT_EQ(positionOf(meta, scene, 0), (Position{-7, -7, -7}));
        EXPECT_EQ(log.lines().size(), 2u) << scene;
    }
    for (const int8_t device : {2, -3, 127, -128}) {
        const LogCapture log;
        meta->setMetaAudioOn(true, device);
        meta->updateMetaAudioMode(3, device);
        meta->updateMetaInfoByScene(1, position.data(), device);
        meta->setCurrentDevice(device);
        EXPECT_FALSE(meta->getMetaAudioOn(device));
        EXPECT_EQ(meta->getMetaAudioMode(device), 0);
        EXPECT_EQ(positionOf(meta, 1, device), (Position{-7, -7, -7}));
        EXPECT_EQ(log.lines().size(), 7u) << int(device);
        EXPECT_EQ(meta->getCurrentDevice(), 0);
    }
    meta->updateMetaInfoByScene(1, nullptr, 0);
    meta->getMetaInfoByScene(1, nullptr, 0);
    EXPECT_EQ(openMeta(mPath, 7)->getCurrentDevice(), 0);
}

TEST_F(StoreContract, TablesAreApartAndHostileNamesRefused) {
    const auto meta = openMeta();
    meta->setMetaAudioOn(true, 0);
    const sp<MetaInfoSqliteUtil> other = new MetaInfoSqliteUtil(mPath, "OTHER_1", 4, 2.0f, 0);
    EXPECT_FALSE(other->getMetaAudioOn(0));
    other->updateMetaInfoByScene(3, Position{1, 2, 3}.data(), 0);
    other->updateMetaInfoByScene(4, Position{1, 2, 3}.data(), 0);
    EXPECT_EQ(positionOf(other, 3), (Position{1, 2, 3}));
    EXPECT_EQ(positionOf(other, 4), (Position{-7, -7, -7})) << "beyond this table's bound";
    for (const char* name :
         {"", "x\"; DROP TABLE META_INFO; --", "1x", "sqlite_x", "mss_info", "a b"}) {
        const LogCapture log;
        const sp<MetaInfoSqliteUtil> odd = new MetaInfoSqliteUtil(mPath, name, 14, 1.5f, 0);
        EXPECT_TRUE(log.contains("refused table name")) << name;
        EXPECT_TRUE(odd->getMetaAudioOn(0)) << "the default table serves";
    }
    RawDatabase raw(mPath);
    EXPECT_EQ(raw.query("SELECT version FROM META_LAYOUT WHERE table_name = 'META_INFO'"), "1.5");
    EXPECT_EQ(raw.query("SELECT version FROM META_LAYOUT WHERE table_name = 'OTHER_1'"), "2");
    EXPECT_EQ(raw.query("PRAGMA user_version"), "2");
    EXPECT_EQ(raw.query("PRAGMA journal_mode"), "wal");
}

TEST_F(StoreContract, SoundWidenModeIsKeptForEachUser) {
    {
        const auto mss = openMss();
        mss->setSoundWidenMode(-1);
        mss->setCurrentUserID(10);
        EXPECT_EQ(mss->getSoundWidenMode(), 0);
        mss->setSoundWidenMode(INT_MAX);
        mss->setSoundWidenMode(INT_MIN);
    }
    const auto mss = openMss();
    EXPECT_EQ(mss->getSoundWidenMode(), -1);
    mss->setCurrentUserID(10);
    EXPECT_EQ(mss->getSoundWidenMode(), INT_MIN);
}

TEST_F(StoreContract, PackageListKeepsValuesThroughLeavingAndReturning) {
    {
        const auto fge = openFge();
        fge->updateDataBase({"b", "a", "b"}, {});
        EXPECT_THAT(switchesOf(fge), ElementsAre(Pair("a", 0), Pair("b", 0)));
        fge->setFastGameEffectOn("a", 1);
        fge->setFastGameEffectOn("b", 7);
        fge->updateDataBase({"b", "c"}, {{"b", 99}});
        EXPECT_THAT(switchesOf(fge), ElementsAre(Pair("a", -1), Pair("b", 7), Pair("c", 0)))
                << "what is stored outweighs what the caller knew";
        fge->setFastGameEffectOn("a", 2);
        EXPECT_EQ(switchesOf(fge)["a"], -1) << "not listed stays not switchable";
        fge->mCurrentUserId = 10;
        EXPECT_THAT(switchesOf(fge), IsEmpty());
        fge->setFastGameEffectOn("new", 5);
        EXPECT_THAT(switchesOf(fge), ElementsAre(Pair("new", 5)));
    }
    const auto fge = openFge();
    fge->updateDataBase({"a"}, switchesOf(fge));
    EXPECT_THAT(switchesOf(fge), ElementsAre(Pair("a", 2), Pair("b", -1), Pair("c", -1)));
    fge->updateDataBase({}, {});
    EXPECT_THAT(switchesOf(fge), ElementsAre(Pair("a", -1), Pair("b", -1), Pair("c", -1)));
}

// The caller may hold another user's values by then.
TEST_F(StoreContract, NewPackagesStartWithZeroWhateverTheCallerKnows) {
    const auto fge = openFge();
    fge->updateDataBase({"listed", "new"}, {{"listed", 3}, {"left", 4}});
    EXPECT_THAT(switchesOf(fge), ElementsAre(Pair("listed", 0), Pair("new", 0)));
}

TEST_F(StoreContract, AnyPackageNameIsKept) {
    const std::vector<std::string> names{"", "a'b\"c;--", std::string("nul\0inside", 10),
                                         "\xFF\xFE", std::string(100000, 'x')};
    const auto fge = openFge();
    fge->updateDataBase(names, {});
    for (const std::string& name : names)
        fge->setFastGameEffectOn(name, 3);
    Switches switches = switchesOf(openFge());
    EXPECT_EQ(switches.size(), names.size());
    for (const std::string& name : names)
        EXPECT_EQ(switches[name], 3);
}

TEST_F(StoreContract, DevicePathIsMappedBelowTheRootAndLoggedAsItIs) {
    const ScopedEnv root("SONOREL_DEVICE_ROOT", mFolder.path("root"));
    const auto meta = openMeta("/data/qelto/multimedia/meta.db");
    meta->setMetaAudioOn(true, 0);
    EXPECT_TRUE(std::filesystem::exists(mFolder.path("root/data/qelto/multimedia/meta.db")));
    mFolder.write("root/data/blocked", "a file");
    const LogCapture log;
    openMeta("/data/blocked/meta.db")->setMetaAudioOn(true, 0);
    EXPECT_TRUE(log.contains("setMetaAudioOn: /data/blocked/meta.db: not stored"));
    EXPECT_FALSE(log.contains(mFolder.path()));
}

// Two connections of each kind at once; every acknowledged write must be there in the end.
TEST_F(StoreContract, StoresOnOneFileWorkAtOnce) {
    const LogCapture log(ANDROID_LOG_WARN);
    constexpr int kRounds = 200;
    const auto run = [this](int user) {
        const auto meta = openMeta();
        const auto mss = openMss();
        const auto fge = openFge();
        meta->setCurrentUserID(user);
        mss->setCurrentUserID(user);
        fge->mCurrentUserId = user;
        std::thread games([&] {
            for (int i = 0; i <= kRounds; ++i) {
                fge->updateDataBase({"p" + std::to_string(i % 3), "q"}, switchesOf(fge));
                fge->setFastGameEffectOn("q", i);
            }
        });
        std::thread reader([&] {
            int last = 0;
            while (last < kRounds) {
                const int mode = mss->getSoundWidenMode();
                EXPECT_GE(mode, last);
                last = mode;
            }
        });
        for (int i = 0; i <= kRounds; ++i) {
            const auto number = static_cast<float>(i);
            meta->updateMetaInfoByScene(1 + i % 13, Position{number, number, number}.data(), -2);
            mss->setSoundWidenMode(i);
        }
        games.join();
        reader.join();
    };
    std::thread one(run, 1);
    std::thread two(run, 2);
    one.join();
    two.join();
    EXPECT_THAT(log.messages(), IsEmpty());
    const auto meta = openMeta();
    const auto fge = openFge();
    for (const int user : {1, 2}) {
        meta->setCurrentUserID(user);
        fge->mCurrentUserId = user;
        constexpr auto kLast = static_cast<float>(kRounds);
        EXPECT_EQ(positionOf(meta, 1 + kRounds % 13), (Position{kLast, kLast, kLast}));
        EXPECT_EQ(switchesOf(fge)["q"], kRounds);
    }
}

// The object itself under one store's threads: looper and binder threads share it.
TEST_F(StoreContract, OneObjectServesManyThreads) {
    const LogCapture log(ANDROID_LOG_WARN);
    const auto meta = openMeta();
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&meta, t] {
            for (int i = 0; i < 100; ++i) {
                const auto number = static_cast<float>(i);
                meta->updateMetaInfoByScene(t + 1, Position{number, number, number}.data(), 0);
                const Position read = positionOf(meta, t + 1, 0);
                EXPECT_EQ(read, (Position{number, number, number}));
                meta->setCurrentDevice(static_cast<int8_t>(i % 2));
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_THAT(log.messages(), IsEmpty());
}

}  // namespace
}  // namespace android
