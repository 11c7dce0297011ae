// Construction, start-up, end, and the hooks of the host process.

#include <algorithm>

#include "service/ServiceHarness.h"

namespace sonorel::test {

namespace {

class Lifecycle : public ServiceTest {};

TEST_F(Lifecycle, StartUpReadsPolicyAndTellsInOrder) {
    start();
    const std::vector<std::string> expected = {
            "SonorelService",
            "init",
            "isNeedUpdateMetaPolicyXML:meta audio policy file need update check path = "
            "data/qelto/multimedia/Meta_Audio_Policy_Online.xml",
            "isNeedUpdateMetaPolicyXML:meta audio policy file need update check path = "
            "system_ext/etc/Meta_Audio_Policy.xml",
            "loadMetaAudioXml:meta audio policy file loadMetaAudioXml path = "
            "system_ext/etc/Meta_Audio_Policy.xml",
            "loadMssAudioXml: mss audio params config file path = ",
            "spNotifyLoadXmlAndSqlite +++ ",
            "callClient:clientID:1 exist:0, event:14, isOneWay:0",
            "spNotifyLoadXmlAndSqlite --- ",
            "onFirstRef",
    };
    const std::vector<std::string> messages = mCapture.messages();
    auto from = messages.begin();
    for (const std::string& line : expected) {
        const auto found = std::find(from, messages.end(), line);
        ASSERT_NE(found, messages.end()) << "missing or out of order: " << line;
        from = found + 1;
    }
    for (const LogLine& line : mCapture.lines()) {
        if (line.message == "init") {
            EXPECT_EQ("Kestrune::SonorelService_Aidl", line.tag);
        }
    }
}

TEST_F(Lifecycle, SecondInitChangesNothing) {
    start();
    addClient(1);
    mEvents.clear();
    mCapture.clear();
    mService->init();
    EXPECT_EQ((std::vector<std::string>{"init", "init halvend already inited"}),
              mCapture.messages());
    EXPECT_TRUE(mEvents.lines().empty());
}

TEST_F(Lifecycle, DeviceClassFollowsSpeakerSupport) {
    start();
    EXPECT_EQ(1, mService->getDbDeviceType(true));
    EXPECT_EQ(1, mService->getDbDeviceType(false));
    product(true);
    restart();
    EXPECT_EQ(1, mService->getDbDeviceType(true));
    EXPECT_EQ(0, mService->getDbDeviceType(false));
}

TEST_F(Lifecycle, SpeakerProductSeedsBothDeviceClasses) {
    product(true);
    start();
    std::vector<float> xyz(3);
    // Not the live device, so the store answers.
    ASSERT_TRUE(mService->getCurrentPosWithDev(1, &xyz, 1).isOk());
    EXPECT_EQ(pos(1, 2, 3), xyz);
    // The live one, without a renderer.
    ASSERT_TRUE(mService->getCurrentPosWithDev(1, &xyz, 0).isOk());
    EXPECT_EQ(pos(-1, -2, -3), xyz);
}

TEST_F(Lifecycle, DestructionLogsAndDropsTheService) {
    start();
    const android::wp<SonorelService> weak = mService;
    mCapture.clear();
    mService.clear();
    EXPECT_EQ(1U, mCapture.count("~SonorelService"));
    EXPECT_EQ(nullptr, weak.promote().get());
}

TEST_F(Lifecycle, AudioServerRestartPushesAgain) {
    product(true);
    start();
    addClient(1);
    mEvents.clear();
    EXPECT_EQ(0, mService->onAudioServerRestarted());
    const auto pushed = mEvents.takeLines();
    ASSERT_FALSE(pushed.empty());
    EXPECT_EQ("client 1 event 14 two-way", pushed.front());

    mService->onAudioServerDied();
    EXPECT_TRUE(mEvents.lines().empty());
    ASSERT_TRUE(mService->unregisterClient(1).isOk());
    addClient(1);
    EXPECT_EQ(pushed, mEvents.takeLines());
}

}  // namespace

}  // namespace sonorel::test
