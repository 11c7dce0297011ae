// Who may call what, by the uid that the kernel knows.

#include <memory>

#include <unistd.h>

#include <gmock/gmock.h>

#include "process/ProcessTest.h"

namespace sonorel::test {
namespace {

const char kRefused[] =
        "setMetaAudioOn 1 0\n"
        "setMetaAudioMode 1 0\n"
        "getParameters 1 ''\n"
        "getMssTracksGain 1 [0,0,0,0,0] 0\n";
const char kPassed[] =
        "setMetaAudioOn 1 7\n"
        "setMetaAudioMode 1 7\n"
        "getParameters 1 'false'\n"
        "getMssTracksGain 1 [0,0,0,0,0] 0\n";

class Identity : public ProcessTest {
protected:
    void SetUp() override {
        if (::geteuid() != 0) GTEST_SKIP() << "only root can start callers under other uids";
        ASSERT_NO_FATAL_FAILURE(start(speakerProduct()));
        mRenderer = addClient(IHalvendClient::CLIENT_ID_META_AUDIO);
        // The last of what registering pushes.
        ASSERT_TRUE(mRenderer->waitFor(IHalvendClient::CB_SET_MSS_RENDER_MODE));
        mRenderer->clear();
    }

    // What a caller with this uid gets.
    static std::string outcomeFor(uid_t uid, const std::vector<std::string>& claim = {}) {
        std::vector<std::string> args = {"identity"};
        args.insert(args.end(), claim.begin(), claim.end());
        ChildProcess::Options options = peer(args);
        options.uid = uid;
        ChildProcess caller(options);
        const auto end = caller.wait();
        if (!end || !end->exited || end->code != 0) return "failed: " + caller.errors();
        return caller.output();
    }

    using IHalvendClient = qelto::halvend::IHalvendClient;
    android::sp<RecordingClient> mRenderer;
};

TEST_F(Identity, StrangerChangesNothingAndGetsItsOutputsBack) {
    EXPECT_EQ(kRefused, outcomeFor(kStrangerUid));
    EXPECT_TRUE(mRenderer->events().empty());
    bool on = true;
    EXPECT_TRUE(mService->getMetaAudioOn(&on).isOk());
    EXPECT_FALSE(on);
    EXPECT_TRUE(mDaemon->process().waitForError("have no permission to find halvend"));
    EXPECT_THAT(mDaemon->process().errors(), ::testing::HasSubstr("uid 10099 , pid "));
}

TEST_F(Identity, SystemAudioServerAndGrantedUidPass) {
    for (const uid_t uid : {uid_t{1000}, uid_t{1041}, kGrantedUid}) {
        EXPECT_EQ(kPassed, outcomeFor(uid)) << uid;
    }
    EXPECT_THAT(mDaemon->process().errors(), ::testing::Not(::testing::HasSubstr("no permission")));
}

TEST_F(Identity, EditOfTheGrantsIsSeenAtTheNextCall) {
    mRoot.grant({kStrangerUid});
    EXPECT_EQ(kPassed, outcomeFor(kStrangerUid));
    EXPECT_EQ(kRefused, outcomeFor(kGrantedUid));
}

TEST_F(Identity, CallerCannotClaimAnotherUid) {
    for (const char* claim : {"0", "1000", "1041", "10042"}) {
        EXPECT_EQ(kRefused, outcomeFor(kStrangerUid, {claim})) << claim;
    }
    EXPECT_TRUE(mRenderer->events().empty());
}

}  // namespace
}  // namespace sonorel::test
