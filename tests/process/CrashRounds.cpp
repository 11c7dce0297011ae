#include <memory>

#include "process/CrashRounds.h"

#include <cmath>

#include "stores/StoreFixture.h"

namespace sonorel::test {

namespace {

constexpr int32_t kPosScene = 5;
constexpr int32_t kDeferredScene = 6;

std::vector<float> posOf(int32_t number) {
    const auto x = static_cast<float>(number);
    return {x, -x, x};
}

}  // namespace

void CrashRounds::run(int rounds, uint32_t seed) {
    std::mt19937 random(seed);
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        ASSERT_NO_FATAL_FAILURE(start());
        checkSettings();
        ASSERT_NO_FATAL_FAILURE(killWhileSetting(random));
        checkDatabase();
    }
    ASSERT_NO_FATAL_FAILURE(start());
    checkSettings();
    ASSERT_GT(mNumber, rounds) << "the stream hardly ran";
}

void CrashRounds::killWhileSetting(std::mt19937& random) {
    // A moment, not an order of events: some settings in, then anywhere within one or two more.
    const int enough = mAcknowledged + std::uniform_int_distribution<int>(0, 40)(random);
    const auto extra =
            std::chrono::microseconds(std::uniform_int_distribution<int>(0, 1000)(random));
    {
        JoinedThread stream([this] { setUntilItEnds(); });
        const bool flowed = eventually([&] { return mAcknowledged >= enough; });
        std::this_thread::sleep_for(extra);
        mDaemon->process().kill(SIGKILL);
        ASSERT_TRUE(flowed);
    }
    const auto end = mDaemon->process().wait();
    ASSERT_TRUE(end.has_value());
    EXPECT_EQ(SIGKILL, end->signal) << mDaemon->process().errors();
    mService.clear();
    mDaemon.reset();
}

void CrashRounds::setUntilItEnds() {
    while (setOne(mNumber + 1))
        ++mAcknowledged;
}

bool CrashRounds::setOne(int32_t number) {
    mNumber = number;
    int32_t status = 0;
    const auto set = [](Pending* pending, int32_t value, auto call) {
        pending->sent = value;
        if (!call().isOk()) return false;
        pending->acknowledged = value;
        return true;
    };
    switch (number % 4) {
        case 0:
            return set(&mOn, number / 4 % 2,
                       [&] { return mService->setMetaAudioOn(number / 4 % 2 != 0, &status); });
        case 1:
            return set(&mMode, number % 101, [&] {
                return mService->setMetaAudioMode(static_cast<int8_t>(number % 101), &status);
            });
        case 2:
            return set(&mPos, number,
                       [&] { return mService->javaCallSetCurrentPos(kPosScene, posOf(number)); });
        default:
            mDeferred.sent = number;
            return mService->setCurrentPosWithDev(kDeferredScene, posOf(number), -1).isOk();
    }
}

void CrashRounds::checkDatabase() {
    EXPECT_EQ(0U, mRoot.damagedDatabases());
    android::RawDatabase database(mRoot.databasePath());
    EXPECT_EQ("ok", database.query("PRAGMA integrity_check"));
}

void CrashRounds::checkSettings() {
    bool on = false;
    int8_t mode = 0;
    std::vector<float> pos(3);
    ASSERT_TRUE(mService->getMetaAudioOn(&on).isOk());
    ASSERT_TRUE(mService->getMetaAudioMode(&mode).isOk());
    settle("on", on ? 1 : 0, &mOn);
    settle("mode", mode, &mMode);
    ASSERT_TRUE(mService->javaCallGetCurrentPos(kPosScene, &pos).isOk());
    EXPECT_EQ(posOf(static_cast<int32_t>(pos[0])), pos);
    settle("position", static_cast<int32_t>(pos[0]), &mPos);

    ASSERT_TRUE(mService->javaCallGetCurrentPos(kDeferredScene, &pos).isOk());
    const auto deferred = static_cast<int32_t>(pos[0]);
    EXPECT_EQ(posOf(deferred), pos);
    EXPECT_LE(mDeferred.acknowledged, deferred);
    EXPECT_LE(deferred, mDeferred.sent);
    mDeferred = {deferred, deferred};
}

void CrashRounds::settle(const char* what, int32_t stored, Pending* pending) {
    EXPECT_TRUE(stored == pending->acknowledged || stored == pending->sent)
            << what << ": stored " << stored << ", acknowledged " << pending->acknowledged
            << ", under way " << pending->sent;
    *pending = {stored, stored};
}

}  // namespace sonorel::test
