// Writes that meet a file which another connection has locked.

#include <qelto/HomePosSeed.h>
#include <qelto/StoreWrites.h>

#include <chrono>

#include "StoreFixture.h"
#include "support/LogCapture.h"
#include "support/Wait.h"

namespace android {
namespace {

using sonorel::test::eventually;
using sonorel::test::LogCapture;
using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::Pair;

using StoreKept = StoreFixture;

void expectNewest(const sp<MetaInfoSqliteUtil>& meta, const sp<MssDatabase>& mss,
                  const Switches& games) {
    EXPECT_EQ(meta->getMetaAudioMode(0), 10);
    EXPECT_FALSE(meta->getMetaAudioOn(0));
    EXPECT_TRUE(meta->getMetaAudioOn(1));
    Position position{};
    meta->getMetaInfoByScene(5, position.data(), 0);
    EXPECT_EQ(position, (Position{1, 2, 3}));
    EXPECT_EQ(mss->getSoundWidenMode(), 4);
    EXPECT_THAT(games, ElementsAre(Pair("a", -1), Pair("b", 6), Pair("c", 0)));
}

TEST_F(StoreKept, NewestOfEachRowIsKeptReadAndStoredOnceTheFileIsFree) {
    const auto meta = openMeta();
    const auto mss = openMss();
    const auto fge = openFge();
    meta->updateMetaAudioMode(3, 0);
    fge->updateDataBase({"a", "b"}, {});
    RawDatabase other(mPath);
    other.run("BEGIN IMMEDIATE");
    const LogCapture log(ANDROID_LOG_INFO);
    const auto start = std::chrono::steady_clock::now();
    for (signed char i = 1; i <= 10; ++i) {
        meta->updateMetaAudioMode(i, 0);
        EXPECT_FALSE(meta->getMetaAudioOn(0)) << "reads of other rows go on";
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(8))
            << "ten times the full wait would be 10 s";
    const std::string mode = "updateMetaAudioMode: " + mPath + ": ";
    EXPECT_EQ(log.count(mode + "database is locked, kept until it is free"), 1U);
    meta->setMetaAudioOn(true, 1);
    meta->updateMetaInfoByScene(5, Position{1, 2, 3}.data(), -2);
    mss->setSoundWidenMode(4);
    fge->setFastGameEffectOn("b", 6);
    fge->updateDataBase({"b", "c"}, {});
    expectNewest(meta, mss, switchesOf(fge));
    EXPECT_EQ(openMeta()->getMetaAudioMode(0), 3) << "others see what is stored";

    // The row's user and device stay, whoever is current when the file is free.
    meta->setCurrentUserID(10);
    meta->setCurrentDevice(1);
    mss->setCurrentUserID(10);
    fge->mCurrentUserId = 10;
    EXPECT_EQ(meta->getMetaAudioMode(0), 0);
    EXPECT_EQ(mss->getSoundWidenMode(), 0);
    other.run("ROLLBACK");
    for (const char* operation : {"updateMetaAudioMode", "setMetaAudioOn", "updateMetaInfoByScene",
                                  "setSoundWidenMode", "setFastGameEffectOn", "updateDataBase"}) {
        EXPECT_TRUE(
                log.waitFor(std::string(operation) + ": " + mPath + ": what was kept is stored"));
    }
    EXPECT_EQ(log.count(mode + "what was kept is stored"), 1U);
    expectNewest(openMeta(), openMss(), switchesOf(openFge()));
}

TEST_F(StoreKept, LaterWriteThatSucceedsIsTheOneThatStays) {
    const auto meta = openMeta();
    RawDatabase other(mPath);
    for (const signed char i : {1, 3}) {
        other.run("BEGIN IMMEDIATE");
        meta->updateMetaAudioMode(i, 0);
        other.run("COMMIT");
        meta->updateMetaAudioMode(static_cast<signed char>(i + 1), 0);
        EXPECT_EQ(meta->getMetaAudioMode(0), i + 1);
    }
    EXPECT_EQ(finishStoreWrites(milliseconds(0)), 0U);
    EXPECT_EQ(openMeta()->getMetaAudioMode(0), 4);
}

// A position that waits is a chosen one, so seeding waits for it.
TEST_F(StoreKept, SeedingComesAfterAPositionThatIsKept) {
    const auto meta = openMeta();
    RawDatabase other(mPath);
    other.run("BEGIN IMMEDIATE");
    meta->updateMetaInfoByScene(2, Position{7, 7, 7}.data(), 0);
    seedHomePositions(meta, 0, {{2, {2, 2, 2}}, {3, {3, 3, 3}}});
    EXPECT_TRUE(meta->needInitDefaultHomePos());
    other.run("COMMIT");
    seedHomePositions(meta, 0, {{2, {2, 2, 2}}, {3, {3, 3, 3}}});
    EXPECT_EQ(positionOf(meta, 2, 0), (Position{7, 7, 7}));
    EXPECT_EQ(positionOf(meta, 3, 0), (Position{3, 3, 3}));
}

TEST_F(StoreKept, EndOfTheProcessStoresThemOrSaysWhatItCouldNot) {
    const LogCapture log(ANDROID_LOG_INFO);
    auto meta = openMeta();
    const auto mss = openMss();
    RawDatabase other(mPath);
    other.run("BEGIN IMMEDIATE");
    meta->updateMetaAudioMode(5, 0);
    meta->setMetaAudioOn(true, 0);
    mss->setSoundWidenMode(4);
    EXPECT_EQ(finishStoreWrites(milliseconds(10)), 3U);
    for (const char* operation : {"updateMetaAudioMode", "setMetaAudioOn", "setSoundWidenMode"}) {
        EXPECT_EQ(log.count(std::string(operation) + ": " + mPath +
                            ": could not be stored in time, the database is locked"),
                  1U);
    }
    meta.clear();
    EXPECT_EQ(log.count("setMetaAudioOn: " + mPath + ": given up: the database is locked"), 1U);
    other.run("ROLLBACK");
    EXPECT_EQ(finishStoreWrites(sonorel::test::kEventDeadline), 0U);
    EXPECT_EQ(openMss()->getSoundWidenMode(), 4);
}

// The same for a file that could not even be opened.
TEST_F(StoreKept, FileThatIsLockedFromTheStartTakesTheWriteLater) {
    openMeta()->updateMetaAudioMode(2, 0);
    auto other = std::make_unique<RawDatabase>(mPath);
    other->run("PRAGMA locking_mode = EXCLUSIVE; BEGIN EXCLUSIVE; COMMIT");
    EXPECT_EQ(other->query("SELECT count(*) FROM META_INFO"), "1");
    const auto meta = openMeta();
    meta->updateMetaAudioMode(5, 0);
    EXPECT_EQ(meta->getMetaAudioMode(0), 5);
    other.reset();
    EXPECT_TRUE(eventually([&] { return openMeta()->getMetaAudioMode(0) == 5; }));
}

}  // namespace
}  // namespace android
