// Clients that die, clients that think, and the end of the service under them.

#include <memory>

#include <atomic>
#include <chrono>

#include <gmock/gmock.h>

#include "process/ProcessTest.h"

namespace sonorel::test {
namespace {

using namespace std::chrono_literals;
using android::sp;
using qelto::halvend::IHalvendClient;

class ClientLife : public ProcessTest {
protected:
    // The work of a thread that makes a setting about which the renderer is asked.
    std::function<void()> setter(std::atomic<bool>* outDone) {
        return [this, outDone] {
            int32_t status = 0;
            EXPECT_TRUE(mService->setMetaAudioOn(true, &status).isOk());
            *outDone = true;
        };
    }
};

TEST_F(ClientLife, KilledClientLeavesItsIdFree) {
    std::vector<std::string> args = speakerProduct();
    args.emplace_back("--verbose");
    ASSERT_NO_FATAL_FAILURE(start(args));
    ChildProcess renderer(peer({"register", "1"}));
    ASSERT_TRUE(renderer.waitForLine("registered")) << renderer.errors();
    ASSERT_TRUE(renderer.waitForLine("event 14"));  // settings are pushed to a new renderer

    // While it lives, its id is taken.
    const sp<RecordingClient> other = addClient(1);
    int32_t status = -5;
    ASSERT_TRUE(mService->setMetaAudioOn(true, &status).isOk());
    EXPECT_EQ(0, status);
    EXPECT_TRUE(other->events().empty());

    renderer.kill(SIGKILL);
    ASSERT_TRUE(mDaemon->process().waitForError("unregisterClient client id: 1 size: 0"));
    ASSERT_TRUE(mService->setMetaAudioOn(true, &status).isOk());
    EXPECT_EQ(-1, status);
    // The next renderer is taken, and gets the settings again.
    ASSERT_TRUE(mService->registerClient(other, 1).isOk());
    EXPECT_TRUE(other->waitFor(IHalvendClient::CB_LOAD_XML_AND_SQLITE));
    EXPECT_TRUE(other->waitFor(IHalvendClient::CB_SET_CURRENT_POS, 13));
    ASSERT_TRUE(mService->setMetaAudioOn(true, &status).isOk());
    EXPECT_EQ(kRendererStatus, status);
}

TEST_F(ClientLife, ClientThatDiesInItsAnswerIsNoClient) {
    ASSERT_NO_FATAL_FAILURE(start(speakerProduct()));
    const sp<RecordingClient> ticker = addClient(3);
    ChildProcess renderer(peer({"register", "1"}));
    ASSERT_TRUE(renderer.waitForLine("event 10")) << renderer.errors();
    renderer.kill(SIGSTOP);
    std::atomic<bool> done = false;
    JoinedThread caller(setter(&done));
    bool connected = true;
    EXPECT_TRUE(mService->getHeadsetConnectionState(&connected).isOk());
    renderer.kill(SIGKILL);
    caller.join();
    expectServes();
}

TEST_F(ClientLife, ThinkingClientHoldsUpClientCallsAndNothingElse) {
    ASSERT_NO_FATAL_FAILURE(start(speakerProduct()));
    const sp<RecordingClient> renderer = addClient(1);
    const sp<RecordingClient> ticker = addClient(3);
    ASSERT_TRUE(mService->notitySpHeadsetConnectionState(true).isOk());
    int32_t status = 0;
    ASSERT_TRUE(mService->setMetaAudioOn(true, &status).isOk());
    ASSERT_TRUE(mService->setSpatializerState(2).isOk());
    ASSERT_TRUE(mService->setMetaAudioThreadEnable(true).isOk());
    ASSERT_TRUE(ticker->waitFor(IHalvendClient::CB_META_THREAD_TICK));

    renderer->closeGate();
    std::atomic<bool> wasSet = false;
    std::atomic<bool> wasRegistered = false;
    std::atomic<bool> wasPlayed = false;
    JoinedThread asking(setter(&wasSet));
    ASSERT_TRUE(renderer->waitUntilHeld());
    const sp<RecordingClient> late = new RecordingClient();
    JoinedThread registrar([&] {
        EXPECT_TRUE(mService->registerClient(late, 5).isOk());
        wasRegistered = true;
    });
    JoinedThread player([&] {
        EXPECT_TRUE(mService->onPlayStateChange(1, {1, 2, 3}, 2, "com.example.player").isOk());
        wasPlayed = true;
    });

    // Queries, settings that no client is asked about, other services' clients: all go on.
    for (int i = 0; i < 20; ++i) {
        std::string text;
        bool flag = false;
        std::vector<float> pos(3);
        EXPECT_TRUE(mService->getMetaAudioSceMap(&text).isOk());
        EXPECT_FALSE(text.empty());
        EXPECT_TRUE(mService->getMetaInfoByPkgName("com.example.player", &text).isOk());
        EXPECT_TRUE(mService->getHeadsetConnectionState(&flag).isOk());
        EXPECT_TRUE(flag);
        EXPECT_TRUE(mService->getDefaultPosWithDev(1, &pos, 1).isOk());
        EXPECT_EQ((std::vector<float>{1, 2, 3}), pos);
        // Of the device that is not live: stored only.
        EXPECT_TRUE(mService->setMetaAudioOnWithDev(true, 0, &status).isOk());
        EXPECT_TRUE(mService->getMetaAudioOnWithDev(0, &flag).isOk());
    }
    // So does the tick.
    ticker->clear();
    EXPECT_TRUE(ticker->waitFor(IHalvendClient::CB_META_THREAD_TICK, 5));
    EXPECT_FALSE(wasSet);
    EXPECT_FALSE(wasRegistered);
    EXPECT_FALSE(wasPlayed);

    renderer->openGate();
    asking.join();
    registrar.join();
    player.join();
    ASSERT_TRUE(mService->setMetaAudioThreadEnable(false).isOk());
}

TEST_F(ClientLife, StopsOnSignalWhileAClientHoldsACall) {
    for (const int signal : {SIGTERM, SIGINT}) {
        ASSERT_NO_FATAL_FAILURE(start(speakerProduct()));
        const sp<RecordingClient> renderer = addClient(1);
        renderer->closeGate();
        ChildProcess caller(peer({"call"}));
        ASSERT_TRUE(renderer->waitUntilHeld()) << caller.errors();

        mDaemon->process().kill(signal);
        const auto end = mDaemon->process().wait();
        ASSERT_TRUE(end.has_value());
        EXPECT_TRUE(end->exited) << "signal " << end->signal;
        EXPECT_EQ(0, end->code);
        // The caller is told, not left waiting.
        EXPECT_TRUE(caller.waitForLine("answered 0")) << caller.errors();
        renderer->openGate();
        mService.clear();
        mDaemon.reset();
    }
}

TEST_F(ClientLife, AudioServersReturnHoldsUpNeitherSignalsNorCallers) {
    ASSERT_NO_FATAL_FAILURE(start(speakerProduct()));
    ChildProcess& daemon = mDaemon->process();
    const sp<RecordingClient> renderer = addClient(1);
    renderer->clear();
    renderer->closeGate();
    daemon.kill(SIGUSR2);
    ASSERT_TRUE(renderer->waitUntilHeld());
    const long threads = figuresOf(daemon.pid()).threads;
    for (int i = 0; i < 10; ++i) {
        daemon.kill(SIGUSR2);
        ASSERT_TRUE(eventually([&] { return figuresOf(daemon.pid()).pendingSignals == 0; }));
    }
    EXPECT_LE(figuresOf(daemon.pid()).threads, threads + 1);  // the pool may have grown by one
    bool connected = true;
    EXPECT_TRUE(mService->getHeadsetConnectionState(&connected).isOk());
    renderer->openGate();
    ASSERT_TRUE(renderer->waitFor(IHalvendClient::CB_LOAD_XML_AND_SQLITE, 2));
    // The death is told behind all returns, which were two: the one that was held, one for the ten.
    daemon.kill(SIGUSR1);
    ASSERT_TRUE(daemon.waitForError("the audio server died"));
    EXPECT_FALSE(renderer->waitFor(IHalvendClient::CB_LOAD_XML_AND_SQLITE, 3, 0ms));

    renderer->closeGate();
    daemon.kill(SIGUSR2);
    ASSERT_TRUE(renderer->waitUntilHeld());
    stop();
    renderer->openGate();
}

}  // namespace
}  // namespace sonorel::test
