// What a stranger can send to a process, byte by byte.

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "TransportTest.h"
#include "platform/binder/transport/FrameInput.h"
#include "platform/binder/transport/SharedPage.h"
#include "platform/binder/transport/Wire.h"
#include "support/LogCapture.h"

namespace sonorel::test {
namespace {

using android::IBinder;
using android::OK;
using android::Parcel;
using android::sp;
using android::base::unique_fd;
using namespace android::transport;

constexpr char kNoFrame[] = "sent bytes that are no frame";

// The name of this process's own socket, which the context manager's link tells.
std::string ownSocket() {
    const std::string link = World::get().folder() + "/manager";
    char target[64] = {};
    EXPECT_GT(readlink(link.c_str(), target, sizeof(target) - 1), 0);
    return World::get().folder() + "/" + target;
}

class Stranger {
public:
    Stranger() : mSocket(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        strncpy(address.sun_path, ownSocket().c_str(), sizeof(address.sun_path) - 1);
        EXPECT_EQ(0,
                  connect(mSocket.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)));
    }

    void greet(ConnectionKind kind, const ProcessName& name, int descriptor = -1) {
        EXPECT_TRUE(sendGreeting(mSocket.get(), kind, name, descriptor));
    }

    void send(const void* bytes, size_t size) {
        EXPECT_EQ(static_cast<ssize_t>(size), ::send(mSocket.get(), bytes, size, MSG_NOSIGNAL));
    }
    template <typename T>
    void send(const T& record) {
        send(&record, sizeof(record));
    }

