#include "Attacks.h"

#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>

#include "Roles.h"
#include "platform/binder/transport/connection/Mailbox.h"
#include "platform/binder/transport/connection/Wire.h"

namespace sonorel::bench {

using android::base::unique_fd;
using namespace android::transport;

namespace {

constexpr uid_t kNobody = 65534;
constexpr size_t kMostHeld = 4000;        // connections; more only cost the machine's memory
constexpr size_t kOwnDescriptors = 50;    // beside those
constexpr size_t kMostDescriptors = 253;  // that the kernel takes in one message
constexpr size_t kHalfFrame = 60000;      // bytes of a frame that never ends
constexpr int32_t kUnreadReply = 256000;  // bytes
constexpr size_t kBatch = 16;             // frames for one system call
constexpr size_t kManyObjects = 500;      // in one frame
constexpr size_t kLiePayload = 32768;
constexpr size_t kBlockedCalls = 20;
constexpr int32_t kBlockedTime = 500;  // milliseconds

// As both sides see their page: a mailbox each way, and what the receiver of its calls has
// finished.
struct PageHalf {
    Mailbox box;
    std::atomic<uint64_t> calls;
    std::atomic<uint64_t> bytes;
};

unique_fd makePage() {
    unique_fd page(memfd_create("page", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (page.get() < 0 || ftruncate(page.get(), 4096) != 0 ||
        fcntl(page.get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) != 0) {
        perror("page");
        abort();
    }
    return page;
}

FrameHeader callHeader(FrameType type, uint32_t code, size_t dataSize) {
    FrameHeader header = makeHeader(type);
    header.target = kContextManagerId;
    header.code = code;
    header.dataSize = static_cast<uint32_t>(dataSize);
    return header;
}

class Stranger {
public:
    explicit Stranger(const std::string& socketPath) : mPage(makePage()) {
        mAddress.sun_family = AF_UNIX;
        strncpy(mAddress.sun_path, socketPath.c_str(), sizeof(mAddress.sun_path) - 1);
        mId.uid = kNobody;
        mId.name.pid = static_cast<uint32_t>(getpid());
        fillRandom(mId.name.random, sizeof(mId.name.random));
        rlimit limit = {};
        if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur <= kOwnDescriptors) abort();
        mHeld.resize(std::min(kMostHeld, static_cast<size_t>(limit.rlim_cur) - kOwnDescriptors));
    }

    // ---- What a connection is made of; each is false or empty when the other side refuses ----

    // Never waits: a full queue of connections is a refusal.
    unique_fd connectTo() const {
        unique_fd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        const auto* const address = reinterpret_cast<const sockaddr*>(&mAddress);
        if (connect(socket.get(), address, sizeof(mAddress)) != 0) socket.reset();
        return socket;
    }

    // The first `size` bytes of a greeting, with the page `descriptors` times.
    bool greet(const unique_fd& socket, ConnectionKind kind, size_t size = sizeof(Greeting),
               size_t descriptors = 1) const {
        Greeting greeting = makeGreeting(kind, mId.name);
        alignas(cmsghdr) char ancillary[CMSG_SPACE(kMostDescriptors * sizeof(int))] = {};
        iovec part = {&greeting, size};
        msghdr message = {};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = ancillary;
        message.msg_controllen = CMSG_SPACE(descriptors * sizeof(int));
        cmsghdr* const header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(descriptors * sizeof(int));
        const std::vector<int> repeated(descriptors, mPage.get());
        memcpy(CMSG_DATA(header), repeated.data(), descriptors * sizeof(int));
        return sendmsg(socket.get(), &message, MSG_NOSIGNAL) == static_cast<ssize_t>(size);
    }

    // A header and as many bytes after it, whatever the header says.
    bool sendFrame(const unique_fd& socket, const FrameHeader& header, size_t bytes) {
        mBytes.resize(sizeof(header) + bytes);
        memcpy(mBytes.data(), &header, sizeof(header));
        return sendBytes(socket, mBytes.data(), mBytes.size());
    }

    static bool sendBytes(const unique_fd& socket, const void* bytes, size_t size) {
        return send(socket.get(), bytes, size, MSG_NOSIGNAL) == static_cast<ssize_t>(size);
    }

    // The connection by which the process is known; waits for room in it, as the others do not.
    unique_fd& stream() {
        if (mStream.get() < 0 || isEnded(mStream)) {
            mStream = connectTo();
            if (!greet(mStream, ConnectionKind::STREAM)) mStream.reset();
            (void)fcntl(mStream.get(), F_SETFL, 0);  // fails without a connection only
        }
        return mStream;
    }

    // A connection of a process that is known.
    unique_fd open(ConnectionKind kind) {
        if (stream().get() < 0) return {};
        unique_fd socket = connectTo();
        if (!greet(socket, kind)) socket.reset();
        return socket;
    }

    [[nodiscard]] const ProcessId& id() const { return mId; }

    // Says to have finished every call that it was ever sent on its stream.
    void finishAll() {
        if (mHalves == nullptr) {
            void* const memory = mmap(nullptr, 2 * sizeof(PageHalf), PROT_READ | PROT_WRITE,
                                      MAP_SHARED, mPage.get(), 0);
            if (memory == MAP_FAILED) abort();
            mHalves = static_cast<PageHalf*>(memory);
        }
        mHalves[1].calls += 1;
        mHalves[1].bytes += kLiePayload;
    }

    // Keeps connections for as long as the other side does. Looks at one place at a time: true when
    // that is free for another connection, which hold() then puts there.
    bool hasRoom() {
        mPlace = (mPlace + 1) % mHeld.size();
        return mHeld[mPlace].get() < 0 || isEnded(mHeld[mPlace]);
    }
    bool hold(unique_fd socket) {
        mHeld[mPlace] = std::move(socket);
        return true;
    }

private:
    static bool isEnded(const unique_fd& socket) {
        pollfd entry = {socket.get(), POLLRDHUP, 0};
        return poll(&entry, 1, 0) != 0;
    }

    sockaddr_un mAddress = {};
    ProcessId mId = {};
    const unique_fd mPage;
    unique_fd mStream;
    PageHalf* mHalves = nullptr;
    std::vector<unique_fd> mHeld;
    size_t mPlace = 0;
    std::vector<char> mBytes;
};

// ---- One step each; false when nothing came of it ----

// Does with sockets of its own what the others do with the server's.
bool keepOff(Stranger&) {
    int pair[2];
    char bytes[sizeof(FrameHeader)] = {};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) return false;
    const bool done = send(pair[0], bytes, sizeof(bytes), 0) > 0 &&
                      recv(pair[1], bytes, sizeof(bytes), 0) > 0;
    close(pair[0]);
    close(pair[1]);
    return done;
}

bool connectAndClose(Stranger& stranger) {
    return stranger.connectTo().get() >= 0;
}

bool connectAndHold(Stranger& stranger) {
    if (!stranger.hasRoom()) return false;
    unique_fd socket = stranger.connectTo();
    return socket.get() >= 0 && stranger.hold(std::move(socket));
}

bool greetWithGarbage(Stranger& stranger) {
    static const std::vector<uint8_t> garbage(sizeof(Greeting), 0xa5);
    return Stranger::sendBytes(stranger.connectTo(), garbage.data(), garbage.size());
}

bool sendGarbage(Stranger& stranger) {
    FrameHeader garbage;
    memset(&garbage, 0xa5, sizeof(garbage));
    return stranger.sendFrame(stranger.open(ConnectionKind::CALL), garbage, 0);
}

bool holdHalfFrame(Stranger& stranger) {
    if (!stranger.hasRoom()) return false;
    unique_fd socket = stranger.open(ConnectionKind::CALL);
    const FrameHeader header = callHeader(FrameType::REQUEST, BenchNode::ECHO, kMaxTransactionSize);
    return stranger.sendFrame(socket, header, kHalfFrame) && stranger.hold(std::move(socket));
}

bool leaveReplyUnread(Stranger& stranger) {
    if (!stranger.hasRoom()) return false;
    struct {
        FrameHeader header;
        int32_t size;
        int32_t padding;
    } request = {callHeader(FrameType::REQUEST, BenchNode::FILL, sizeof(int32_t)), kUnreadReply, 0};
    unique_fd socket = stranger.open(ConnectionKind::CALL);
    return Stranger::sendBytes(socket, &request, sizeof(request)) &&
           stranger.hold(std::move(socket));
}

bool floodOneWay(Stranger& stranger) {
    struct Call {
        FrameHeader header;
        char payload[kPayload];
    };
    static const std::vector<Call> batch(
            kBatch, {callHeader(FrameType::ONE_WAY, BenchNode::ECHO, kPayload), {}});
    return Stranger::sendBytes(stranger.stream(), batch.data(), kBatch * sizeof(Call));
}

// Nobody's: of a process that never was, or of one that is not in the runtime folder.
ProcessId inventId(bool alive) {
    ProcessId id = {{alive ? 1U : UINT32_MAX / 2, {}}, 0, 0};
    fillRandom(id.name.random, sizeof(id.name.random));
    return id;
}

bool inventReferences(Stranger& stranger) {
    FrameHeader header =
            callHeader(FrameType::ONE_WAY, BenchNode::ECHO, kManyObjects * kMinObjectSize);
    header.objectCount = kManyObjects;
    std::vector<WireObject> objects;
    for (uint32_t i = 0; i < kManyObjects; ++i) {
        const uint32_t position = i * static_cast<uint32_t>(kMinObjectSize);
        const ProcessId owner = i % 2 == 0 ? stranger.id() : inventId(false);
        objects.push_back({position, ObjectKind::BINDER, i, owner});
    }
    std::vector<char> bytes(frameSize(header));
    memcpy(bytes.data(), &header, sizeof(header));
    memcpy(bytes.data() + bytes.size() - kManyObjects * sizeof(WireObject), objects.data(),
           kManyObjects * sizeof(WireObject));
    return Stranger::sendBytes(stranger.stream(), bytes.data(), bytes.size());
}

bool announceReferences(Stranger& stranger) {
    struct Count {
        FrameHeader header;
        ProcessId other;
    };
    std::vector<Count> batch;
    for (size_t i = 0; i < kBatch; ++i) {
        const FrameType type = i % 4 == 3 ? FrameType::CLAIM : FrameType::GRANT;
        batch.push_back({makeHeader(type, kContextManagerId, 1), inventId(i % 2 == 0)});
        batch.back().header.dataSize = sizeof(ProcessId);
    }
    return Stranger::sendBytes(stranger.stream(), batch.data(), kBatch * sizeof(Count));
}

// Has the server call it one way for ever, and lies about what it has finished.
bool receiveNothing(Stranger& stranger) {
    struct {
        FrameHeader header;
        char data[32];  // the object's record and its stability
        WireObject sink;
    } setSink = {callHeader(FrameType::REQUEST, BenchNode::SET_SINK, sizeof(setSink.data)), {}, {}};
    static unique_fd socket;
    if (socket.get() < 0) {
        socket = stranger.open(ConnectionKind::CALL);
        (void)fcntl(socket.get(), F_SETFL, 0);  // fails without a connection only
        setSink.header.objectCount = 1;
        setSink.sink = {0, ObjectKind::BINDER, 1, stranger.id()};
        if (!Stranger::sendBytes(socket, &setSink, sizeof(setSink))) return false;
        char reply[sizeof(FrameHeader)];
        (void)!recv(socket.get(), reply, sizeof(reply), MSG_WAITALL);
    }
    const FrameHeader relay = callHeader(FrameType::REQUEST, BenchNode::RELAY, kLiePayload);
    static std::vector<char> reply(sizeof(FrameHeader) + kLiePayload);
    FrameHeader header;
    if (!stranger.sendFrame(socket, relay, kLiePayload) ||
        recv(socket.get(), &header, sizeof(header), MSG_WAITALL) != sizeof(header)) {
        socket.reset();
        return false;
    }
    (void)!recv(socket.get(), reply.data(), header.dataSize, MSG_WAITALL);
    stranger.finishAll();
    return header.status == 0;
}

bool keepBlocked(ConnectionKind kind, Stranger& stranger) {
    static std::vector<unique_fd> sockets(kBlockedCalls);
    static size_t next = 0;
    const struct {
        FrameHeader header;
        int32_t time;
        int32_t padding;
    } request = {callHeader(FrameType::REQUEST, BenchNode::BLOCK, sizeof(int32_t)), kBlockedTime,
                 0};
    unique_fd& socket = sockets[next++ % kBlockedCalls];
    char reply[sizeof(FrameHeader)];
    if (socket.get() >= 0 && recv(socket.get(), reply, sizeof(reply), 0) < 0) return false;
    if (socket.get() < 0) socket = stranger.open(kind);
    if (Stranger::sendBytes(socket, &request, sizeof(request))) return true;
    socket.reset();
    return false;
}

bool blockCalls(Stranger& stranger) {
    return keepBlocked(ConnectionKind::CALL, stranger);
}

bool blockNestedCalls(Stranger& stranger) {
    return keepBlocked(ConnectionKind::NESTED, stranger);
}

bool greetWithDescriptors(Stranger& stranger) {
    if (!stranger.hasRoom()) return false;
    unique_fd socket = stranger.connectTo();
    return stranger.greet(socket, ConnectionKind::CALL, sizeof(Greeting) / 2, kMostDescriptors) &&
           stranger.hold(std::move(socket));
}

using Step = bool (*)(Stranger&);
constexpr Step kSteps[] = {keepOff,          connectAndClose,    connectAndHold,
                           greetWithGarbage, sendGarbage,        holdHalfFrame,
                           leaveReplyUnread, floodOneWay,        greetWithDescriptors,
                           inventReferences, announceReferences, receiveNothing,
                           blockCalls,       blockNestedCalls};

void becomeNobody() {
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        (void)setrlimit(RLIMIT_NOFILE, &limit);  // else it holds fewer
    }
    if (setgroups(0, nullptr) != 0 || setresgid(kNobody, kNobody, kNobody) != 0 ||
        setresuid(kNobody, kNobody, kNobody) != 0) {
        perror("cannot become nobody");
        abort();
    }
}

}  // namespace

