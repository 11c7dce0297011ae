// What strangers can do to a process: byte by byte, by many connections, by what they make it hold
// and under whose name they come.

#include <fcntl.h>
#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <thread>

#include "TransportTest.h"
#include "platform/binder/transport/Transport.h"
#include "platform/binder/transport/connection/SocketIo.h"
#include "support/LogCapture.h"
#include "support/ScopedEnv.h"

namespace sonorel::test {
namespace {

using android::FAILED_TRANSACTION;
using android::IBinder;
using android::OK;
using android::sp;
using android::status_t;
using android::base::unique_fd;
using namespace android::transport;
using Bytes = std::vector<uint8_t>;

constexpr uint32_t kPing = IBinder::PING_TRANSACTION;
constexpr uid_t kNobody = 65534;

// Only root can come as somebody else. Elsewhere strangers are of this user, who is trusted.
bool isRoot() {
    return geteuid() == 0;
}
#define SKIP_WITHOUT_OTHER_USERS() \
    if (!isRoot()) GTEST_SKIP() << "needs root, to be another user"

// A user of whom no service has heard yet.
uid_t newUser() {
    static std::atomic<uid_t> sNext{60000};
    return isRoot() ? sNext++ : geteuid();
}

// Runs `work` on a thread that is `user` to whomever it connects to and whoever connects to it.
void runAs(uid_t user, const std::function<void()>& work) {
    std::thread([&] {
        // Not by the library's function, which changes all threads.
        EXPECT_TRUE(user == geteuid() || syscall(SYS_setresuid, user, user, user) == 0);
        work();
    }).join();
}

// One more process of the folder, as it were.
Transport& makeTransport(const std::string& folder, const Limits& limits = usualLimits()) {
    static auto* const sAll = new std::vector<Transport*>();  // for the search for leaks
    return *sAll->emplace_back(new Transport(folder, limits));
}

// A context manager in a folder of its own, to which strangers come.
struct Service {
    explicit Service(size_t threads = 4, const Limits& limits = usualLimits())
            : transport(makeTransport(folder, limits)) {
        transport.setMaxThreads(threads);
        transport.startThreadPool();
        EXPECT_EQ(OK, transport.becomeContextManager(node));
    }
    // A process that connects now has its call answered.
    [[nodiscard]] bool isServed() const {
        const sp<IBinder> object = makeTransport(folder).contextObject();
        return object != nullptr && callEcho(object, 100) == OK;
    }
    // What the processes of a user hold here.
    [[nodiscard]] uint64_t held(uid_t user, const std::string& resource) const {
        const std::string report = transport.accounts().report();
        const size_t line = report.find("  uid " + std::to_string(user));
        const size_t word = report.find(" " + resource + " ", line);
        if (line == std::string::npos || word == std::string::npos) return 0;
        return strtoull(report.c_str() + word + resource.size() + 2, nullptr, 10);
    }
    [[nodiscard]] bool getsBack(uid_t user, const std::string& resource) const {
        return eventually([&] { return held(user, resource) == 0; });
    }

