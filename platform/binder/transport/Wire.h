#pragma once

#include <stddef.h>
#include <stdint.h>

#include <cstring>
#include <string>

/**
 * The frames that two processes exchange. Both run on one machine from one build, so numbers are in
 * host order; the version in the greeting refuses a mixture of builds.
 *
 * A connection starts with a Greeting of the side that connected; then frames follow each other:
 *
 *     FrameHeader | parcel bytes, padded to 8 | objectCount x WireObject
 *
 * Descriptors travel as ancillary data of a frame's first byte, in the order of their objects; with
 * the greeting of a CALL or ONE_WAY connection comes the descriptor of its SharedPage. While the
 * receiver waits at its Mailbox there, a small frame without descriptors goes through that instead.
 */
namespace android::transport {

/** Largest number of parcel bytes in one transaction or reply: 1 MiB less two pages. */
constexpr size_t kMaxTransactionSize = 1024 * 1024 - 8192;
/** What one process may have waiting at one receiver as one-way calls. */
constexpr size_t kMaxPendingOneWays = 1000;
constexpr size_t kMaxPendingOneWayBytes = kMaxTransactionSize / 2;
/** Descriptors in one message. */
constexpr size_t kMaxDescriptors = 16;

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

enum class ConnectionKind : uint32_t {
    CONTROL = 1,  // one for each pair of processes at least; its end is the death of the peer
    CALL = 2,     // two-way transactions of one thread at a time
    ONE_WAY = 3,  // one-way transactions of the whole process, in order
};

struct Greeting {
    uint32_t magic;
    uint32_t version;
    ConnectionKind kind;
    uint32_t reserved;
    ProcessName sender;
};
static_assert(sizeof(Greeting) == 32);
constexpr uint32_t kGreetingMagic = 0x736e7262;
constexpr uint32_t kGreetingVersion = 2;

/**
 * Greets as `sender` on a fresh socket, which always has room for that; a `descriptor` that is not
 * negative goes along.
 */
[[nodiscard]] bool sendGreeting(int socket, ConnectionKind kind, const ProcessName& sender,
                                int descriptor);

enum class FrameType : uint16_t {
    REQUEST = 1,   // CALL, either direction: a nested call goes against the stream
    REPLY = 2,     // CALL
    ONE_WAY = 3,   // ONE_WAY
    ACQUIRE = 4,   // CONTROL: count one reference of mine on `target`
    ACQUIRED = 5,  // CONTROL: answers, in order, each ACQUIRE; `status` tells
    RELEASE = 6,   // CONTROL: take back `receipt` references of mine on `target`
    RECEIPT = 7,   // CONTROL: every foreign reference of the frame `receipt` has been acquired
};

struct FrameHeader {
    uint32_t magic;
    FrameType type;
    uint16_t descriptorCount;
    uint32_t dataSize;
    uint32_t objectCount;
    uint32_t code;
    uint32_t flags;
    uint64_t target;  // object in the receiving process
    // REPLY, ONE_WAY: nonzero when the sender keeps the frame's foreign references until a RECEIPT
    // with this number comes. RELEASE: how many.
    uint64_t receipt;
    int32_t status;  // REPLY, ACQUIRED
    uint32_t reserved;
};
static_assert(sizeof(FrameHeader) == 48);
constexpr uint32_t kFrameMagic = 0x736e7266;

enum class ObjectKind : uint32_t { BINDER = 1, DESCRIPTOR = 2 };

struct WireObject {
    uint32_t position;  // in the parcel bytes
    ObjectKind kind;
    uint64_t id;        // BINDER: in the owner's table
    ProcessName owner;  // BINDER
};
static_assert(sizeof(WireObject) == 32);
/** Bytes of an object's record in the parcel, which bounds their number. */
constexpr size_t kMinObjectSize = 24;

/** The context manager's object in its process; every other object has a random number. */
constexpr uint64_t kContextManagerId = 0;

constexpr size_t padTo8(size_t size) {
    return (size + 7) & ~size_t{7};
}

/** Bytes of the whole frame. Only for a header that isSane. */
inline size_t frameSize(const FrameHeader& header) {
    return sizeof(FrameHeader) + padTo8(header.dataSize) +
           size_t{header.objectCount} * sizeof(WireObject);
}

/** True when the header can start a frame: everything in it is within its bound. */
[[nodiscard]] bool isSane(const FrameHeader& header);

/** True when the objects lie in the parcel in rising order, and their number of descriptors fits.
 */
[[nodiscard]] bool areSane(const FrameHeader& header, const WireObject* objects);

[[nodiscard]] FrameHeader makeHeader(FrameType type);

/** Random bytes of the kernel. */
void fillRandom(void* bytes, size_t size);

}  // namespace android::transport