    // True once the other side has hung up.
    [[nodiscard]] bool isHungUp() {
        pollfd entry = {mSocket.get(), POLLRDHUP, 0};
        return poll(&entry, 1, static_cast<int>(kEventDeadline.count())) == 1;
    }
    int fd() const { return mSocket.get(); }

private:
    const unique_fd mSocket;
};

ProcessName someName() {
    ProcessName name = {};
    name.pid = static_cast<uint32_t>(getpid());
    fillRandom(name.random, sizeof(name.random));
    return name;
}

FrameHeader requestTo(uint64_t target, uint32_t code, uint32_t dataSize) {
    FrameHeader header = makeHeader(FrameType::REQUEST);
    header.target = target;
    header.code = code;
    header.dataSize = dataSize;
    return header;
}

// A stranger who has been let in: its CONTROL connection, and others under the same name.
class Intruder {
public:
    Intruder() { mControl.greet(ConnectionKind::CONTROL, mName); }
    std::unique_ptr<Stranger> open(ConnectionKind kind, int descriptor = -1) {
        auto connection = std::make_unique<Stranger>();
        connection->greet(kind, mName, descriptor);
        return connection;
    }
    Stranger& control() { return mControl; }
    const ProcessName& name() const { return mName; }

private:
    const ProcessName mName = someName();
    Stranger mControl;
};

// Another process can still call this one.
[[nodiscard]] bool isServed(const std::string& name) {
    const TestPeer peer(name);
    if (callKeep(peer.node(), "world", World::get().node()) != OK) return false;
    Parcel data;
    Parcel reply;
    data.writeCString("world");
    data.writeUint32(TestNode::IDENTITY);
    return peer.node()->transact(TestNode::RELAY, data, &reply) == OK && reply.readInt32() == OK;
}

TEST(Garbage, EndsThatConnectionWithOneLine) {
    World::get();
    struct Case {
        const char* what;
        FrameHeader header;
    };
    std::vector<Case> cases = {{"no magic", {}},
                               {"unknown type", makeHeader(static_cast<FrameType>(99))},
                               {"a size over the limit", requestTo(0, 1, kMaxTransactionSize + 1)},
                               {"more objects than bytes", requestTo(0, 1, 24)},
                               {"too many descriptors", requestTo(0, 1, 0)},
                               {"descriptors that did not come", requestTo(0, 1, 0)},
                               {"a reply to nothing", makeHeader(FrameType::REPLY)},
                               {"a control frame", makeHeader(FrameType::RELEASE)}};
    cases[3].header.objectCount = 2;
    cases[4].header.descriptorCount = 17;
    cases[5].header.descriptorCount = 1;
    for (const Case& bad : cases) {
        Intruder intruder;
        const LogCapture log;
        auto call = intruder.open(ConnectionKind::CALL);
        call->send(bad.header);
        EXPECT_TRUE(call->isHungUp()) << bad.what;
        ASSERT_TRUE(log.waitFor(kNoFrame)) << bad.what;
        EXPECT_EQ(1U, log.lines().size()) << bad.what;
    }
    EXPECT_TRUE(isServed("after-garbage"));
}

TEST(Garbage, InTheSharedPageEndsThatConnection) {
    World::get();
    unique_fd descriptor;
    const std::shared_ptr<SharedPage> page = SharedPage::create(&descriptor);
    Intruder intruder;
    auto call = intruder.open(ConnectionKind::CALL, descriptor.get());
    FrameHeader junk = makeHeader(FrameType::RELEASE);
    const iovec part = {&junk, sizeof(junk)};
    const LogCapture log;
    Mailbox& box = page->outbox(Side::OPENER);
    uint64_t sent = 0;
    // Once it has answered, a thread of the pool may wait for the next call at the mailbox.
    EXPECT_TRUE(eventually([&] {
        if (box.put(&part, 1, sizeof(junk), sent)) return true;
        sent += sizeof(FrameHeader);
        box.announce(sent);
        call->send(requestTo(0, IBinder::PING_TRANSACTION, 0));
        FrameHeader reply = {};
        return recv(call->fd(), &reply, sizeof(reply), MSG_WAITALL) <= 0;
    }));
    EXPECT_TRUE(log.waitFor(kNoFrame));
    EXPECT_TRUE(call->isHungUp());
    EXPECT_TRUE(isServed("after-a-page"));
}

TEST(Garbage, InPlaceOfAGreeting) {
    World::get();
    const LogCapture log;
    Stranger stranger;
    const char text[] = "GET / HTTP/1.1\r\nHost: here\r\n\r\n....";
    stranger.send(text, sizeof(text));
    EXPECT_TRUE(stranger.isHungUp());
    EXPECT_TRUE(log.waitFor("did not greet"));
    Stranger another;
    // One way without the page that such a connection comes with, and with a file in its place.
    another.greet(ConnectionKind::ONE_WAY, someName());
    EXPECT_TRUE(another.isHungUp());
    const unique_fd file(memfd_create("short", MFD_CLOEXEC));
    Stranger third;
    third.greet(ConnectionKind::ONE_WAY, someName(), file.get());
    EXPECT_TRUE(third.isHungUp()) << "a page that could be cut off under this process";
    Stranger fourth;
    fourth.greet(ConnectionKind::CALL, someName(), file.get());
    EXPECT_TRUE(fourth.isHungUp()) << "calls may come without a page, but not with such a one";
    EXPECT_TRUE(isServed("after-greetings"));
}

TEST(Garbage, OnTheControlConnectionEndsThePeer) {
    World::get();
    Intruder intruder;
    auto call = intruder.open(ConnectionKind::CALL);
    const LogCapture log;
    FrameHeader stray = makeHeader(FrameType::ACQUIRED);
    intruder.control().send(stray);
    EXPECT_TRUE(intruder.control().isHungUp());
    EXPECT_TRUE(call->isHungUp()) << "with everything that it had";
    EXPECT_TRUE(log.waitFor(kNoFrame));
}

TEST(Garbage, ObjectsOutsideTheirParcel) {
    World::get();
    struct {
        FrameHeader header;
        uint8_t data[48];
        WireObject objects[2];
    } frame = {requestTo(0, TestNode::ECHO, 48), {}, {}};
    frame.header.objectCount = 2;
    for (WireObject& object : frame.objects)
        object.kind = ObjectKind::BINDER;
    for (const auto& [first, second] : std::vector<std::pair<uint32_t, uint32_t>>{
                 {0, 28}, {24, 0}, {0, 8}, {0, 0xfffffff8}, {2, 24}}) {
        Intruder intruder;
        auto call = intruder.open(ConnectionKind::CALL);
        frame.objects[0].position = first;
        frame.objects[1].position = second;
        call->send(frame);
        EXPECT_TRUE(call->isHungUp()) << first << ", " << second;
    }
}

TEST(Forgery, ReachesNothing) {
    World::get();
    Intruder intruder;
    auto call = intruder.open(ConnectionKind::CALL);
    // An object that was never given away.
    call->send(requestTo(0x1234567, TestNode::ECHO, 0));
    FrameHeader reply = {};
    ASSERT_EQ(static_cast<ssize_t>(sizeof(reply)),
              recv(call->fd(), &reply, sizeof(reply), MSG_WAITALL));
    EXPECT_EQ(android::DEAD_OBJECT, reply.status);
    FrameHeader release = makeHeader(FrameType::RELEASE);
    release.target = kContextManagerId;
    release.receipt = 1000;
    intruder.control().send(release);
    FrameHeader acquire = makeHeader(FrameType::ACQUIRE);
    acquire.target = 0x1234567;
    intruder.control().send(acquire);
    ASSERT_EQ(static_cast<ssize_t>(sizeof(reply)),
              recv(intruder.control().fd(), &reply, sizeof(reply), MSG_WAITALL));
    EXPECT_EQ(FrameType::ACQUIRED, reply.type);
    EXPECT_NE(OK, reply.status);
    EXPECT_TRUE(isServed("after-forgery"));
}

TEST(Forgery, ABorrowedNameGetsNoCallsOfItsOwner) {
    World::get();
    TestPeer victim("named");
    // The stranger takes the victim's name and hands in an object under it, which this process then
    // calls: it must reach nobody, and the victim's own proxy must go on.
    ProcessName name = {};
    DIR* const folder = opendir(World::get().folder().c_str());
    ASSERT_NE(nullptr, folder);
    while (const dirent* entry = readdir(folder)) {
        ProcessName candidate;
        if (ProcessName::parse(entry->d_name, &candidate) &&
            candidate.pid == static_cast<uint32_t>(victim.process().pid())) {
            name = candidate;
        }
    }
    closedir(folder);
    ASSERT_NE(0U, name.pid);
    Stranger control;
    control.greet(ConnectionKind::CONTROL, name);
    Stranger call;
    call.greet(ConnectionKind::CALL, name);
    Parcel data;
    data.writeCString("borrowed");
    data.writeStrongBinder(victim.node());
    const size_t position = data.ipcObjects().front().position;
    FrameHeader header =
            requestTo(kContextManagerId, TestNode::KEEP, static_cast<uint32_t>(data.dataSize()));
    header.objectCount = 1;
    WireObject object = {static_cast<uint32_t>(position), ObjectKind::BINDER, 42, name};
    std::vector<uint8_t> frame(frameSize(header));
    memcpy(frame.data(), &header, sizeof(header));
    memcpy(frame.data() + sizeof(header), data.data(), data.dataSize());
    memcpy(frame.data() + frame.size() - sizeof(object), &object, sizeof(object));
    call.send(frame.data(), frame.size());
    ASSERT_TRUE(World::get().node()->waitForKept("borrowed"));
    const sp<IBinder> borrowed = World::get().node()->kept("borrowed");
    EXPECT_NE(victim.node(), borrowed);
    EXPECT_EQ(android::DEAD_OBJECT, borrowed->pingBinder());
    EXPECT_EQ(OK, victim.node()->pingBinder());
    World::get().node()->drop("borrowed");
}

TEST(SlowStranger, HalfFramesHoldNoThread) {
    World::get();
    Intruder intruder;
    std::vector<std::unique_ptr<Stranger>> slow;
    const FrameHeader header = requestTo(kContextManagerId, TestNode::ECHO, 100000);
    for (int i = 0; i < 40; ++i) {
        slow.push_back(intruder.open(ConnectionKind::CALL));
        slow.back()->send(&header, i < 20 ? 10 : sizeof(header));
    }
    std::vector<std::unique_ptr<Stranger>> silent;
    for (int i = 0; i < 20; ++i)
        silent.push_back(std::make_unique<Stranger>());
    EXPECT_TRUE(isServed("beside-half-frames"));
    // One of them completes after all.
    const std::vector<uint8_t> rest(100000);
    slow.back()->send(rest.data(), rest.size());
    FrameHeader reply = {};
    ASSERT_EQ(static_cast<ssize_t>(sizeof(reply)),
              recv(slow.back()->fd(), &reply, sizeof(reply), MSG_WAITALL));
    EXPECT_EQ(OK, reply.status);
    EXPECT_EQ(100000U, reply.dataSize);
}

TEST(SlowStranger, UnreadRepliesHoldNoThread) {
    World::get();
    Intruder intruder;
    std::vector<std::unique_ptr<Stranger>> deaf;
    struct {
        FrameHeader header;
        int32_t size;
        int32_t padding;
    } request = {requestTo(kContextManagerId, TestNode::BIG_REPLY, 4), 1000000, 0};
    for (int i = 0; i < 30; ++i) {
        deaf.push_back(intruder.open(ConnectionKind::CALL));
        deaf.back()->send(request);
    }
    EXPECT_TRUE(isServed("beside-deaf-ones"));
    // Whoever reads after all gets the whole of it, and is served again.
    std::vector<uint8_t> bytes(sizeof(FrameHeader) + 1000000);
    for (int round = 0; round < 2; ++round) {
        ASSERT_EQ(static_cast<ssize_t>(bytes.size()),
                  recv(deaf[0]->fd(), bytes.data(), bytes.size(), MSG_WAITALL));
        deaf[0]->send(request);
    }
}

TEST(SlowStranger, AFloodOfOneWayCallsIsTakenInPieces) {
    World::get();
    Intruder intruder;
    const unique_fd page(memfd_create("page", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    ASSERT_EQ(0, ftruncate(page.get(), 4096));
    ASSERT_EQ(0, fcntl(page.get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL));
    auto flood = intruder.open(ConnectionKind::ONE_WAY, page.get());
    const sp<TestNode> node = World::get().node();
    // The object is busy while a sender that keeps no bound goes on.
    FrameHeader block = requestTo(kContextManagerId, TestNode::BLOCK, 0);
    block.type = FrameType::ONE_WAY;
    flood->send(block);
    ASSERT_TRUE(node->waitForBlocked(1));
    struct {
        FrameHeader header;
        int32_t value;
        int32_t padding;
    } note = {requestTo(kContextManagerId, TestNode::NOTE, 4), 7, 0};
    note.header.type = FrameType::ONE_WAY;
    int sent = 0;
    // It stops when the receiver's queue and then the socket are full.
    while (sent < 100000) {
        if (::send(flood->fd(), &note, sizeof(note), MSG_NOSIGNAL | MSG_DONTWAIT) < 0) {
            pollfd entry = {flood->fd(), POLLOUT, 0};
            if (poll(&entry, 1, 300) == 0) break;
            continue;
        }
        ++sent;
    }
    EXPECT_LT(sent, 10000);
    EXPECT_TRUE(isServed("beside-a-flood"));
    const size_t before = node->notes().size();
    node->unblock();
    EXPECT_TRUE(node->waitForNotes(before + sent)) << "nothing that was taken is lost";
}

}  // namespace
}  // namespace sonorel::test