    const TempDir dir;
    const std::string folder = dir.path("run");
    const sp<TestNode> node = new TestNode();
    Transport& transport;
};

// A frame for the context manager unless `header` says otherwise.
Bytes frameOf(FrameHeader header, const Bytes& data = {},
              const std::vector<WireObject>& objects = {}) {
    header.dataSize = static_cast<uint32_t>(data.size());
    header.objectCount = static_cast<uint32_t>(objects.size());
    Bytes bytes(frameSize(header));
    memcpy(bytes.data(), &header, sizeof(header));
    std::copy(data.begin(), data.end(), bytes.begin() + sizeof(header));
    const auto* const first = reinterpret_cast<const uint8_t*>(objects.data());
    std::copy_backward(first, first + objects.size() * sizeof(WireObject), bytes.end());
    return bytes;
}
FrameHeader header(uint32_t code, FrameType type = FrameType::REQUEST, uint64_t target = 0) {
    FrameHeader made = makeHeader(type, target);
    made.code = code;
    return made;
}

// Has the context manager keep the object `id` of `owner`.
Bytes keep(const std::string& name, uint64_t id, const ProcessId& owner) {
    android::Parcel data;
    data.writeCString(name.c_str());
    data.writeStrongBinder(new android::BBinder());
    const auto position = static_cast<uint32_t>(data.ipcObjects().front().position);
    return frameOf(header(TestNode::KEEP), {data.ipcData(), data.ipcData() + data.ipcDataSize()},
                   {{position, ObjectKind::BINDER, id, owner}});
}

// One connection of a stranger.
struct Line {
    Line(const Service& service, uid_t user)
            : page(SharedPage::create(&file)), socket(::socket(AF_UNIX, SOCK_STREAM, 0)) {
        const timeval within = {kEventDeadline.count() / 1000, 0};
        setsockopt(fd(), SOL_SOCKET, SO_RCVTIMEO, &within, sizeof(within));
        sockaddr_un address = {AF_UNIX, {}};
        const std::string path = service.folder + "/" + service.transport.self().name.toString();
        path.copy(address.sun_path, sizeof(address.sun_path) - 1);
        runAs(user, [&] {
            EXPECT_EQ(0, connect(fd(), reinterpret_cast<sockaddr*>(&address), sizeof(address)));
        });
    }
    // False when not all of it has left, as the other side has hung up already.
    bool send(const Bytes& bytes, int flags = 0) const {
        return ::send(fd(), bytes.data(), bytes.size(), MSG_NOSIGNAL | flags) ==
               static_cast<ssize_t>(bytes.size());
    }
    // The status of the next reply, which is read to its end; -1 for none.
    status_t takeReply(size_t* outSize = nullptr) const {
        FrameHeader reply = {};
        if (recv(fd(), &reply, sizeof(reply), MSG_WAITALL) != sizeof(reply)) return -1;
        Bytes rest(frameSize(reply) - sizeof(reply));
        const auto size = static_cast<ssize_t>(rest.size());
        if (size > 0 && recv(fd(), rest.data(), size, MSG_WAITALL) != size) return -1;
        if (outSize != nullptr) *outSize = reply.dataSize;
        return reply.status;
    }
    [[nodiscard]] bool isHungUp(int within = static_cast<int>(kEventDeadline.count())) const {
        pollfd entry = {fd(), POLLRDHUP, 0};
        return poll(&entry, 1, within) == 1;
    }
    int fd() const { return socket.get(); }

    unique_fd file;
    const std::shared_ptr<SharedPage> page;
    const unique_fd socket;
};
using Lines = std::vector<std::unique_ptr<Line>>;

// A stranger who has been let in: its stream, and other connections under the same name.
struct Intruder {
    explicit Intruder(const Service& at, uid_t of = newUser()) : Intruder(at, of, newName()) {}
    Intruder(const Service& at, uid_t of, const ProcessName& name)
            : service(at), user(of), id{name, of, 0}, stream(at, of) {
        EXPECT_TRUE(sendGreeting(stream.fd(), makeGreeting(ConnectionKind::STREAM, name),
                                 stream.file.get()));
    }
    static ProcessName newName() {
        ProcessName name = {static_cast<uint32_t>(getpid()), {}};
        fillRandom(name.random, sizeof(name.random));
        return name;
    }
    // A connection for calls, on which `request` has been sent.
    std::unique_ptr<Line> open(const Bytes& request = {}) const {
        auto line = std::make_unique<Line>(service, user);
        EXPECT_TRUE(sendGreeting(line->fd(), makeGreeting(ConnectionKind::CALL, id.name),
                                 line->file.get()));
        EXPECT_TRUE(line->send(request));
        return line;
    }
    status_t call(const Bytes& request) const { return open(request)->takeReply(); }
    [[nodiscard]] bool isServed() const { return call(frameOf(header(kPing))) == OK; }
    // Keeps the node busy until it is unblocked.
    void block() const {
        EXPECT_TRUE(stream.send(frameOf(header(TestNode::BLOCK, FrameType::ONE_WAY))));
        EXPECT_TRUE(service.node->waitForBlocked(1));
    }

