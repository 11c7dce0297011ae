// Short forms of the rounds with several processes; tests/process/SoakTest.cpp has the long ones.

#include "process/ContentionRounds.h"
#include "stores/RawDatabase.h"

namespace sonorel::test {
namespace {

using android::RawDatabase;

using Contention = ContentionRounds;

TEST_F(Contention, TicksFollowTheLastSwitch) {
    switchTicks(3, 6, 200);
}

TEST_F(Contention, WhatACallerSetLastIsReadAndStored) {
    chooseSettings(15);
}

TEST_F(Contention, SettingsGoToTheLiveDeviceOfTheNewUser) {
    switchUserAndDevice(15);
}

TEST_F(Contention, EachRendererGetsEverything) {
    replaceRenderers(10);
}

// Settings that come faster than the database takes them, from a process that nothing forbids it.
TEST_F(Contention, AFloodOfDeferredSettingsLeavesOneOfEachAndHoldsUpNobody) {
    ASSERT_NO_FATAL_FAILURE(start(speakerProduct()));
    RawDatabase other(mRoot.databasePath());
    other.run("CREATE TABLE DIARY(number INTEGER PRIMARY KEY)");
    for (const char* change : {"INSERT", "UPDATE"}) {
        other.run(std::string("CREATE TRIGGER POS_") + change + " AFTER " + change +
                  " ON META_INFO_POSITION BEGIN INSERT INTO DIARY VALUES(NULL); END");
    }
    other.run("BEGIN IMMEDIATE");
    std::vector<std::unique_ptr<ChildProcess>> floods;
    for (const char* seed : {"1", "2", "3"}) {
        floods.push_back(std::make_unique<ChildProcess>(peer({"flood", seed, "20000"})));
    }
    // A caller who sets what exists is not held up, and finds what it has set.
    for (int32_t scene = 1; scene <= 13; ++scene) {
        const std::vector<float> set = {static_cast<float>(scene), 5, 5};
        std::vector<float> read(3);
        EXPECT_TRUE(mService->setCurrentPosWithDev(scene, set, 0).isOk());
        EXPECT_TRUE(mService->getCurrentPosWithDev(scene, &read, 0).isOk());
        EXPECT_EQ(set, read);
    }
    for (const auto& flood : floods) {
        const auto end = flood->wait();
        ASSERT_TRUE(end.has_value());
        EXPECT_TRUE(end->exited && end->code == 0) << flood->errors();
    }
    other.run("COMMIT");
    // At most one write a setting waits, and one was under way; the store may have kept another.
    ASSERT_TRUE(mService->notitySpHeadsetConnectionState(true).isOk());
    EXPECT_LE(std::stoi(other.query("SELECT count(*) FROM DIARY")), 3 * 2 * 13);
    expectServes();
}

}  // namespace
}  // namespace sonorel::test
