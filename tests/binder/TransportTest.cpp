#include "TransportTest.h"

#include <binder/IPCThreadState.h>
#include <fcntl.h>
#include <sys/stat.h>
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
using android::UNKNOWN_TRANSACTION;

constexpr size_t kLimit = 1024 * 1024 - 8192;

// Has `from` call `code` of the object that it keeps under `name`.
status_t relay(const sp<IBinder>& from, const std::string& name, uint32_t code,
               int32_t* outValue = nullptr) {
    Parcel data;
    Parcel reply;
    data.writeCString(name.c_str());
    data.writeUint32(code);
    if (const status_t status = from->transact(TestNode::RELAY, data, &reply); status != OK) {
        return status;
    }
    const status_t status = reply.readInt32();
    if (outValue != nullptr) *outValue = reply.readInt32();
    return status;
}

TEST(Call, EverySizeUpToTheLimitComesBack) {
    const TestPeer peer("sizes");
    for (size_t size : {size_t{0}, size_t{4}, size_t{100}, size_t{16384}, size_t{300000}, kLimit}) {
        size_t back = 1;
        EXPECT_EQ(OK, callEcho(peer.node(), size, &back)) << size;
        EXPECT_EQ(size, back);
    }
    EXPECT_EQ(FAILED_TRANSACTION, callEcho(peer.node(), kLimit + 4));
    Parcel data;
    Parcel reply;
    data.writeInt32(kLimit + 4);
    EXPECT_EQ(FAILED_TRANSACTION, peer.node()->transact(TestNode::BIG_REPLY, data, &reply));
    EXPECT_EQ(OK, peer.node()->pingBinder()) << "the connection outlives a refusal";
}

TEST(Call, ContentsAreThoseThatWereSent) {
    const TestPeer peer("contents");
    Parcel data;
    for (int32_t i = 0; i < 100000; ++i)
        data.writeInt32(i * 7);
    Parcel first;
    Parcel second;
    ASSERT_EQ(OK, peer.node()->transact(TestNode::ECHO, data, &first));
    ASSERT_EQ(OK, peer.node()->transact(TestNode::ECHO, data, &second));
    ASSERT_EQ(data.dataSize(), first.dataSize());
    // The first reply must not have been written over by the second.
    EXPECT_EQ(0, memcmp(data.data(), first.data(), data.dataSize()));
    EXPECT_EQ(0, memcmp(data.data(), second.data(), data.dataSize()));
}

TEST(Call, StatusOfTheMethodIsTheStatusOfTheCall) {
    const TestPeer peer("status");
    for (status_t status : {status_t{android::BAD_TYPE}, status_t{android::NOT_ENOUGH_DATA},
                            status_t{android::PERMISSION_DENIED}, status_t{DEAD_OBJECT}}) {
        Parcel data;
        Parcel reply;
        data.writeInt32(status);
        EXPECT_EQ(status, peer.node()->transact(TestNode::STATUS, data, &reply));
    }
    EXPECT_EQ(UNKNOWN_TRANSACTION, callPlain(peer.node(), TestNode::EXIT + 1));
    EXPECT_TRUE(peer.node()->isBinderAlive()) << "a method's DEAD_OBJECT is not the process's";
}

