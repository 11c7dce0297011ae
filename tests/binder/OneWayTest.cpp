#include <binder/BpBinder.h>
#include <signal.h>

#include <atomic>
#include <filesystem>
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
using android::Parcel;
using android::ProcessState;
using android::sp;

constexpr int kMaxPending = 1000;
constexpr size_t kMaxPendingBytes = (1024 * 1024 - 8192) / 2;

OneWayCounters countersOf(const TestPeer& peer) {
    return ProcessState::self()->oneWayCounters(peer.node());
}

[[nodiscard]] bool waitUntilDelivered(const TestPeer& peer) {
    return eventually([&] {
        const OneWayCounters now = countersOf(peer);
        return now.delivered == now.sent;
    });
}

// A stop takes effect on each thread by itself, some time after the signal.
[[nodiscard]] bool stopAndWait(ChildProcess& process) {
    process.kill(SIGSTOP);
    const std::filesystem::path tasks = "/proc/" + std::to_string(process.pid()) + "/task";
    return eventually([&] {
        for (const auto& task : std::filesystem::directory_iterator(tasks)) {
            const std::string stat = readFile((task.path() / "stat").string());
            if (stat.compare(stat.rfind(')') + 1, 3, " T ") != 0) return false;
        }
        return true;
    });
}

// Starts a one-way call on the peer's node that lasts until release().
class Blockade {
public:
    explicit Blockade(const TestPeer& peer) : mPeer(peer) {
        EXPECT_EQ(OK, callPlain(mPeer.node(), TestNode::BLOCK, IBinder::FLAG_ONEWAY));
    }
    void release() { EXPECT_EQ(OK, callPlain(mPeer.node(), TestNode::UNBLOCK)); }

private:
    const TestPeer& mPeer;
};

TEST(OneWay, KeepsTheOrderOfTheSender) {
    const TestPeer peer("sender");
    const sp<TestNode> mine = new TestNode();
    ASSERT_EQ(OK, callKeep(peer.node(), "mine", mine));
    Parcel data;
    data.writeCString("mine");
    data.writeInt32(0);
    data.writeInt32(900);
    Parcel reply;
    ASSERT_EQ(OK, peer.node()->transact(TestNode::RELAY_ONE_WAY, data, &reply));
    ASSERT_EQ(900, reply.readInt32());
    ASSERT_TRUE(mine->waitForNotes(900));
    std::vector<int32_t> expected(900);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(expected, mine->notes());
}

TEST(OneWay, BoundedByNumberThenServedInFull) {
    const TestPeer peer("number");
    const LogCapture log;
    Blockade blockade(peer);
    for (int i = 1; i < kMaxPending; ++i)
        ASSERT_EQ(OK, callNote(peer.node(), i)) << i;
    for (int i = 0; i < 50; ++i)
        EXPECT_EQ(FAILED_TRANSACTION, callNote(peer.node(), -1));
    const OneWayCounters full = countersOf(peer);
    EXPECT_EQ(static_cast<uint64_t>(kMaxPending), full.sent);
    EXPECT_EQ(0U, full.delivered);
    EXPECT_EQ(50U, full.failed);
    EXPECT_TRUE(log.contains("1000 calls wait there"));
    EXPECT_LT(log.lines().size(), 50U) << "one line a second at most";
    blockade.release();
    ASSERT_TRUE(waitUntilDelivered(peer));
    EXPECT_EQ(OK, callNote(peer.node(), 0)) << "there is room again";
}

TEST(OneWay, BoundedByBytes) {
    const TestPeer peer("bytes");
    const LogCapture log;
    Blockade blockade(peer);
    constexpr size_t kPiece = 64 * 1024;
    size_t sent = 0;
    while (sent + kPiece <= kMaxPendingBytes) {
        ASSERT_EQ(OK, callNote(peer.node(), 0, kPiece));
        sent += kPiece;
    }
    EXPECT_EQ(FAILED_TRANSACTION, callNote(peer.node(), 0, kPiece));
    EXPECT_EQ(OK, callNote(peer.node(), 0, 1000)) << "a small one still fits";
    blockade.release();
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
    int accepted = 0;
    while (callNote(stopped.node(), accepted) == OK)
        ++accepted;
    EXPECT_EQ(kMaxPending, accepted) << "more than a socket holds, and no wait for any";
    EXPECT_EQ(OK, callEcho(other.node(), 100));
    EXPECT_EQ(OK, callNote(other.node(), 1));
    EXPECT_TRUE(waitUntilDelivered(other));
    stopped.process().kill(SIGCONT);
    EXPECT_TRUE(waitUntilDelivered(stopped)) << "the driver sends what was left";
}

TEST(OneWay, ABlockedObjectDoesNotHoldAnother) {
    const TestPeer peer("two-objects");
    Parcel data;
    Parcel reply;
    ASSERT_EQ(OK, peer.node()->transact(TestNode::MAKE, data, &reply));
    const sp<IBinder> blocked = reply.readStrongBinder();
    const sp<TestNode> mine = new TestNode();
    ASSERT_EQ(OK, callKeep(peer.node(), "mine", mine));
    ASSERT_EQ(OK, callPlain(blocked, TestNode::BLOCK, IBinder::FLAG_ONEWAY));
    // On the same connection, behind the blocked call.
    Parcel order;
    order.writeCString("mine");
    order.writeInt32(5);
    order.writeInt32(1);
    ASSERT_EQ(OK,
              peer.node()->transact(TestNode::RELAY_ONE_WAY, order, nullptr, IBinder::FLAG_ONEWAY));
    EXPECT_TRUE(mine->waitForNotes(1));
    EXPECT_EQ(OK, callPlain(blocked, TestNode::UNBLOCK));
}

TEST(OneWay, ManySendersAtOnce) {
    const sp<TestNode> mine = new TestNode();
    std::vector<std::unique_ptr<TestPeer>> peers;
    for (int i = 0; i < 3; ++i) {
        peers.push_back(std::make_unique<TestPeer>("sender" + std::to_string(i)));
        ASSERT_EQ(OK, callKeep(peers.back()->node(), "mine", mine));
    }
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&, i] {
            Parcel data;
            data.writeCString("mine");
            data.writeInt32(i * 1000);
            data.writeInt32(500);
            Parcel reply;
            EXPECT_EQ(OK, peers[i]->node()->transact(TestNode::RELAY_ONE_WAY, data, &reply));
            EXPECT_EQ(500, reply.readInt32());
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    ASSERT_TRUE(mine->waitForNotes(1500));
    std::vector<int32_t> next = {0, 1000, 2000};
    for (int32_t note : mine->notes())
        EXPECT_EQ(next[note / 1000]++, note);
}

}  // namespace
}  // namespace sonorel::test
