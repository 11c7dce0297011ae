// The settings file under the service: slow, broken half way, taken away.

#include <filesystem>
#include <thread>

#include "service/ServiceHarness.h"
#include "stores/RawDatabase.h"

namespace sonorel::test {
namespace {

using android::RawDatabase;

class SettingsStore : public ServiceTest {
protected:
    std::string filePath() const { return mRoot.path("data/qelto/multimedia/meta.db"); }

    // What the renderer was last told of scene 1, whose home position tells the device.
    std::string lastScene1() {
        std::string last;
        for (const std::string& line : mEvents.takeLines()) {
            const size_t at = line.find("event 2 one-way scene=1 ");
            if (at != std::string::npos) last = line.substr(line.find("data="));
        }
        return last;
    }
};

// What a lock or a full disk may do in the middle of seeding, a trigger does here for certain.
TEST_F(SettingsStore, SeedingThatFailsHalfWayIsDoneOnTheNextOccasion) {
    product(true);
    start();
    RawDatabase raw(filePath());
    raw.run("CREATE TRIGGER broken BEFORE INSERT ON META_INFO_POSITION WHEN NEW.scene = 13"
            " BEGIN SELECT RAISE(FAIL, 'no'); END");
    ASSERT_TRUE(mService->setCurrentUserID(5).isOk());
    raw.run("DROP TRIGGER broken");
    ASSERT_TRUE(mService->notitySpHeadsetConnectionState(true).isOk());
    ASSERT_TRUE(mService->notitySpHeadsetConnectionState(false).isOk());
    EXPECT_EQ(raw.query("SELECT group_concat(device || scene || chosen) FROM META_INFO_POSITION"
                        " WHERE user_id = 5"),
              "010,0130,110,1130");
}

TEST_F(SettingsStore, FileThatWasTakenAwayIsSeededBeforeThePush) {
    start();
    addClient(1);
    for (const char* suffix : {"", "-wal", "-shm"})
        std::filesystem::remove(filePath() + suffix);
    ASSERT_TRUE(mService->notitySpHeadsetConnectionState(true).isOk());
    EXPECT_EQ(lastScene1(), "data=1,2,3");
}

// A lock on the file stretches the switch until the headset change is under way as well.
TEST_F(SettingsStore, HeadsetChangeBesideAUserSwitchLeavesTheLiveDeviceInUse) {
    product(true);
    start();
    addClient(1);
    RawDatabase raw(filePath());
    raw.run("PRAGMA busy_timeout = 30000");
    for (int round = 1; round <= 30; ++round) {
        SCOPED_TRACE(round);
        const bool isConnected = round % 2 == 1;
        mCapture.clear();
        raw.run("BEGIN IMMEDIATE");
        std::thread user([&] {
            const ScopedCaller system(kSystemUid);
            EXPECT_TRUE(mService->setCurrentUserID(round).isOk());
        });
        EXPECT_TRUE(mCapture.waitFor("setCurrentUserID +++"));
        std::thread headset(
                [&] { EXPECT_TRUE(mService->notitySpHeadsetConnectionState(isConnected).isOk()); });
        EXPECT_TRUE(mCapture.waitFor("notitySpHeadsetConnectionState mIsHeadSetConnected"));
        raw.run("COMMIT");
        user.join();
        headset.join();
        EXPECT_EQ(lastScene1(), isConnected ? "data=1,2,3" : "data=-1,-2,-3");
        // A plain setting goes to the live device's row.
        int32_t status = 0;
        int8_t idle = -1;
        EXPECT_TRUE(mService->setMetaAudioMode(7, &status).isOk());
        EXPECT_TRUE(mService->getMetaAudioModeWithDev(isConnected ? 0 : 1, &idle).isOk());
        EXPECT_EQ(0, idle);
    }
}

}  // namespace
}  // namespace sonorel::test
