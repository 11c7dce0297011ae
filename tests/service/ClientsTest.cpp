// The client table and callClient.

#include <atomic>
#include <future>
#include <thread>

#include "service/ServiceHarness.h"

namespace sonorel::test {

namespace {

class Clients : public ServiceTest {};

TEST_F(Clients, NullClientIsRefusedWithALine) {
    start();
    mCapture.clear();
    EXPECT_TRUE(mService->registerClient(nullptr, 5).isOk());
    EXPECT_TRUE(mService->registerClientOneWay(nullptr, -3).isOk());
    EXPECT_EQ((std::vector<std::string>{"registerClient, client is null, client id: 5",
                                        "registerClientOneWay",
                                        "registerClient, client is null, client id: -3"}),
              mCapture.messages());
}

TEST_F(Clients, SecondRegistrationUnderAnIdIsIgnored) {
    start();
    addClient(0);
    EventLog other;
    EXPECT_TRUE(mService->registerClientOneWay(new FakeClient(0, &other), 0).isOk());
    EXPECT_TRUE(mService->onPlayStateChange(3, {}, 1, "com.example.player").isOk());
    EXPECT_EQ(1U, mEvents.count(0, 5));
    EXPECT_TRUE(other.lines().empty());
}

TEST_F(Clients, TableSizesAreLogged) {
    start();
    mCapture.clear();
    addClient(7);
    addClient(-128);
    EXPECT_TRUE(mService->unregisterClient(99).isOk());
    EXPECT_TRUE(mService->unregisterClient(7).isOk());
    EXPECT_EQ((std::vector<std::string>{"registerClient from: 7", "registerClient from: 7 size 1",
                                        "registerClient from: -128",
                                        "registerClient from: -128 size 2",
                                        "unregisterClient client id: 99 size: 2",
                                        "unregisterClient client id: 7 size: 1"}),
              mCapture.messages());
}

TEST_F(Clients, RendererGetsTheSettingsOnceAndAgainAfterItsDeath) {
    start();
    const sp<FakeClient> first = addClient(1);
    EXPECT_EQ(1U, mEvents.count(1, IHalvendClient::CB_LOAD_XML_AND_SQLITE));
    EXPECT_EQ(13U, mEvents.count(1, IHalvendClient::CB_SET_CURRENT_POS));
    mEvents.clear();

    ASSERT_TRUE(mService->registerClient(first, 1).isOk());
    ASSERT_TRUE(mService->unregisterClient(1).isOk());
    ASSERT_TRUE(mService->registerClient(first, 1).isOk());
    EXPECT_TRUE(mEvents.lines().empty()) << "pushed without need";

    mService->findClient(1)->binderDied(nullptr);
    EXPECT_EQ(nullptr, mService->findClient(1).get());
    ASSERT_TRUE(mService->registerClient(first, 1).isOk());
    EXPECT_EQ(13U, mEvents.count(1, IHalvendClient::CB_SET_CURRENT_POS));
}

// Each row: what happens between two registrations of a renderer that got everything before.
TEST_F(Clients, ARendererGetsEverythingOnceAfterWhateverMadeItNecessary) {
    product(true);
    start();
    const auto wasGivenEverything = [this] {
        const size_t begun = mEvents.count(1, IHalvendClient::CB_LOAD_XML_AND_SQLITE);
        EXPECT_EQ(13 * begun, mEvents.count(1, IHalvendClient::CB_SET_CURRENT_POS));
        mEvents.clear();
        return begun;
    };
    addClient(1);
    EXPECT_EQ(1U, wasGivenEverything());
    const auto unregister = [this] { ASSERT_TRUE(mService->unregisterClient(1).isOk()); };
    const struct {
        const char* name;
        std::function<void()> happening;
        size_t pushedMeanwhile;
        size_t pushedToNext;
    } rows[] = {
            {"unregistered", [&] { unregister(); }, 0, 0},
            {"died", [&] { mService->findClient(1)->binderDied(nullptr); }, 0, 1},
            {"audio server died", [&] { mService->onAudioServerDied(), unregister(); }, 0, 1},
            {"restarted with it", [&] { mService->onAudioServerRestarted(), unregister(); }, 1, 0},
            {"restarted without it", [&] { unregister(), mService->onAudioServerRestarted(); }, 0,
             1},
            {"died and restarted",
             [&] {
                 mService->onAudioServerDied();
                 mService->onAudioServerRestarted();
                 unregister();
             },
             1, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        row.happening();
        EXPECT_EQ(row.pushedMeanwhile, wasGivenEverything());
        addClient(1);
        EXPECT_EQ(row.pushedToNext, wasGivenEverything());
        addClient(1);  // ignored
        EXPECT_EQ(0U, wasGivenEverything());
    }
}

// What another thread does between two events of a push.
TEST_F(Clients, ARendererThatChangesDuringAPushLeavesTheNextOneEverything) {
    product(true);
    start();
    addClient(1);
    EventLog next;
    const auto registerNext = [&] {
        EXPECT_TRUE(mService->registerClient(new FakeClient(1, &next), 1).isOk());
    };
    const auto unregister = [&] { EXPECT_TRUE(mService->unregisterClient(1).isOk()); };
    const struct {
        const char* name;
        std::function<void()> meanwhile;
        size_t pushedToNext;
    } rows[] = {
            {"nothing", [] {}, 0},
            {"registered again", [&] { registerNext(); }, 0},
            {"audio server died", [&] { mService->onAudioServerDied(); }, 1},
            {"died", [&] { mService->findClient(1)->binderDied(nullptr); }, 1},
            {"unregistered", [&] { unregister(); }, 1},
            {"replaced", [&] { unregister(), registerNext(); }, 1},
            // Its death has been counted, and another thread is about to unregister it.
            {"dying", [&] { mService->findClient(1)->mHasDied = true; }, 1},
            {"died and replaced",
             [&] { mService->findClient(1)->binderDied(nullptr), registerNext(); }, 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        bool isReached = false;
        mCapture.onNext("setMetaAudioOnInt ---", [&] {
            isReached = true;
            std::thread(row.meanwhile).join();
        });
        EXPECT_EQ(0, mService->onAudioServerRestarted());
        EXPECT_TRUE(isReached);
        unregister();
        registerNext();
        // Whole, and not the rest of the other's push with it.
        for (const int32_t event : {14, 0, 1, 10})
            EXPECT_EQ(row.pushedToNext, next.count(1, event)) << event;
        EXPECT_EQ(13 * row.pushedToNext, next.count(1, IHalvendClient::CB_SET_CURRENT_POS));
        unregister();
        addClient(1);
        next.clear();
    }
}

TEST_F(Clients, ADeathEndsItsOwnRegistrationOnly) {
    start();
    addClient(1);
    const auto first = mService->findClient(1);
    ASSERT_TRUE(mService->unregisterClient(1).isOk());
    addClient(1);
    const auto successor = mService->findClient(1);
    mEvents.clear();
    first->binderDied(nullptr);
    EXPECT_EQ(successor, mService->findClient(1));
    addClient(1);
    EXPECT_TRUE(mEvents.lines().empty()) << "nothing changed for the successor";
}

// What a proxy answers whose process has ended.
class DeadClient : public FakeClient {
public:
    using FakeClient::FakeClient;
    android::status_t linkToDeath(const sp<DeathRecipient>&, void*, uint32_t) override {
        return android::DEAD_OBJECT;
    }
};

// One whose process ended after it had registered, before its death was handled.
class DyingClient : public FakeClient {
public:
    using FakeClient::FakeClient;
    bool isBinderAlive() const override { return false; }
};

TEST_F(Clients, ADeadOneDoesNotKeepItsSuccessorOut) {
    start();
    ASSERT_TRUE(mService->registerClient(new DyingClient(1, &mEvents), 1).isOk());
    const auto dead = mService->findClient(1);
    mEvents.clear();
    addClient(1);
    const auto successor = mService->findClient(1);
    EXPECT_NE(dead, successor);
    EXPECT_EQ(13U, mEvents.count(1, IHalvendClient::CB_SET_CURRENT_POS));
    mEvents.clear();
    dead->binderDied(nullptr);
    EXPECT_EQ(successor, mService->findClient(1));
    addClient(1);
    EXPECT_TRUE(mEvents.lines().empty()) << "the death was counted twice";
}

TEST_F(Clients, OneThatDiedWhileItRegisteredLeavesTheSettingsToTheNext) {
    product(true);
    start();
    for (const int8_t id : {1, 4}) {
        SCOPED_TRACE(int{id});
        ASSERT_TRUE(mService->registerClient(new DeadClient(id, &mEvents), id).isOk());
        EXPECT_EQ(nullptr, mService->findClient(id).get());
        EXPECT_TRUE(mEvents.takeLines().empty());
        addClient(id);
        EXPECT_FALSE(mEvents.takeLines().empty());
    }
}

TEST_F(Clients, EffectCentreGetsOnOffAndModeOnSpeakerProductsOnly) {
    start();
    addClient(4);
    EXPECT_TRUE(mEvents.lines().empty());

    product(true);
    restart();
    int32_t status = 0;
    ASSERT_TRUE(mService->setMetaAudioOn(true, &status).isOk());
    ASSERT_TRUE(mService->setMetaAudioMode(3, &status).isOk());
    addClient(4);
    EXPECT_EQ((std::vector<std::string>{"client 4 event 24 one-way enable=1 mode=3"}),
              mEvents.takeLines());
    ASSERT_TRUE(mService->unregisterClient(4).isOk());
    addClient(4);
    EXPECT_TRUE(mEvents.lines().empty()) << "the first push is the only one";
    restart();
    addClient(4);
    EXPECT_EQ((std::vector<std::string>{"client 4 event 24 one-way enable=1 mode=3"}),
              mEvents.takeLines())
            << "from the store";
}

TEST_F(Clients, AFailedAnswerLeavesTheSendersRecordAlone) {
    start();
    ASSERT_TRUE(mService->notitySpHeadsetConnectionState(true).isOk());
    const auto client = addClient(1, [](int32_t, const CallbackData&, CallbackData* out) {
        out->status = 7;
        out->enable = true;
    });
    int32_t status = 0;
    ASSERT_TRUE(mService->setMetaAudioOn(true, &status).isOk());
    EXPECT_EQ(7, status);

    client->failWith(android::DEAD_OBJECT);
    ASSERT_TRUE(mService->setMetaAudioOn(true, &status).isOk());
    EXPECT_EQ(-1, status);
    bool on = true;
    ASSERT_TRUE(mService->getMetaAudioOn(&on).isOk());
    EXPECT_FALSE(on);
}

TEST_F(Clients, CallLinesTellExistenceAndWay) {
    start();
    mCapture.clear();
    CallbackData answer;
    answer.status = -1;
    mService->callClient(42, 9, CallbackData(), &answer);
    mService->callClient(42, 11, CallbackData(), nullptr);
    EXPECT_EQ(-1, answer.status);
    EXPECT_EQ((std::vector<std::string>{"callClient:clientID:42 exist:0, event:9, isOneWay:0",
                                        "callClient:clientID:42 exist:0, event:11, isOneWay:1"}),
              mCapture.messages());
}

// A client that thinks holds up other client calls and registrations, and nothing else.
TEST_F(Clients, AThinkingClientHoldsUpClientCallsOnly) {
    start();
    ASSERT_TRUE(mService->notitySpHeadsetConnectionState(true).isOk());
    std::promise<void> asked;
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    addClient(1, [&](int32_t event, const CallbackData&, CallbackData* out) {
        if (event == IHalvendClient::CB_IS_META_TRACK_PLAYING) {
            asked.set_value();
            released.wait();
            out->isPlaying = true;
        }
    });
    bool playing = false;
    std::thread thinking([&] { EXPECT_TRUE(mService->isMetaTrackPlaying(&playing).isOk()); });
    asked.get_future().wait();

    // None of these waits for the client.
    std::string text;
    EXPECT_TRUE(mService->getMetaAudioSceMap(&text).isOk());
    EXPECT_FALSE(text.empty());
    std::vector<float> xyz(3);
    EXPECT_TRUE(mService->javaCallGetDefaultPos(1, &xyz).isOk());
    bool connected = false;
    EXPECT_TRUE(mService->getHeadsetConnectionState(&connected).isOk());
    EXPECT_TRUE(connected);
    EXPECT_NE(nullptr, mService->findClient(1).get());

    // These do.
    std::atomic<bool> done{false};
    std::thread waiting([&] {
        const ScopedCaller system(kSystemUid);
        addClient(0);
        done = true;
    });
    EXPECT_TRUE(mCapture.waitFor("registerClient from: 0"));
    EXPECT_FALSE(done);
    release.set_value();
    thinking.join();
    waiting.join();
    EXPECT_TRUE(playing);
    EXPECT_NE(nullptr, mService->findClient(0).get());
}

}  // namespace

}  // namespace sonorel::test