    const Service& service;
    const uid_t user;
    const ProcessId id;
    const Line stream;
};

TEST(Garbage, EndsThatConnectionWithOneLine) {
    const auto claiming = [](size_t size, size_t objects, size_t waiters, size_t files) {
        FrameHeader claim = header(1);
        claim.dataSize = static_cast<uint32_t>(size);
        claim.objectCount = static_cast<uint32_t>(objects);
        claim.waiterCount = static_cast<uint32_t>(waiters);
        claim.descriptorCount = static_cast<uint16_t>(files);
        const auto* const first = reinterpret_cast<const uint8_t*>(&claim);
        return Bytes(first, first + sizeof(claim));
    };
    const auto holding = [](uint32_t first, uint32_t second, uint32_t kind, uint16_t files = 0) {
        FrameHeader holder = header(TestNode::ECHO);
        holder.descriptorCount = files;
        const auto as = static_cast<ObjectKind>(kind);
        return frameOf(holder, Bytes(56), {{first, as, 0, {}}, {second, as, 0, {}}});
    };
    const struct {
        const char* what;
        Bytes bytes;
        bool onStream = false;
    } cases[] = {{"no magic", Bytes(sizeof(FrameHeader))},
                 {"unknown type", frameOf(header(1, static_cast<FrameType>(99)))},
                 {"a size over the limit", claiming(kMaxTransactionSize + 1, 0, 0, 0)},
                 {"more objects than bytes", claiming(24, 2, 0, 0)},
                 {"too many objects", claiming(kMaxTransactionSize, kMaxObjects + 1, 0, 0)},
                 {"too many waiters", claiming(0, 0, kMaxWaiters + 1, 0)},
                 {"too many descriptors", claiming(0, 0, 0, kMaxDescriptors + 1)},
                 {"descriptors without objects", claiming(0, 0, 0, 1)},
                 {"descriptors that did not come", holding(0, 24, 2, 2)},
                 {"an object of no kind", holding(0, 24, 3)},
                 {"an object beyond the end", holding(0, 36, 1)},
                 {"an object far beyond the end", holding(0, 0xfffffff8, 1)},
                 {"objects out of order", holding(24, 0, 1)},
                 {"objects that overlap", holding(0, 8, 1)},
                 {"an object out of line", holding(0, 26, 1)},
                 {"a reply to nothing", frameOf(header(0, FrameType::REPLY))},
                 {"a count in place of a call", frameOf(header(0, FrameType::RELEASE))},
                 {"a call on the stream", frameOf(header(1)), true},
                 {"a grant to nobody", frameOf(header(0, FrameType::GRANT)), true}};
    const Service service;
    for (const auto& bad : cases) {
        const Intruder intruder(service);
        const auto call = intruder.open();
        const LogCapture log;
        EXPECT_TRUE((bad.onStream ? intruder.stream : *call).send(bad.bytes));
        EXPECT_TRUE(call->isHungUp()) << bad.what << " (with its stream a peer loses everything)";
        EXPECT_TRUE(!bad.onStream || intruder.stream.isHungUp()) << bad.what;
        if (!isRoot()) continue;  // then there is a line a second for all of them together
        EXPECT_TRUE(log.contains("sent bytes that are no frame")) << bad.what;
        EXPECT_EQ(1U, log.lines().size()) << bad.what;
    }
    EXPECT_TRUE(service.isServed());
}

size_t openFiles() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

TEST(Garbage, InPlaceOfAGreetingIsRefusedAndNothingOfItKept) {
    const Service service;
    const unique_fd loose(memfd_create("page", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    ASSERT_EQ(0, ftruncate(loose.get(), 4096));
    unique_fd sealed;
    ASSERT_NE(nullptr, SharedPage::create(&sealed));
    struct Attempt {
        Greeting greeting;
        size_t size;
        std::vector<int> pages;
    };
    const std::pair<const char*, std::function<void(Attempt&)>> cases[] = {
            {"no page", [](Attempt& bad) { bad.pages.clear(); }},
            {"two pages", [](Attempt& bad) { bad.pages.push_back(bad.pages[0]); }},
            {"a page to cut off", [&](Attempt& bad) { bad.pages = {loose.get()}; }},
            {"in pieces", [](Attempt& bad) { bad.size /= 2; }},
            {"no magic", [](Attempt& bad) { bad.greeting.magic = 0; }},
            {"another version", [](Attempt& bad) { --bad.greeting.version; }},
            {"another's pid", [](Attempt& bad) { ++bad.greeting.sender.pid; }},
            {"no kind", [](Attempt& bad) { bad.greeting.kind = static_cast<ConnectionKind>(4); }},
            {"no stream yet", [](Attempt& bad) { bad.greeting.kind = ConnectionKind::CALL; }},
            {"a second stream", [](Attempt& bad) { bad.greeting.sender.random[0] ^= 1; }}};
    const size_t before = openFiles();
    // Often enough that a leak outweighs what an earlier test may still be closing.
    for (int round = 0; round < 10; ++round) {
        for (const auto& [what, spoil] : cases) {
            const LogCapture log;
            const Intruder intruder(service);
            EXPECT_TRUE(intruder.isServed());
            Attempt bad = {makeGreeting(ConnectionKind::STREAM, intruder.id.name),
                           sizeof(Greeting),
                           {sealed.get()}};
            bad.greeting.sender.random[0] ^= 1;  // not the name that has a stream
            spoil(bad);
            const Line line(service, intruder.user);
            iovec part = {&bad.greeting, bad.size};
            EXPECT_EQ(static_cast<ssize_t>(bad.size),
                      sendMessage(line.fd(), &part, 1, bad.pages.data(), bad.pages.size(), 0));
            ASSERT_TRUE(line.isHungUp()) << what;
            EXPECT_TRUE(!isRoot() || log.lines().size() == 1) << what;
        }
    }
    EXPECT_TRUE(eventually([&] { return openFiles() <= before; })) << openFiles() << ", " << before;
    EXPECT_TRUE(service.isServed());
}

TEST(Forgery, ReachesNothing) {
    const Service service;
    const Intruder intruder(service);
    constexpr uint64_t kNeverGiven = 0x1234567;
    EXPECT_EQ(android::DEAD_OBJECT,
              intruder.call(frameOf(header(TestNode::ECHO, FrameType::REQUEST, kNeverGiven))));
    const auto* const self = reinterpret_cast<const uint8_t*>(&intruder.id);
    for (FrameType type : {FrameType::RELEASE, FrameType::GRANT, FrameType::CLAIM}) {
        for (uint64_t target : {kContextManagerId, kNeverGiven}) {
            FrameHeader count = header(0, type, target);
            count.word = 1000;
            EXPECT_TRUE(intruder.stream.send(frameOf(count, {self, self + sizeof(ProcessId)})));
        }
    }
    EXPECT_TRUE(intruder.stream.send(frameOf(header(TestNode::NOTE, FrameType::ONE_WAY))));
    EXPECT_TRUE(service.node->waitForNotes(1)) << "all before it was read";
    EXPECT_TRUE(service.isServed());
}

TEST(Forgery, ABorrowedNameGetsNoCallsOfItsOwner) {
    SKIP_WITHOUT_OTHER_USERS();
    const Service service;
    Transport& victim = makeTransport(service.folder);
    victim.startThreadPool();
    ASSERT_EQ(OK, callKeep(victim.contextObject(), "victim", new TestNode()));
    const sp<IBinder> real = service.node->kept("victim");
    const Intruder thief(service, newUser(), victim.self().name);
    const uint64_t id = real->remoteBinder()->id();
    // Under the victim's name, and as the victim's an object that there is not.
    for (const auto& [owner, number] :
         {std::pair(thief.id, id), std::pair(victim.self(), uint64_t{42})}) {
        ASSERT_EQ(OK, thief.call(keep("borrowed", number, owner)));
        const sp<IBinder> borrowed = service.node->kept("borrowed");
        EXPECT_NE(real, borrowed);
        EXPECT_EQ(android::DEAD_OBJECT, borrowed->pingBinder()) << "of uid " << owner.uid;
        EXPECT_EQ(OK, real->pingBinder());
    }
}

TEST(SlowStranger, HalfFramesHoldNoThread) {
    const Service service;
    const Intruder intruder(service);
    const Bytes whole = frameOf(header(TestNode::ECHO), Bytes(100000));
    const auto half = whole.begin() + sizeof(FrameHeader);
    Lines slow;
    for (int i = 0; i < 20; ++i) {
        slow.push_back(std::make_unique<Line>(service, intruder.user));  // says nothing at all
        slow.push_back(intruder.open({whole.begin(), i < 10 ? whole.begin() + 10 : half}));
    }
    EXPECT_TRUE(service.isServed());
    EXPECT_TRUE(slow.back()->send({half, whole.end()}));
    size_t size = 0;
    EXPECT_EQ(OK, slow.back()->takeReply(&size)) << "one of them completes after all";
    EXPECT_EQ(100000U, size);
}

TEST(SlowStranger, UnreadRepliesHoldNoMoreThanItsShare) {
    SKIP_WITHOUT_OTHER_USERS();
    const Service service;
    const Intruder intruder(service);
    constexpr uint32_t kSize = 1000000;
    const Bytes request = frameOf(header(TestNode::BIG_REPLY), {0x40, 0x42, 0x0f, 0x00});
    Lines deaf;
    for (int i = 0; i < 30; ++i)
        deaf.push_back(intruder.open(request));
    std::vector<Line*> answered;
    for (const auto& line : deaf) {
        FrameHeader reply = {};
        ASSERT_EQ(ssize_t{sizeof(reply)},
                  recv(line->fd(), &reply, sizeof(reply), MSG_PEEK | MSG_WAITALL));
        if (reply.status == OK) answered.push_back(line.get());
        EXPECT_TRUE(reply.status == OK || reply.status == FAILED_TRANSACTION) << reply.status;
    }
    const uint64_t share = usualLimits()[static_cast<size_t>(Resource::BYTES)].stranger;
    EXPECT_GT(service.held(intruder.user, "bytes"), kSize / 2);
    EXPECT_LE(service.held(intruder.user, "bytes"), share);
    EXPECT_LT(answered.size(), 10U);
    EXPECT_TRUE(service.isServed());
    // Whoever reads after all gets the whole of it, and is served again.
    ASSERT_FALSE(answered.empty());
    for (int round = 0; round < 2; ++round) {
        size_t got = 0;
        EXPECT_EQ(OK, answered.front()->takeReply(&got));
        EXPECT_EQ(kSize, got);
        EXPECT_TRUE(answered.front()->send(request));
    }
    deaf.clear();
    EXPECT_TRUE(service.getsBack(intruder.user, "bytes"));
}

TEST(SlowStranger, AFloodOfOneWayCallsIsTakenInPieces) {
    SKIP_WITHOUT_OTHER_USERS();
    const Service service;
    const Intruder intruder(service);
    intruder.block();
    const Bytes note = frameOf(header(TestNode::NOTE, FrameType::ONE_WAY), Bytes(4));
    size_t sent = 0;
    // A sender that keeps no bound is stopped when the receiver's queue and the socket are full.
    ASSERT_TRUE(eventually([&] {
        while (sent < 100000 && intruder.stream.send(note, MSG_DONTWAIT))
            ++sent;
        return service.held(intruder.user, "bytes") >= (kMaxPendingOneWays - 2) * note.size();
    }));
    EXPECT_LT(sent, 10000U);
    EXPECT_LT(service.held(intruder.user, "bytes"), 2 * kMaxPendingOneWays * note.size());
    EXPECT_TRUE(service.isServed());
    service.node->unblock();
    EXPECT_TRUE(service.node->waitForNotes(sent)) << "nothing that was taken is lost";
    EXPECT_TRUE(service.getsBack(intruder.user, "bytes"));
}

TEST(SlowStranger, WhoClaimsToHaveReadEverythingIsSentNoMore) {
    const Service service;
    const Intruder liar(service);
    ASSERT_EQ(OK, liar.call(keep("liar", 42, liar.id)));
    for (int i = 0; i < 5000; ++i)
        liar.stream.page->addFinished(Side::OPENER, uint64_t{1} << 32);
    constexpr size_t kSize = 50000;
    status_t status = OK;
    for (int i = 0; i < 1000 && status == OK; ++i)
        status = callNote(service.node->kept("liar"), i, kSize);
    EXPECT_EQ(FAILED_TRANSACTION, status);
    const uint64_t held = service.held(liar.user, "bytes");
    EXPECT_GT(held, 0U);
    EXPECT_LE(held, kMaxPendingOneWayBytes + kSize + sizeof(FrameHeader));
    EXPECT_TRUE(service.isServed());
    (void)shutdown(liar.stream.fd(), SHUT_RDWR);
    EXPECT_TRUE(service.getsBack(liar.user, "bytes"));
}

// libutils ends a process in which an object has 2^20 references.
TEST(References, InFramesThatWaitAreBounded) {
    constexpr uint32_t kMany = 4000;
    const Service service;
    const auto ping = [&](uint32_t count, FrameType type) {
        std::vector<WireObject> objects;
        for (uint32_t i = 0; i < count; ++i)
            objects.push_back({i * 24, ObjectKind::BINDER, 0, service.transport.self()});
        return frameOf(header(kPing, type), Bytes(count * size_t{24}), objects);
    };
    if (isRoot()) {
        const Intruder stranger(service);
        EXPECT_EQ(OK, stranger.call(ping(kMany / 2, FrameType::REQUEST)));
        EXPECT_EQ(FAILED_TRANSACTION, stranger.call(ping(kMany, FrameType::REQUEST)));
        EXPECT_TRUE(stranger.isServed());
    }
    // Those whom the service trusts together hold no more either.
    const uid_t own = geteuid();
    const Intruder blocker(service, own);
    blocker.block();
    const Bytes frame = ping(kMany, FrameType::ONE_WAY);
    std::vector<std::unique_ptr<Intruder>> crowd;
    for (int frames = 0; frames * kMany <= uint32_t{1} << 20; ++frames) {
        // A stream is read until 512 KiB wait.
        if (frames % 5 == 0) crowd.push_back(std::make_unique<Intruder>(service, own));
        EXPECT_TRUE(crowd.back()->stream.send(frame));
    }
    for (const auto& one : crowd) {
        int unread = -1;
        EXPECT_TRUE(eventually(
                [&] { return ioctl(one->stream.fd(), SIOCOUTQ, &unread) == 0 && unread == 0; }));
    }
    EXPECT_GT(service.held(own, "references"), uint64_t{1} << 18);
    // A frame that is about to be refused counts for a moment.
    EXPECT_TRUE(eventually([&] { return service.held(own, "references") <= uint64_t{1} << 19; }));
    service.node->unblock();
    EXPECT_TRUE(service.getsBack(own, "references"));
    EXPECT_TRUE(service.isServed());
}

TEST(References, OfAnOwnerThatNeverAnswersHoldNoThread) {
    const Service service(/*threads*/ 4);
    const Intruder silent(service);
    const Intruder giver(service);
    ASSERT_TRUE(silent.isServed()) << "its stream is there";
    Lines calls;
    for (uint64_t i = 0; i < 16; ++i)
        calls.push_back(giver.open(keep(std::to_string(i), 42 + i, silent.id)));
    EXPECT_TRUE(service.isServed());
    for (size_t i = 0; i < calls.size(); ++i) {
        EXPECT_EQ(OK, calls[i]->takeReply());
        EXPECT_TRUE(service.node->kept(std::to_string(i))->isBinderAlive());
    }
}

TEST(Crowd, OneStrangersConnectionsLeaveRoomForOthersAndInTheLog) {
    SKIP_WITHOUT_OTHER_USERS();
    Limits limits = usualLimits();
    limits[static_cast<size_t>(Resource::CONNECTIONS)] = {64, 16, 8};
    const Service service(4, limits);
    const uid_t user = newUser();
    const LogCapture log;
    const auto start = std::chrono::steady_clock::now();
    Lines crowd;
    for (int i = 0; i < 40; ++i)
        crowd.push_back(std::make_unique<Line>(service, user));
    EXPECT_TRUE(eventually([&] {
        return 32 == std::count_if(crowd.begin(), crowd.end(),
                                   [](const auto& line) { return line->isHungUp(0); });
    }));
    EXPECT_EQ(8U, service.held(user, "connections"));
    EXPECT_TRUE(Intruder(service).isServed()) << "another stranger";
    EXPECT_TRUE(service.isServed());
    crowd.clear();
    EXPECT_TRUE(service.getsBack(user, "connections"));
    EXPECT_TRUE(Intruder(service, user).isServed());
    // Garbage without end, and its refusals, are a line a second.
    for (int i = 0; i < 300; ++i) {
        const Line line(service, user);
        (void)line.send(Bytes(100, 'x'));  // it may be refused already
        EXPECT_TRUE(line.isHungUp());
    }
    const size_t lines = log.lines().size();
    const auto passed = std::chrono::steady_clock::now() - start;
    EXPECT_GE(lines, 1U);
    EXPECT_LE(lines, 1U + std::chrono::duration_cast<std::chrono::seconds>(passed).count());
}

TEST(Crowd, OneStrangersBlockedCallsLeaveThreadsForOthers) {
    SKIP_WITHOUT_OTHER_USERS();
    const Service service(/*threads*/ 7);
    const Intruder intruder(service);
    Lines calls;
    for (int i = 0; i < 20; ++i)
        calls.push_back(intruder.open(frameOf(header(TestNode::BLOCK))));
    ASSERT_TRUE(service.node->waitForBlocked(2)) << "as many as may run";
    EXPECT_TRUE(service.isServed());
    EXPECT_TRUE(Intruder(service).isServed()) << "another stranger";
    EXPECT_EQ(2U, service.held(intruder.user, "calls"));
    service.node->unblock();
    for (const auto& call : calls)
        EXPECT_EQ(OK, call->takeReply()) << "those that had to wait are not lost";
    EXPECT_TRUE(service.getsBack(intruder.user, "calls"));
}

// Calls `visit` with the number of each open file and what it is.
void forEachFile(const std::function<void(int, const std::string&)>& visit) {
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        visit(static_cast<int>(std::strtol(entry.path().filename().c_str(), nullptr, 10)),
              std::filesystem::read_symlink(entry, gone).string());
    }
}

// What this process has of its transports: sockets, event sets, pages, files of the folder.
std::string transportFiles() {
    std::string found;
    forEachFile([&](int /*fd*/, const std::string& file) {
        for (const char* kind :
             {"socket:", "[eventpoll]", "memfd:binder", World::get().folder().c_str()}) {
            if (file.find(kind) != std::string::npos) found += file + " ";
        }
    });
    const bool mapped = readFile("/proc/self/maps").find("memfd:binder") != std::string::npos;
    return mapped ? found + "a page" : found;
}

TEST(Fork, LeavesTheChildNothingAndTheParentNoEventWithoutEnd) {
    World::get();
    TestPeer peer("forked");
    EXPECT_NE("", transportFiles());
    // The file of a page that the peer sends in its greeting is open until the page is mapped.
    EXPECT_TRUE(eventually([] {
        bool isMapped = true;
        forEachFile([&](int /*fd*/, const std::string& file) {
            if (file.find("memfd:binder") != std::string::npos) isMapped = false;
        });
        return isMapped;
    }));
    int report[2];
    int end[2];
    ASSERT_TRUE(pipe(report) == 0 && pipe(end) == 0);
    const pid_t child = fork();
    if (child == 0) {
        std::string found = transportFiles();
        const auto proxies = android::ProcessState::self();
        if (peer.node()->pingBinder() != android::INVALID_OPERATION) found += " a call";
        if (callNote(peer.node(), 1) != android::INVALID_OPERATION) found += " a one-way call";
        if (proxies->getContextObject(nullptr) != nullptr) found += " the manager";
        (void)!write(report[1], found.data(), found.size());
        close(report[1]);
        close(end[1]);
        (void)!read(end[0], found.data(), 1);
        _exit(0);
    }
    close(report[1]);
    char found[1000] = {};
    EXPECT_EQ(0, read(report[0], found, sizeof(found) - 1)) << found;
    EXPECT_EQ(OK, peer.node()->pingBinder()) << "the parent goes on";
    // A socket that the child kept would stay in an event set, with its end reported for ever.
    peer.kill();
    EXPECT_TRUE(eventually([&] { return !peer.node()->isBinderAlive(); }));
    EXPECT_TRUE(eventually([] {
        bool quiet = true;
        forEachFile([&](int fd, const std::string& file) {
            pollfd entry = {fd, POLLIN, 0};
            if (file == "anon_inode:[eventpoll]" && poll(&entry, 1, 0) != 0) quiet = false;
        });
        return quiet;
    }));
    for (int fd : {report[0], end[0], end[1]})
        close(fd);
    EXPECT_EQ(child, waitpid(child, nullptr, 0));
}

TEST(Fork, AChildDoesNotHideItsParentsDeath) {
    TestPeer parent("parent", {"--fork"});
    std::string line;
    ASSERT_TRUE(parent.process().waitForLine("forked: ", kEventDeadline, &line));
    parent.kill();
    EXPECT_TRUE(eventually([&] { return !parent.node()->isBinderAlive(); }));
    const auto child =
            static_cast<pid_t>(std::strtol(line.c_str() + strlen("forked: "), nullptr, 10));
    EXPECT_EQ(0, kill(child, 0)) << "the child lives on";
}

TEST(Manager, AStrangerIsItOnlyOnceItIsTrusted) {
    SKIP_WITHOUT_OTHER_USERS();
    enum Way { OWN_LINK, LINK_OF_THE_LAST_ONE, BY_ASKING, TRUSTED };
    for (Way way : {OWN_LINK, LINK_OF_THE_LAST_ONE, BY_ASKING, TRUSTED}) {
        const ScopedEnv users("SONOREL_TRUSTED_UIDS", way == TRUSTED ? "1,65534" : "1");
        const TempDir dir;
        const std::string folder = dir.path("run");
        Transport& asking = makeTransport(folder);
        const ProcessName name = Intruder::newName();
        OwnFd socket;
        const auto link = [&] {
            EXPECT_EQ(0, symlink(name.toString().c_str(), (folder + "/manager").c_str()));
        };
        if (way == LINK_OF_THE_LAST_ONE) link();
        runAs(kNobody, [&] {
            if (way >= BY_ASKING) {
                Transport& manager = makeTransport(folder);
                manager.startThreadPool();
                EXPECT_EQ(way == TRUSTED ? status_t{OK} : status_t{android::PERMISSION_DENIED},
                          manager.becomeContextManager(new TestNode()));
                return;
            }
            EXPECT_EQ(OK, RuntimeDir(folder).listen(name, &socket));
            if (way == OWN_LINK) link();
        });
        const LogCapture log;
        const sp<IBinder> object = asking.contextObject();
        ASSERT_EQ(way == TRUSTED, object != nullptr);
        EXPECT_TRUE(way != TRUSTED || object->pingBinder() == OK);
        EXPECT_EQ(way < BY_ASKING ? 1U : 0U, log.lines().size());
        EXPECT_EQ(way < BY_ASKING, log.contains("uid 65534 is not trusted"));
    }
}

}  // namespace
}  // namespace sonorel::test
