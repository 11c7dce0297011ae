#include <gtest/gtest.h>
#include <media/stagefright/foundation/AHandler.h>
#include <media/stagefright/foundation/ALooper.h>
#include <media/stagefright/foundation/AMessage.h>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <condition_variable>
#include <functional>
#include <future>
#include <limits>
#include <mutex>
#include <thread>
#include <vector>

#include "support/LogCapture.h"
#include "support/Wait.h"

namespace android {
namespace {

using sonorel::test::kEventDeadline;
using sonorel::test::LogCapture;

// Records the numbers of its messages; a message may also carry an action.
class Recorder : public AHandler {
public:
    explicit Recorder(std::function<void(uint32_t)> action = nullptr)
            : mAction(std::move(action)) {}

    std::vector<uint32_t> received() const {
        std::lock_guard lock(mMutex);
        return mReceived;
    }

    // What arrived until the given number of messages had been handled.
    std::vector<uint32_t> waitFor(size_t count) const {
        std::unique_lock lock(mMutex);
        EXPECT_TRUE(
                mChanged.wait_for(lock, kEventDeadline, [&] { return mReceived.size() >= count; }));
        return mReceived;
    }

protected:
    void onMessageReceived(const sp<AMessage>& msg) override {
        if (mAction) mAction(msg->what());
        std::lock_guard lock(mMutex);
        mReceived.push_back(msg->what());
        mChanged.notify_all();
    }

private:
    const std::function<void(uint32_t)> mAction;
    mutable std::mutex mMutex;
    mutable std::condition_variable mChanged;
    std::vector<uint32_t> mReceived;
};

status_t post(uint32_t what, const sp<AHandler>& handler, int64_t delayUs = 0) {
    return (new AMessage(what, handler))->post(delayUs);
}

class LooperTest : public ::testing::Test {
protected:
    void TearDown() override {
        if (mLooper != nullptr) (void)mLooper->stop();
    }

