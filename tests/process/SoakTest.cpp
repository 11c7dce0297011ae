// The long forms: minutes each.

#include <memory>

#include "process/ContentionRounds.h"
#include "process/CrashRounds.h"
#include "process/PolicyRounds.h"
#include "process/StormRounds.h"
#include "process/VisitRounds.h"

namespace sonorel::test {
namespace {

using Contention = ContentionRounds;
using Crash = CrashRounds;
using Visit = VisitRounds;
using Policy = PolicyRounds;
using Storm = StormRounds;

TEST_F(Visit, TwoHundredClientsTwentyTimesOver) {
    // Some bytes for each thread that the pool starts late; one word lost a client would show.
    run(20, 200, 16 * 1024);
}

TEST_F(Crash, ThreeHundredKills) {
    run(300, 2);
}

TEST_F(Contention, TwoHundredRoundsOfTicks) {
    switchTicks(200, 3, 60);
}

TEST_F(Contention, TwentyFourCallersSwitchTicksForAMinute) {
    switchTicks(1, 24, -60);
    expectSilenceAfterDisable();
}

TEST_F(Contention, TwoHundredRoundsOfSettings) {
    chooseSettings(200);
}

TEST_F(Contention, TwoHundredUsersAndDevices) {
    switchUserAndDevice(200);
}

TEST_F(Contention, TwoHundredRenderers) {
    replaceRenderers(200);
}

TEST_F(Storm, EightCallersForTwentyThousandCallsEach) {
    run(20000);
}

TEST_F(Policy, TwoHundredReplacementsDuringReloads) {
    replaceDuringReloads(200, 4);
}

TEST_F(Policy, ReloadsFromSixteenThreadsLeaveNothingResident) {
    reloadFromManyThreads();
}

}  // namespace
}  // namespace sonorel::test