const std::vector<Attack>& attacks() {
    static const std::vector<Attack> list = {
            {"control", "the same kinds of system calls on sockets of its own"},
            {"connects", "connects and closes"},
            {"held", "connects and holds as many as it gets"},
            {"garbage-greetings", "greets with garbage"},
            {"garbage-frames", "greets well, then sends garbage"},
            {"half-frames", "holds frames that never end"},
            {"unread-replies", "asks for large replies and reads none"},
            {"one-way-flood", "one-way calls beyond every bound"},
            {"descriptors", "half greetings with many descriptors, held"},
            {"references", "one-way calls full of references to invented objects"},
            {"announcements", "announces and claims references of invented processes"},
            {"lying-receiver", "is called one-way, reads nothing, says to have finished all"},
            {"blocked-calls", "calls that block in the server"},
            {"blocked-nested", "the same, for threads that do not wait"},
    };
    return list;
}

int runAttack(const std::string& name, const std::string& socketPath, int tallyFd) {
    void* const memory = mmap(nullptr, sizeof(std::atomic<uint64_t>), PROT_READ | PROT_WRITE,
                              MAP_SHARED, tallyFd, 0);
    if (memory == MAP_FAILED) return 1;
    auto& tally = *static_cast<std::atomic<uint64_t>*>(memory);
    becomeNobody();
    (void)prctl(PR_SET_PDEATHSIG, SIGKILL);  // after the change of uid, which forgets it
    Stranger stranger(socketPath);
    for (size_t i = 0; i < attacks().size(); ++i) {
        if (name != attacks()[i].name) continue;
        for (;;) {
            if (kSteps[i](stranger)) tally.fetch_add(1, std::memory_order_relaxed);
        }
    }
    return 2;
}

}  // namespace sonorel::bench
