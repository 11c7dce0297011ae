// Deferred store writes: messages good and broken, straight at the handler.

#include <media/stagefright/foundation/AMessage.h>
#include <qelto/FgeDatabase.h>
#include <qelto/MetaInfoSqliteUtil.h>

#include "service/ServiceHarness.h"
#include "service/SpHandler.h"

namespace sonorel::test {

namespace {

using android::AMessage;
using android::SpHandler;

class Handler : public ServiceTest {
protected:
    Handler() {
        mStore = new android::MetaInfoSqliteUtil(kDatabase, "META_INFO", 14, 1.5f, 1);
        mHandler = new SpHandler(mStore);
        mCapture.clear();
    }

    static constexpr char kDatabase[] = "/data/qelto/multimedia/meta.db";
    sp<android::MetaInfoSqliteUtil> mStore;
    sp<SpHandler> mHandler;
};

TEST_F(Handler, OnlyOneMeansOn) {
    for (const int value : {1, 0, 2, -5}) {
        mStore->setMetaAudioOn(value != 1, 1);
        const sp<AMessage> msg = new AMessage(0, mHandler);
        msg->setInt32("meta_on", value);
        msg->setInt32("meta_dev", 1);
        mHandler->onMessageReceived(msg);
        EXPECT_EQ(value == 1, mStore->getMetaAudioOn(1)) << value;
    }
}

TEST_F(Handler, ModeIsNarrowedAndPositionsAreStored) {
    const sp<AMessage> mode = new AMessage(1, mHandler);
    mode->setInt32("meta_mode", 258);
    mode->setInt32("meta_dev", 0);
    mHandler->onMessageReceived(mode);
    EXPECT_EQ(2, mStore->getMetaAudioMode(0));

    const sp<AMessage> scene = new AMessage(2, mHandler);
    scene->setInt32("meta_scene", 13);
    scene->setInt32("meta_dev", 1);
    scene->setFloat("meta_pos_x", 0.5f);
    scene->setFloat("meta_pos_y", -1.5f);
    scene->setFloat("meta_pos_z", 2.5f);
    mHandler->onMessageReceived(scene);
    float xyz[3] = {};
    mStore->getMetaInfoByScene(13, xyz, 1);
    EXPECT_EQ(pos(0.5f, -1.5f, 2.5f), std::vector<float>(xyz, xyz + 3));
}

TEST_F(Handler, BrokenMessagesAreNamedAndWriteNothing) {
    const sp<AMessage> unknown = new AMessage(4, mHandler);
    const sp<AMessage> noDevice = new AMessage(0, mHandler);
    noDevice->setInt32("meta_on", 1);
    const sp<AMessage> noMode = new AMessage(1, mHandler);
    noMode->setInt32("meta_dev", 1);
    const sp<AMessage> noZ = new AMessage(2, mHandler);
    noZ->setInt32("meta_scene", 2);
    noZ->setInt32("meta_dev", 0);
    noZ->setFloat("meta_pos_x", 1.0f);
    noZ->setFloat("meta_pos_y", 2.0f);
    const sp<AMessage> noSwitch = new AMessage(3, mHandler);
    noSwitch->setString("fge_pkgname", "com.example.game");
    for (const auto& msg : {unknown, noDevice, noMode, noZ, noSwitch}) {
        mHandler->onMessageReceived(msg);
    }
    std::vector<std::string> lines;
    for (const LogLine& line : mCapture.lines()) {
        EXPECT_EQ(ANDROID_LOG_ERROR, line.priority) << line.message;
        lines.push_back(line.message);
    }
    EXPECT_EQ((std::vector<std::string>{
                      "onMessageReceived : unknown msg key 4", "parse failed : on[1] dev[-1]",
                      "parse failed : mode[-1] dev[-1]",
                      "parse failed : scene[2] dev[0] pos[1.000000|2.000000|0.000000]",
                      "FastGameEffect: onMessageReceived parse failed"}),
              lines);
    EXPECT_FALSE(mStore->getMetaAudioOn(1));
}

TEST_F(Handler, GameSwitchNeedsItsStore) {
    const sp<AMessage> msg = new AMessage(3, mHandler);
    msg->setString("fge_pkgname", "com.example.game");
    msg->setInt32("fge_switch", 2);
    mHandler->onMessageReceived(msg);
    EXPECT_TRUE(mCapture.messages().empty());

    const sp<android::FgeDatabase> store = new android::FgeDatabase(kDatabase);
    store->updateDataBase({"com.example.game"}, {});
    mHandler->setFgeDatabase(store);
    mHandler->onMessageReceived(msg);
    EXPECT_EQ(1U, mCapture.count("FastGameEffect: onSetFastGameEffectOn pkgName: "
                                 "com.example.game, switch: 2"));
    std::map<std::string, int> stored;
    store->getSwitchForPkgName(stored);
    EXPECT_EQ(2, stored["com.example.game"]);
}

}  // namespace

}  // namespace sonorel::test
