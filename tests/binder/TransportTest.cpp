#include "TransportTest.h"

#include <binder/IPCThreadState.h>
#include <fcntl.h>
#include <unistd.h>

#include <thread>

namespace sonorel::test {
namespace {

using android::DEAD_OBJECT;
using android::FAILED_TRANSACTION;
using android::IBinder;
using android::IPCThreadState;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;

constexpr size_t kLimit = 1024 * 1024 - 8192;

// What the call without arguments ended in that `from` made to what it keeps under `name`.
status_t relay(const sp<IBinder>& from, const std::string& name, uint32_t code) {
    const Call call(from, TestNode::RELAY, name, code);
    return call.status == OK ? call.reply.readInt32() : call.status;
}

TEST(Call, EverySizeUpToTheLimitComesBack) {
    const TestPeer peer("sizes");
    const Call first(peer.node(), TestNode::ECHO, 77);
    for (size_t size : {size_t{0}, size_t{4}, size_t{100}, size_t{16384}, size_t{300000}, kLimit}) {
        size_t back = 1;
        EXPECT_EQ(OK, callEcho(peer.node(), size, &back)) << size;
        EXPECT_EQ(size, back);
    }
    EXPECT_EQ(77, first.reply.readInt32()) << "not written over by a later reply";
    EXPECT_EQ(FAILED_TRANSACTION, callEcho(peer.node(), kLimit + 4));
    EXPECT_EQ(FAILED_TRANSACTION,
              Call(peer.node(), TestNode::BIG_REPLY, static_cast<int32_t>(kLimit + 4)).status);
    EXPECT_EQ(OK, peer.node()->pingBinder()) << "the connection outlives a refusal";
}

TEST(Call, StatusOfTheMethodIsTheStatusOfTheCall) {
    const TestPeer peer("status");
    for (status_t status : {status_t{android::BAD_TYPE}, status_t{android::NOT_ENOUGH_DATA},
                            status_t{android::PERMISSION_DENIED}, status_t{DEAD_OBJECT}}) {
        EXPECT_EQ(status, Call(peer.node(), TestNode::STATUS, status).status);
    }
    EXPECT_EQ(android::UNKNOWN_TRANSACTION, Call(peer.node(), TestNode::EXIT + 1).status);
    EXPECT_TRUE(peer.node()->isBinderAlive()) << "a method's DEAD_OBJECT is not the process's";
}

TEST(Call, ManyThreadsCallAtOnce) {
    const TestPeer peer("threads");
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            for (int32_t size = 4; size <= 400; size += 4) {
                Parcel reply;
                EXPECT_EQ(OK, callRound({peer.node()}, size, &reply));
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

TEST(Identity, IsTheKernelsAndEndsWithTheCall) {
    const TestPeer peer("identity");
    for (const sp<IBinder>& node : {peer.node(), sp<IBinder>(World::get().node())}) {
        const Call call(node, TestNode::IDENTITY);
        ASSERT_EQ(OK, call.status);
        EXPECT_EQ(getuid(), call.reply.readUint32());
        EXPECT_EQ(getpid(), call.reply.readInt32());
        EXPECT_EQ(node == peer.node(), call.reply.readBool());
    }
}

TEST(Identity, OfAnotherUid) {
    if (getuid() != 0) GTEST_SKIP() << "only root can start a process of another uid";
    const TestPeer peer("stranger", {}, uid_t{12345});
    const sp<TestNode> mine = new TestNode();
    Parcel reply;
    // On the thread that waits here, so nested: afterwards the thread is itself again.
    ASSERT_EQ(OK, callRound({peer.node(), mine}, 4, &reply));
    EXPECT_EQ(12345U, reply.readUint32());
    EXPECT_EQ(getuid(), IPCThreadState::self()->getCallingUid());
    ASSERT_EQ(OK, callKeep(peer.node(), "me", mine));
    ASSERT_EQ(OK, Call(peer.node(), TestNode::SEND_NOTES, "me", 0, 1).status);
    ASSERT_TRUE(mine->waitForNotes(1));
    EXPECT_EQ((std::pair<uid_t, pid_t>(12345, 0)), mine->noteCaller())
            << "a one-way call does not tell its pid";
}

TEST(Identity, TokenIsUidAndPid) {
    IPCThreadState* const thread = IPCThreadState::self();
    const int64_t own = thread->clearCallingIdentity();
    EXPECT_EQ(static_cast<int64_t>(getuid()) << 32 | getpid(), own);
    thread->restoreCallingIdentity(int64_t{10001} << 32 | 77);
    EXPECT_EQ(10001U, thread->getCallingUid());
    EXPECT_EQ(77, thread->getCallingPid());
    EXPECT_EQ(int64_t{10001} << 32 | 77, thread->clearCallingIdentity());
    thread->restoreCallingIdentity(own);
}

TEST(Nested, ReachesACallerWithoutThreads) {
    TestPeer hop("hop");
    for (const bool third : {false, true}) {
        if (third) World::get().node()->keep("hop", hop.node());
        TestPeer bare("bare", {"--no-pool"});
        const pid_t by = third ? hop.process().pid() : getpid();
        EXPECT_TRUE(
                bare.process().waitForOutput("called back: 0 by " + std::to_string(by) + " here\n"))
                << bare.process().output();
    }
    World::get().node()->drop("hop");
}

TEST(Nested, ComesBackOnTheThreadThatWaits) {
    // One thread each: a call that asked for a second one would never end.
    TestPeer a("a", {"--threads", "1"});
    TestPeer b("b", {"--threads", "1"});
    TestPeer c("c", {"--threads", "1"});
    TestPeer d("d", {"--threads", "1"});
    const sp<IBinder> mine = new TestNode();
    struct {
        const char* what;
        Hops hops;
        pid_t lastCaller;
    } const routes[] = {
            {"straight", {a.node()}, getpid()},
            {"there and back and there", {a.node(), mine, a.node()}, getpid()},
            {"twice there and back", {a.node(), mine, a.node(), mine}, a.process().pid()},
            {"through a third process", {a.node(), b.node(), mine}, b.process().pid()},
            {"around four others",
             {a.node(), b.node(), c.node(), d.node(), a.node()},
             d.process().pid()},
            {"around all", {a.node(), b.node(), c.node(), d.node(), mine}, d.process().pid()},
    };
    for (const auto& route : routes) {
        // A large call follows at once on a small one, which leaves the other side's thread at its
        // mailbox for a while, and does not fit into a socket.
        for (const int32_t size : {4, 600000, 4, 4, 900000, 600000, 4}) {
            Parcel reply;
            ASSERT_EQ(OK, callRound(route.hops, size, &reply)) << route.what << ", " << size;
            EXPECT_EQ(getuid(), reply.readUint32());
            EXPECT_EQ(route.lastCaller, reply.readInt32()) << route.what;
            if (route.hops.back() == mine) {
                EXPECT_EQ(gettid(), reply.readInt32()) << route.what;
            }
        }
    }
}

TEST(Objects, OneObjectIsOneBinder) {
    const TestPeer owner("owner");
    const TestPeer holder("holder");
    ASSERT_EQ(OK, callKeep(owner.node(), "self", owner.node()));
    EXPECT_EQ(owner.node(), callGive(owner.node(), "self")) << "from its owner";
    ASSERT_EQ(OK, callKeep(holder.node(), "owner", owner.node()));
    EXPECT_EQ(owner.node(), callGive(holder.node(), "owner")) << "through a third process";
    const sp<TestNode> mine = new TestNode();
    ASSERT_EQ(OK, callKeep(holder.node(), "mine", mine));
    EXPECT_EQ(mine, callGive(holder.node(), "mine")) << "come home";
    EXPECT_EQ(World::get().node(), android::ProcessState::self()->getContextObject(nullptr));
}

TEST(Objects, ThirdPartyReferenceOutlivesItsGiver) {
    enum { REPLY, REQUEST, ONE_WAY };
    enum { LETS_GO, KILLED, KILLED_UNASKED };
    constexpr uint32_t kKeep[] = {0, TestNode::KEEP, TestNode::KEEP | TestNode::ONE_WAY};
    const TestPeer owner("owner3");
    for (int i = 0; i < 18; ++i) {
        const int way = i % 3;
        const int fate = i / 3 % 3;
        const bool giverDies = i >= 9;
        SCOPED_TRACE("way " + std::to_string(way) + ", receiver's fate " + std::to_string(fate) +
                     (giverDies ? ", giver dies" : ""));
        TestPeer giver("giver3");
        TestPeer receiver("receiver3");
        ASSERT_EQ(OK, callKeep(giver.node(), "owner", owner.node()));
        ASSERT_EQ(OK, callKeep(giver.node(), "receiver", receiver.node()));
        ASSERT_EQ(OK, callKeep(receiver.node(), "giver", giver.node()));
        ASSERT_EQ(OK,
                  Call(giver.node(), TestNode::FETCH, "owner", "object", +TestNode::MAKE).status);
        const bool unasked = fate == KILLED_UNASKED;
        if (unasked && way == ONE_WAY) {
            ASSERT_TRUE(stopAndWait(receiver.process()));
        }
        // Unasked, it is killed at some moment of a two-way call.
        const uint32_t soon = unasked ? +TestNode::ONE_WAY : 0;
        if (way == REPLY) {
            (void)Call(receiver.node(), TestNode::FETCH | soon, "giver", "object", +TestNode::TAKE,
                       "object");
            if (giverDies) giver.kill();
        } else {
            (void)Call(giver.node(), TestNode::HAND_OVER | soon, "receiver", kKeep[way], "object",
                       giverDies ? 1 : 0);
        }
        if (!unasked) {
            ASSERT_TRUE(eventually([&] {
                return relay(receiver.node(), "object", IBinder::PING_TRANSACTION) == OK;
            }));
            EXPECT_EQ(2, callInt(owner.node(), TestNode::LIVE));
        }
        if (fate != LETS_GO) {
            receiver.kill();
        } else {
            ASSERT_EQ(OK, Call(receiver.node(), TestNode::DROP, "object").status);
        }
        if (giverDies) {
            giver.kill();
        } else if (unasked) {
            // It may never have come to its turn.
            ASSERT_EQ(OK, Call(giver.node(), TestNode::DROP, "object").status);
        }
        EXPECT_TRUE(eventually([&] { return callInt(owner.node(), TestNode::LIVE) == 1; }))
                << "the last holder has let go";
    }
}

TEST(Objects, LiveAsLongAsSomebodyHoldsThem) {
    const TestPeer peer("lifetime");
    const int before = TestNode::liveNodes();
    sp<TestNode> mine = new TestNode();
    ASSERT_EQ(OK, callKeep(peer.node(), "a", mine));
    ASSERT_EQ(OK, callKeep(peer.node(), "b", mine));
    mine = nullptr;
    ASSERT_EQ(OK, Call(peer.node(), TestNode::DROP, "a").status);
    EXPECT_EQ(OK, relay(peer.node(), "b", IBinder::PING_TRANSACTION));
    EXPECT_EQ(before + 1, TestNode::liveNodes());
    ASSERT_EQ(OK, Call(peer.node(), TestNode::DROP, "b").status);
    EXPECT_TRUE(eventually([&] { return TestNode::liveNodes() == before; }));
}

TEST(Descriptors, TravelUpToSixteen) {
    const TestPeer peer("descriptors");
    int ends[2];
    ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
    Parcel data;
    data.writeFileDescriptor(ends[1], /*takeOwnership*/ true);
    data.writeCString("through the pipe");
    Parcel reply;
    ASSERT_EQ(OK, peer.node()->transact(TestNode::WRITE_FD, data, &reply));
    data.freeData();
    char text[32] = {};
    EXPECT_EQ(16, read(ends[0], text, sizeof(text)));
    EXPECT_STREQ("through the pipe", text);
    EXPECT_EQ(0, read(ends[0], text, sizeof(text))) << "nobody keeps the writing end";

    Parcel many;
    for (int i = 0; i < 16; ++i)
        ASSERT_EQ(OK, many.writeFileDescriptor(ends[0]));
    EXPECT_EQ(OK, peer.node()->transact(TestNode::ECHO, many, &reply));
    EXPECT_EQ(-EMFILE, many.writeFileDescriptor(ends[0]));
    close(ends[0]);
}

TEST(Pool, GrowsToItsBoundInOneBurst) {
    const TestPeer peer("burst");
    const sp<TestNode> gate = new TestNode();
    std::vector<sp<IBinder>> objects;
    for (int i = 0; i < 12; ++i) {
        objects.push_back(Call(peer.node(), TestNode::MAKE).reply.readStrongBinder());
        ASSERT_EQ(OK, callKeep(objects.back(), "gate", gate));
    }
    // On one connection, each behind a blocked one.
    for (const sp<IBinder>& object : objects)
        ASSERT_EQ(
                OK,
                Call(object, TestNode::RELAY | TestNode::ONE_WAY, "gate", +TestNode::BLOCK).status);
    EXPECT_TRUE(gate->waitForBlocked(12)) << "all at once";
    gate->unblock();
}

TEST(Pool, BlockedThreadsLeaveRoomForOthersUpToTheBound) {
    const TestPeer peer("pool", {"--threads", "4"});
    const sp<TestNode> gate = new TestNode();
    ASSERT_EQ(OK, callKeep(peer.node(), "gate", gate));
    std::vector<std::thread> threads;
    const auto start = [&](bool blocks) {
        threads.emplace_back([&, blocks] {
            EXPECT_EQ(OK, blocks ? relay(peer.node(), "gate", TestNode::BLOCK)
                                 : callEcho(peer.node(), 4));
        });
    };
    for (int i = 0; i < 3; ++i)
        start(true);
    ASSERT_TRUE(gate->waitForBlocked(3));
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(OK, callEcho(peer.node(), 4)) << "one thread is left";
    // main, driver, four of the pool; a sanitizer adds its own.
    EXPECT_LE(callInt(peer.node(), TestNode::THREADS), 7);
    start(true);
    ASSERT_TRUE(gate->waitForBlocked(4));
    start(false);  // served as soon as a thread is free
    gate->unblock();
    for (std::thread& thread : threads)
        thread.join();
}

}  // namespace
}  // namespace sonorel::test
