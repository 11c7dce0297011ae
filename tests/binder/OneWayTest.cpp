#include <binder/BpBinder.h>

#include <future>
#include <map>
#include <numeric>
#include <thread>

#include "TransportTest.h"
#include "support/LogCapture.h"

namespace sonorel::test {
namespace {

using android::FAILED_TRANSACTION;
using android::IBinder;
using android::OK;
using android::OneWayCounters;
using android::ProcessState;
using android::sp;

constexpr int kMaxPending = 1000;
constexpr size_t kMaxPendingBytes = (1024 * 1024 - 8192) / 2;
// Numbers of one sender's calls end here, and those of the next one start.
constexpr int kSender = 1000;

OneWayCounters countersOf(const TestPeer& peer) {
    return ProcessState::self()->oneWayCounters(peer.node());
}

[[nodiscard]] bool waitUntilDelivered(const TestPeer& peer) {
    return eventually([&] {
        const OneWayCounters now = countersOf(peer);
        return now.delivered == now.sent;
    });
}

std::vector<int32_t> numbers(int count) {
    std::vector<int32_t> all(count);
    std::iota(all.begin(), all.end(), 0);
    return all;
}

// An object that tells what it was called with, once nobody holds it any more.
class Sink : public TestNode {
public:
    explicit Sink(std::promise<std::vector<int32_t>>* last) : mLast(last) {}
    ~Sink() override { mLast->set_value(notes()); }

private:
    std::promise<std::vector<int32_t>>* const mLast;
};

TEST(OneWay, AllArriveInOrderBeforeTheirObjectGoes) {
    const TestPeer peer("calls-back");
    for (int round = rounds(2, 20); round > 0; --round) {
        std::promise<std::vector<int32_t>> last;
        std::future<std::vector<int32_t>> end = last.get_future();
        ASSERT_EQ(OK, callKeep(peer.node(), "sink", new Sink(&last)));
        // Afterwards it lets go of the only reference.
        const Call sent(peer.node(), TestNode::SEND_NOTES, "sink", 0, 900);
        ASSERT_EQ(900, sent.reply.readInt32());
        ASSERT_EQ(std::future_status::ready, end.wait_for(kEventDeadline));
        EXPECT_EQ(numbers(900), end.get());
    }
}

TEST(OneWay, AllOfASenderThatLeavesAtOnceArrive) {
    struct {
        int calls;
        int senders;
    } const cases[] = {{1, rounds(50, 1000)}, {50, rounds(20, 5000)}};
    for (const auto& c : cases) {
        constexpr int kAtOnce = 10;
        for (int done = 0; done < c.senders; done += kAtOnce) {
            std::promise<std::vector<int32_t>> last;
            std::future<std::vector<int32_t>> end = last.get_future();
            World::get().node()->keep("sink", new Sink(&last));
            std::vector<std::unique_ptr<ChildProcess>> senders;
            for (int i = 0; i < kAtOnce; ++i) {
                senders.push_back(
                        startPeer({"sink", i % 2 == 0 ? "--no-pool" : "", "--send",
                                   std::to_string(i * kSender), std::to_string(c.calls), "4"}));
            }
            for (const auto& sender : senders) {
                const std::optional<ExitStatus> left = sender->wait();
                ASSERT_TRUE(left && left->exited && left->code == 0) << sender->errors();
            }
            World::get().node()->drop("sink");
            ASSERT_EQ(std::future_status::ready, end.wait_for(kEventDeadline));
            std::map<int32_t, int32_t> next;
            for (const int32_t note : end.get()) {
                const int32_t sender = note / kSender;
                EXPECT_EQ(sender * kSender + next[sender]++, note);
            }
            for (int i = 0; i < kAtOnce; ++i)
                EXPECT_EQ(c.calls, next[i]) << "sender " << i;
        }
    }
}

TEST(OneWay, AllArriveAtAReceiverThatWasBusyAsTheSenderLeft) {
    struct {
        int calls;
        const char* size;
        bool stays;  // until the receiver reads again, as the socket does not hold all
    } const cases[] = {{100, "4", false}, {900, "570", true}};
    for (const auto& c : cases) {
        const TestPeer peer("busy", {"--threads", "2"});
        const sp<TestNode> gate = new TestNode();
        ASSERT_EQ(OK, callKeep(peer.node(), "gate", gate));
        World::get().node()->keep("busy", peer.node());
        std::vector<std::thread> threads;
        for (int i = 0; i < 2; ++i) {
            threads.emplace_back([&] {
                EXPECT_EQ(OK, Call(peer.node(), TestNode::RELAY, "gate", +TestNode::BLOCK).status);
            });
        }
        EXPECT_TRUE(gate->waitForBlocked(2)) << "every thread there";
        const auto sender = startPeer({"busy", "--send", "0", std::to_string(c.calls), c.size});
        EXPECT_TRUE(c.stays ? sender->waitForOutput("sent\n") : sender->wait().has_value());
        gate->unblock();
        const std::optional<ExitStatus> left = sender->wait();
        EXPECT_TRUE(left && left->exited && left->code == 0) << sender->errors();
        for (std::thread& thread : threads)
            thread.join();
        std::vector<int32_t> notes;
        EXPECT_TRUE(eventually([&] {
            (void)Call(peer.node(), TestNode::NOTES).reply.readInt32Vector(&notes);
            return notes.size() == static_cast<size_t>(c.calls);
        }));
        EXPECT_EQ(numbers(c.calls), notes);
        World::get().node()->drop("busy");
    }
}

TEST(OneWay, BoundedByNumberThenServedInFull) {
    const TestPeer peer("number");
    const LogCapture log;
    ASSERT_EQ(OK, Call(peer.node(), TestNode::BLOCK | TestNode::ONE_WAY).status);
    ASSERT_EQ(kMaxPending - 1, sendNotes(peer.node(), 1, kMaxPending - 1, 0));
    for (int i = 0; i < 50; ++i)
        EXPECT_EQ(FAILED_TRANSACTION, callNote(peer.node(), -1));
    const OneWayCounters full = countersOf(peer);
    EXPECT_EQ(static_cast<uint64_t>(kMaxPending), full.sent);
    EXPECT_EQ(0U, full.delivered);
    EXPECT_EQ(50U, full.failed);
    EXPECT_TRUE(log.contains("1000 calls wait there"));
    EXPECT_LT(log.lines().size(), 50U) << "one line a second at most";
    EXPECT_EQ(OK, Call(peer.node(), TestNode::UNBLOCK).status);
    ASSERT_TRUE(waitUntilDelivered(peer));
    EXPECT_EQ(OK, callNote(peer.node(), 0)) << "there is room again";
}

TEST(OneWay, BoundedByBytes) {
    const TestPeer peer("bytes");
    const LogCapture log;
    ASSERT_EQ(OK, Call(peer.node(), TestNode::BLOCK | TestNode::ONE_WAY).status);
    constexpr size_t kPiece = 64 * 1024;
    EXPECT_EQ(static_cast<int>(kMaxPendingBytes / kPiece), sendNotes(peer.node(), 0, 99, kPiece));
    EXPECT_EQ(OK, callNote(peer.node(), 0, 1000)) << "a small one still fits";
    EXPECT_EQ(OK, Call(peer.node(), TestNode::UNBLOCK).status);
    ASSERT_TRUE(waitUntilDelivered(peer));
    EXPECT_EQ(FAILED_TRANSACTION, callNote(peer.node(), 0, kMaxPendingBytes + 4));
    EXPECT_EQ(OK, callNote(peer.node(), 0, kMaxPendingBytes)) << "exactly the bound";
    EXPECT_TRUE(waitUntilDelivered(peer));
}

TEST(OneWay, AStoppedReceiverCostsOnlyItself) {
    TestPeer stopped("stopped");
    const TestPeer other("other");
    const LogCapture log;
    ASSERT_EQ(OK, callNote(stopped.node(), 0));
    ASSERT_TRUE(waitUntilDelivered(stopped));
    ASSERT_TRUE(stopAndWait(stopped.process()));
    EXPECT_EQ(kMaxPending, sendNotes(stopped.node(), 0, 2 * kMaxPending, 0))
            << "more than a socket holds, and no wait for any";
    EXPECT_EQ(OK, callEcho(other.node(), 100));
    EXPECT_EQ(OK, callNote(other.node(), 1));
    EXPECT_TRUE(waitUntilDelivered(other));
    stopped.process().kill(SIGCONT);
    EXPECT_TRUE(waitUntilDelivered(stopped)) << "the driver sends what was left";
}

}  // namespace
}  // namespace sonorel::test
