#pragma once

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#include <cstring>
#include <string>
#include <tuple>

/**
 * The frames that two processes exchange. Both run on one machine from one build, so numbers are in
 * host order; the version in the greeting refuses a mixture of builds.
 *
 * A connection starts with a Greeting of the side that connected, sent in one piece together with
 * the descriptor of the connection's SharedPage; then frames follow each other:
 *
 *     FrameHeader | parcel bytes, padded to 8 | objectCount x WireObject | waiterCount x WireWaiter
 *
 * Descriptors travel as ancillary data of a frame's first byte, in the order of their objects.
 * While the receiver waits at its Mailbox in the page, a small frame without descriptors goes
 * through that instead of the socket.
 */
namespace android::transport {

/** Largest number of parcel bytes in one transaction or reply: 1 MiB less two pages. */
constexpr size_t kMaxTransactionSize = 1024 * 1024 - 8192;
/** What one process may have waiting at one receiver as one-way calls. */
constexpr size_t kMaxPendingOneWays = 1000;
constexpr size_t kMaxPendingOneWayBytes = kMaxTransactionSize / 2;
/** Descriptors in one message. */
constexpr size_t kMaxDescriptors = 16;
/** Objects in one message. */
constexpr size_t kMaxObjects = 4096;
/** Threads up the chain of waiting calls that a request names; those further up are left out. */
constexpr size_t kMaxWaiters = 32;

/** Names one run of one process. The random part makes a name that a later process cannot repeat.
 */
struct ProcessName {
    uint32_t pid;
    uint8_t random[12];

    [[nodiscard]] bool operator==(const ProcessName& other) const {
        return memcmp(this, &other, sizeof(*this)) == 0;
    }
    [[nodiscard]] bool operator<(const ProcessName& other) const {
        return memcmp(this, &other, sizeof(*this)) < 0;
    }
    /** The name of the process's socket: "PID-24 hex digits". */
    [[nodiscard]] std::string toString() const;
    /** Reads what toString wrote; false for any other text. */
    [[nodiscard]] static bool parse(const std::string& text, ProcessName* outName);
};
static_assert(sizeof(ProcessName) == 16);

/** A process and its user, by the kernel's word: a name alone could be taken by anybody. */
struct ProcessId {
    ProcessName name;
    uint32_t uid;
    uint32_t reserved;

    [[nodiscard]] bool operator==(const ProcessId& other) const {
        return name == other.name && uid == other.uid;
    }
    [[nodiscard]] bool operator<(const ProcessId& other) const {
        return std::tie(name, uid) < std::tie(other.name, other.uid);
    }
};
static_assert(sizeof(ProcessId) == 24);

enum class ConnectionKind : uint32_t {
    STREAM = 1,  // one for two processes, both directions: whatever needs no answer, in order. Its
                 // end is the death of the peer
    CALL = 2,    // two-way transactions of one thread at a time
    NESTED = 3,  // as CALL, for one thread that waits further up in the chain of calls
};

struct Greeting {
    uint32_t magic;
    uint32_t version;
    ConnectionKind kind;
    uint32_t reserved;
    ProcessName sender;
    uint64_t waiter;  // NESTED: the thread that is to serve it
};
static_assert(sizeof(Greeting) == 40);
constexpr uint32_t kGreetingMagic = 0x736e7262;
constexpr uint32_t kGreetingVersion = 3;

[[nodiscard]] Greeting makeGreeting(ConnectionKind kind, const ProcessName& sender);
/** Greets on a fresh socket, which always has room for that. */
[[nodiscard]] bool sendGreeting(int socket, const Greeting& greeting, int pageDescriptor);

enum class FrameType : uint16_t {
    REQUEST = 1,  // CALL, NESTED; either direction: a nested call goes against the first one
    REPLY = 2,    // CALL, NESTED
    ONE_WAY = 3,  // STREAM
    RELEASE = 4,  // STREAM: take back `word` references of mine on `target`
    GRANT = 5,    // STREAM: the ProcessId in the data is being sent a reference on `target`, which
                  // it will claim; with `word` 0: it has not been sent one after all
    CLAIM = 6,    // STREAM: count a reference on `target` for me, which the ProcessId in the data
                  // has sent me
};

struct FrameHeader {
    uint32_t magic;
    FrameType type;
    uint16_t descriptorCount;
    uint32_t dataSize;
    uint32_t objectCount;
    uint32_t code;
    uint32_t flags;
    uint64_t target;       // object in the receiving process
    uint64_t word;         // REQUEST: the thread that waits; RELEASE, GRANT: a count
    int32_t status;        // REPLY
    uint32_t waiterCount;  // REQUEST
};
static_assert(sizeof(FrameHeader) == 48);
constexpr uint32_t kFrameMagic = 0x736e7266;

enum class ObjectKind : uint32_t { BINDER = 1, DESCRIPTOR = 2 };

struct WireObject {
    uint32_t position;  // in the parcel bytes
    ObjectKind kind;
    uint64_t id;      // BINDER: in the owner's table
    ProcessId owner;  // BINDER
};
static_assert(sizeof(WireObject) == 40);
/** Bytes of an object's record in the parcel, which bounds their number. */
constexpr size_t kMinObjectSize = 24;

/** A thread that waits, directly or through other processes, for the call that names it. */
struct WireWaiter {
    ProcessName process;
    uint64_t thread;
};
static_assert(sizeof(WireWaiter) == 24);

/** The context manager's object in its process; every other object has a random number. */
constexpr uint64_t kContextManagerId = 0;

constexpr size_t padTo8(size_t size) {
    return (size + 7) & ~size_t{7};
}

/** Bytes of the whole frame. Only for a header that isSane. */
inline size_t frameSize(const FrameHeader& header) {
    return sizeof(FrameHeader) + padTo8(header.dataSize) +
           size_t{header.objectCount} * sizeof(WireObject) +
           size_t{header.waiterCount} * sizeof(WireWaiter);
}

/** True when the header can start a frame: everything in it is within its bound. */
[[nodiscard]] bool isSane(const FrameHeader& header);

/** True when the objects lie in the parcel in rising order, and their number of descriptors fits.
 */
[[nodiscard]] bool areSane(const FrameHeader& header, const WireObject* objects);

[[nodiscard]] FrameHeader makeHeader(FrameType type, uint64_t target = 0, uint64_t word = 0);

/** Random bytes of the kernel. */
void fillRandom(void* bytes, size_t size);

}  // namespace android::transport