    sp<ALooper> mLooper = new ALooper;
};

TEST_F(LooperTest, DeliversInPostingOrderAndByDelay) {
    const sp<Recorder> handler = new Recorder;
    mLooper->registerHandler(handler);
    // Queued before the start, so that all are waiting at once.
    EXPECT_EQ(OK, post(4, handler, 30000));
    EXPECT_EQ(OK, post(3, handler, 10000));
    EXPECT_EQ(OK, post(1, handler));
    EXPECT_EQ(OK, post(2, handler, -5));
    EXPECT_EQ(OK, post(9, handler, std::numeric_limits<int64_t>::max()));
    ASSERT_EQ(OK, mLooper->start());
    EXPECT_EQ((std::vector<uint32_t>{1, 2, 3, 4}), handler->waitFor(4));
}

TEST_F(LooperTest, EachPostersOrderIsKept) {
    constexpr size_t kPosters = 4;
    constexpr size_t kEach = 500;
    const sp<Recorder> handler = new Recorder;
    mLooper->registerHandler(handler);
    ASSERT_EQ(OK, mLooper->start());
    std::vector<std::thread> posters;
    posters.reserve(kPosters);
    for (size_t p = 0; p < kPosters; ++p) {
        posters.emplace_back([&handler, p] {
            for (uint32_t i = 0; i < kEach; ++i)
                ASSERT_EQ(OK, post(p * kEach + i, handler));
        });
    }
    for (std::thread& poster : posters)
        poster.join();
    std::array<size_t, kPosters> next{};
    for (const uint32_t what : handler->waitFor(kPosters * kEach)) {
        EXPECT_EQ(next[what / kEach]++, what % kEach);
    }
}

TEST_F(LooperTest, ThreadHasNameAndPriority) {
    std::promise<std::pair<std::string, int>> seen;
    const sp<Recorder> handler = new Recorder([&](uint32_t) {
        std::array<char, 16> name{};
        pthread_getname_np(pthread_self(), name.data(), name.size());
        seen.set_value({name.data(), getpriority(PRIO_PROCESS, static_cast<id_t>(gettid()))});
    });
    // Less urgent than usual: allowed to every user.
    constexpr int kNice = 5;
    mLooper->setName("looper with a name too long");
    EXPECT_STREQ("looper with a name too long", mLooper->getName());
    ASSERT_EQ(OK, mLooper->start(false, false, kNice));
    mLooper->registerHandler(handler);
    ASSERT_EQ(OK, post(1, handler));
    const auto [name, nice] = seen.get_future().get();
    EXPECT_EQ("looper with a n", name);
    EXPECT_EQ(kNice, nice);
}

TEST_F(LooperTest, StartAndStopTwice) {
    EXPECT_EQ(INVALID_OPERATION, mLooper->stop());
    EXPECT_EQ(OK, mLooper->start());
    EXPECT_EQ(INVALID_OPERATION, mLooper->start());
    EXPECT_EQ(INVALID_OPERATION, mLooper->start(true));
    EXPECT_EQ(OK, mLooper->stop());
    EXPECT_EQ(INVALID_OPERATION, mLooper->stop());
    EXPECT_EQ(OK, mLooper->start());
}

TEST_F(LooperTest, StopWaitsForTheMessageInHandAndDropsTheRest) {
    std::promise<void> entered;
    std::promise<void> leave;
    const sp<Recorder> handler = new Recorder([&](uint32_t what) {
        if (what != 1) return;
        entered.set_value();
        leave.get_future().wait();
    });
    mLooper->registerHandler(handler);
    ASSERT_EQ(OK, mLooper->start());
    ASSERT_EQ(OK, post(1, handler));
    ASSERT_EQ(OK, post(2, handler));
    entered.get_future().wait();
    std::thread stopper([this] { EXPECT_EQ(OK, mLooper->stop()); });
    leave.set_value();
    stopper.join();
    // The first is done; the second may have been in time, or was dropped and never comes.
    const size_t handled = handler->received().size();
    EXPECT_GE(handled, 1U);
    ASSERT_EQ(OK, mLooper->start());
    ASSERT_EQ(OK, post(3, handler));
    EXPECT_EQ(3U, handler->waitFor(handled + 1).back());
    EXPECT_EQ(handled + 1, handler->received().size());
}

TEST_F(LooperTest, StopFromInsideAMessage) {
    status_t stopped = UNKNOWN_ERROR;
    const sp<Recorder> handler = new Recorder([&](uint32_t what) {
        if (what == 1) stopped = mLooper->stop();
    });
    mLooper->registerHandler(handler);
    ASSERT_EQ(OK, post(1, handler));
    ASSERT_EQ(OK, post(2, handler));
    ASSERT_EQ(OK, mLooper->start());
    handler->waitFor(1);
    EXPECT_EQ(OK, stopped);
    // A new run does not meet the old thread nor what was queued for it.
    ASSERT_EQ(OK, mLooper->start());
    ASSERT_EQ(OK, post(3, handler));
    EXPECT_EQ((std::vector<uint32_t>{1, 3}), handler->waitFor(2));
}

TEST_F(LooperTest, LastReferenceGoesInsideAMessage) {
    const sp<Recorder> handler = new Recorder([&](uint32_t) { mLooper.clear(); });
    mLooper->registerHandler(handler);
    const wp<ALooper> looper = mLooper;
    ASSERT_EQ(OK, post(1, handler));
    ASSERT_EQ(OK, mLooper->start());
    handler->waitFor(1);
    EXPECT_EQ(nullptr, looper.promote().get());
}

TEST_F(LooperTest, RunsOnTheCallingThreadUntilStopped) {
    std::thread::id ranOn;
    const sp<Recorder> handler = new Recorder([&](uint32_t) {
        ranOn = std::this_thread::get_id();
        EXPECT_EQ(OK, mLooper->stop());
    });
    mLooper->registerHandler(handler);
    ASSERT_EQ(OK, post(1, handler));
    EXPECT_EQ(OK, mLooper->start(true));
    EXPECT_EQ(std::this_thread::get_id(), ranOn);
}

TEST_F(LooperTest, HandlersAreHeldWeakly) {
    LogCapture log;
    sp<Recorder> handler = new Recorder;
    const wp<Recorder> weak = handler;
    mLooper->registerHandler(handler);
    ASSERT_EQ(OK, post(5, handler));
    handler.clear();
    EXPECT_EQ(nullptr, weak.promote().get());
    ASSERT_EQ(OK, mLooper->start());
    EXPECT_TRUE(log.waitFor("the handler of message 5 is gone"));
}

TEST_F(LooperTest, RegistersOnceAtATime) {
    const sp<Recorder> handler = new Recorder;
    const sp<ALooper> other = new ALooper;
    const ALooper::handler_id id = mLooper->registerHandler(handler);
    EXPECT_GT(id, 0);
    EXPECT_EQ(id, handler->id());
    EXPECT_EQ(mLooper, handler->looper());
    EXPECT_EQ(INVALID_OPERATION, mLooper->registerHandler(handler));
    EXPECT_EQ(INVALID_OPERATION, other->registerHandler(handler));
    other->unregisterHandler(id);
    EXPECT_EQ(id, handler->id());
    mLooper->unregisterHandler(id);
    EXPECT_EQ(0, handler->id());
    EXPECT_GT(other->registerHandler(handler), id);
    // The end of a looper ends its registrations.
    const sp<Recorder> orphan = new Recorder;
    mLooper->registerHandler(orphan);
    mLooper.clear();
    EXPECT_EQ(nullptr, orphan->looper().get());
    EXPECT_GT(other->registerHandler(orphan), 0);
}

TEST_F(LooperTest, PostWithoutALooperFails) {
    LogCapture log;
    const sp<Recorder> handler = new Recorder;
    EXPECT_EQ(-ENOENT, post(1, handler));
    EXPECT_EQ(-ENOENT, post(2, nullptr));
    mLooper->registerHandler(handler);
    const sp<AMessage> late = new AMessage(3, handler);
    mLooper.clear();
    EXPECT_EQ(-ENOENT, late->post());
    EXPECT_TRUE(log.contains("message 3 has no looper to go to"));
}

TEST_F(LooperTest, QueuedMessagesOwnNothingAfterStop) {
    const sp<Recorder> handler = new Recorder;
    mLooper->registerHandler(handler);
    ASSERT_EQ(OK, mLooper->start());
    sp<AMessage> object = new AMessage;
    const wp<AMessage> weak = object;
    const sp<AMessage> msg = new AMessage(1, handler);
    msg->setObject("object", object);
    ASSERT_EQ(OK, msg->dup()->post(int64_t{3600} * 1000 * 1000));
    msg->clear();
    object.clear();
    EXPECT_NE(nullptr, weak.promote().get());
    ASSERT_EQ(OK, mLooper->stop());
    EXPECT_EQ(nullptr, weak.promote().get());
}

}  // namespace
}  // namespace android