TEST(Call, ManyThreadsCallAtOnce) {
    const TestPeer peer("threads");
    std::vector<std::thread> threads;
    std::atomic<int> good{0};
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            for (int call = 0; call < 100; ++call) {
                size_t back = 0;
                const size_t size = 4 * (call + 1);
                if (callEcho(peer.node(), size, &back) == OK && back == size) ++good;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(800, good);
}

TEST(Identity, IsTheKernelsAndEndsWithTheCall) {
    const TestPeer peer("identity");
    Parcel data;
    Parcel reply;
    ASSERT_EQ(OK, peer.node()->transact(TestNode::IDENTITY, data, &reply));
    EXPECT_EQ(getuid(), reply.readUint32());
    EXPECT_EQ(getpid(), reply.readInt32());
    EXPECT_TRUE(reply.readBool());
    Parcel local;
    ASSERT_EQ(OK, World::get().node()->transact(TestNode::IDENTITY, data, &local));
    EXPECT_EQ(getuid(), local.readUint32());
    EXPECT_EQ(getpid(), local.readInt32());
    EXPECT_FALSE(local.readBool());
}

TEST(Identity, OfAnotherUid) {
    if (getuid() != 0) GTEST_SKIP() << "only root can start a process of another uid";
    TestPeer peer("stranger", {}, uid_t{12345});
    ASSERT_EQ(OK, callKeep(peer.node(), "me", World::get().node()));
    int32_t uid = 0;
    // On the thread that waits here, so nested: afterwards the thread is itself again.
    ASSERT_EQ(OK, relay(peer.node(), "me", TestNode::IDENTITY, &uid));
    EXPECT_EQ(12345, uid);
    EXPECT_EQ(getuid(), IPCThreadState::self()->getCallingUid());
    const size_t before = World::get().node()->notes().size();
    Parcel data;
    data.writeCString("me");
    data.writeInt32(0);
    data.writeInt32(1);
    Parcel reply;
    ASSERT_EQ(OK, peer.node()->transact(TestNode::RELAY_ONE_WAY, data, &reply));
    ASSERT_TRUE(World::get().node()->waitForNotes(before + 1));
    EXPECT_EQ(12345U, World::get().node()->noteUid());
    EXPECT_EQ(0, World::get().node()->notePid()) << "a one-way call does not tell its pid";
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
    TestPeer bare("bare", {"--no-pool"});
    EXPECT_TRUE(bare.process().waitForOutput("called back: 0\n"));
}

TEST(Nested, ComesBackOnTheThreadThatWaits) {
    const TestPeer peer("nest", {"--threads", "1"});
    // Down and up again through one thread on each side: more would need a second thread there.
    const sp<TestNode> mine = new TestNode();
    ASSERT_EQ(OK, callKeep(peer.node(), "mine", mine));
    ASSERT_EQ(OK, callKeep(mine, "peer", peer.node()));
    Parcel data;
    data.writeCString("mine");
    data.writeUint32(TestNode::RELAY);
    data.writeCString("peer");
    data.writeUint32(TestNode::LIVE);
    Parcel reply;
    EXPECT_EQ(OK, peer.node()->transact(TestNode::RELAY, data, &reply));
    EXPECT_EQ(OK, reply.readInt32());
    EXPECT_EQ(OK, reply.readInt32()) << "status of the innermost call";
}

TEST(Objects, OneRemoteObjectIsOneProxy) {
    const TestPeer owner("owner");
    const TestPeer holder("holder");
    ASSERT_EQ(OK, callKeep(owner.node(), "self", owner.node()));
    EXPECT_EQ(owner.node(), callGive(owner.node(), "self")) << "from its owner";
    ASSERT_EQ(OK, callKeep(holder.node(), "owner", owner.node()));
    EXPECT_EQ(owner.node(), callGive(holder.node(), "owner")) << "through a third process";
    Parcel data;
    Parcel reply;
    data.writeStrongBinder(owner.node());
    data.writeStrongBinder(owner.node());
    ASSERT_EQ(OK, holder.node()->transact(TestNode::SAME, data, &reply));
    EXPECT_TRUE(reply.readBool());
    EXPECT_FALSE(reply.readBool());
}

TEST(Objects, OwnObjectComesHomeAsItself) {
    const TestPeer peer("mirror");
    const sp<TestNode> mine = new TestNode();
    ASSERT_EQ(OK, callKeep(peer.node(), "mine", mine));
    EXPECT_EQ(mine, callGive(peer.node(), "mine"));
    EXPECT_EQ(World::get().node(),
              android::ProcessState::self()->getContextObject(nullptr)->localBinder());
}

TEST(Objects, ThirdPartyReferenceOutlivesItsGiver) {
    const TestPeer owner("owner3");
    const TestPeer receiver("receiver3");
    Parcel data;
    Parcel reply;
    {
        const TestPeer giver("giver3");
        ASSERT_EQ(OK, owner.node()->transact(TestNode::MAKE, data, &reply));
        ASSERT_EQ(OK, callKeep(giver.node(), "object", reply.readStrongBinder()));
        ASSERT_EQ(OK, callKeep(giver.node(), "receiver", receiver.node()));
        Parcel order;
        order.writeCString("receiver");
        order.writeCString("object");
        order.writeCString("object");
        order.writeBool(false);
        Parcel done;
        ASSERT_EQ(OK, giver.node()->transact(TestNode::HAND_OVER, order, &done));
        reply.freeData();
    }
    int32_t unused = 0;
    EXPECT_EQ(OK, relay(receiver.node(), "object", IBinder::PING_TRANSACTION, &unused));
    EXPECT_EQ(2, callInt(owner.node(), TestNode::LIVE));
    ASSERT_EQ(OK, callNamed(receiver.node(), TestNode::DROP, "object"));
    EXPECT_TRUE(eventually([&] { return callInt(owner.node(), TestNode::LIVE) == 1; }))
            << "the last holder has let go";
}

TEST(Objects, HandedOnByOneWayCall) {
    const TestPeer owner("owner4");
    const TestPeer receiver("receiver4");
    for (int i = 0; i < 20; ++i) {
        Parcel data;
        Parcel reply;
        ASSERT_EQ(OK, owner.node()->transact(TestNode::MAKE, data, &reply));
        sp<IBinder> object = reply.readStrongBinder();
        reply.freeData();
        ASSERT_EQ(OK, callKeep(receiver.node(), "object", object, IBinder::FLAG_ONEWAY));
        // This process lets go at once: its reference must last until the receiver has its own.
        object = nullptr;
        ASSERT_TRUE(eventually([&] { return callGive(receiver.node(), "object") != nullptr; }));
        EXPECT_EQ(OK, relay(receiver.node(), "object", IBinder::PING_TRANSACTION));
        ASSERT_EQ(OK, callNamed(receiver.node(), TestNode::DROP, "object"));
    }
    EXPECT_TRUE(eventually([&] { return callInt(owner.node(), TestNode::LIVE) == 1; }));
}

TEST(Objects, LiveAsLongAsSomebodyHoldsThem) {
    const TestPeer peer("lifetime");
    const int before = TestNode::liveNodes();
    sp<TestNode> mine = new TestNode();
    ASSERT_EQ(OK, callKeep(peer.node(), "a", mine));
    ASSERT_EQ(OK, callKeep(peer.node(), "b", mine));
    mine = nullptr;
    ASSERT_EQ(OK, callNamed(peer.node(), TestNode::DROP, "a"));
    EXPECT_EQ(OK, relay(peer.node(), "b", IBinder::PING_TRANSACTION));
    EXPECT_EQ(before + 1, TestNode::liveNodes());
    ASSERT_EQ(OK, callNamed(peer.node(), TestNode::DROP, "b"));
    EXPECT_TRUE(eventually([&] { return TestNode::liveNodes() == before; }));
}

TEST(Objects, GoWithADeadHolder) {
    const int before = TestNode::liveNodes();
    TestPeer peer("killed-holder");
    ASSERT_EQ(OK, callKeep(peer.node(), "a", new TestNode()));
    EXPECT_EQ(before + 1, TestNode::liveNodes());
    peer.kill();
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

TEST(Pool, BlockedThreadsLeaveRoomForOthersUpToTheBound) {
    const TestPeer peer("pool", {"--threads", "4"});
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&] { EXPECT_EQ(OK, callPlain(peer.node(), TestNode::BLOCK)); });
    }
    // Each of these needs a thread that is not blocked.
    EXPECT_TRUE(eventually([&] { return callEcho(peer.node(), 4) == OK; }));
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] { EXPECT_EQ(OK, callEcho(peer.node(), 4)); });
    }
    // main, driver, four of the pool; a sanitizer adds its own.
    EXPECT_LE(callInt(peer.node(), TestNode::THREADS), 7);
    EXPECT_EQ(OK, callPlain(peer.node(), TestNode::UNBLOCK));
    for (std::thread& thread : threads)
        thread.join();
}

TEST(Pool, ExhaustedPoolServesAsSoonAsAThreadIsFree) {
    const TestPeer peer("exhausted", {"--threads", "2"});
    const sp<TestNode> gate = World::get().node();
    ASSERT_EQ(OK, callKeep(peer.node(), "gate", gate));
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&] { EXPECT_EQ(OK, relay(peer.node(), "gate", TestNode::BLOCK)); });
    }
    // Both threads of the peer are now inside a call to this process.
    ASSERT_TRUE(gate->waitForBlocked(2));
    std::thread late([&] { EXPECT_EQ(OK, callEcho(peer.node(), 4)); });
    gate->unblock();
    late.join();
    for (std::thread& thread : threads)
        thread.join();
}

}  // namespace
}  // namespace sonorel::test
