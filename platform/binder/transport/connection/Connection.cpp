#define LOG_TAG "BinderTransport"

#include "Connection.h"

#include <errno.h>
#include <fcntl.h>
#include <inttypes.h>
#include <log/log.h>
#include <poll.h>
#include <sched.h>
#include <string.h>
#include <unistd.h>

#include <atomic>

#include "ErrorText.h"
#include "FlakeDelay.h"
#include "SocketIo.h"

namespace android::transport {

namespace {

constexpr uint8_t kPadding[8] = {};
constexpr int kMaxParts = 5;
constexpr size_t kSmallFrame = 512;
/** A reply of more bytes than this is charged before it is sent. */
constexpr size_t kSmallReply = 4096;
/** Queued frames are sent in pieces of about this size. */
constexpr size_t kChunk = size_t{32} * 1024;
constexpr size_t kMaxControlBytes = size_t{4} * 1024 * 1024;
/** A peer that wakes this side so often for nothing is waited for at the socket. */
constexpr int kMaxIdleWakes = 64;

/** Lays out what of the frame follows its first `skip` bytes; returns the number of parts. */
int layOut(const OutFrame& frame, size_t skip, iovec (&outParts)[kMaxParts]) {
    const size_t padding = padTo8(frame.header.dataSize) - frame.header.dataSize;
    const void* const objects = frame.objects == nullptr ? nullptr : frame.objects->data();
    const void* const waiters = frame.waiters == nullptr ? nullptr : frame.waiters->data();
    const struct {
        const void* bytes;
        size_t size;
    } whole[kMaxParts] = {{&frame.header, sizeof(FrameHeader)},
                          {frame.data, frame.header.dataSize},
                          {kPadding, padding},
                          {objects, frame.header.objectCount * sizeof(WireObject)},
                          {waiters, frame.header.waiterCount * sizeof(WireWaiter)}};
    int count = 0;
    for (const auto& part : whole) {
        if (skip >= part.size) {
            skip -= part.size;
            continue;
        }
        outParts[count].iov_base =
                const_cast<uint8_t*>(static_cast<const uint8_t*>(part.bytes) + skip);
        outParts[count].iov_len = part.size - skip;
        skip = 0;
        ++count;
    }
    return count;
}

/** A small frame in one piece, which the kernel takes more cheaply than parts. */
ssize_t sendSmall(int socket, const iovec* parts, int count, int flags) {
    uint8_t whole[kSmallFrame];
    size_t size = 0;
    for (int i = 0; i < count; ++i) {
        memcpy(whole + size, parts[i].iov_base, parts[i].iov_len);
        size += parts[i].iov_len;
    }
    flakeDelay();
    ssize_t sent;
    do {
        sent = ::send(socket, whole, size, flags | MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    return sent < 0 ? -errno : sent;
}

ssize_t sendFrom(int socket, const OutFrame& frame, size_t skip, int flags) {
    iovec parts[kMaxParts];
    const int count = layOut(frame, skip, parts);
    if (frame.descriptors == nullptr && frameSize(frame.header) <= kSmallFrame) {
        return sendSmall(socket, parts, count, flags);
    }
    const bool withDescriptors = skip == 0 && frame.descriptors != nullptr;
    return sendMessage(socket, parts, count, withDescriptors ? frame.descriptors->data() : nullptr,
                       withDescriptors ? frame.descriptors->size() : 0, flags);
}

bool isFull(ssize_t result) {
    return result == -EAGAIN || result == -EWOULDBLOCK;
}

}  // namespace

uint64_t nextEventId() {
    static std::atomic<uint64_t> sNext{1};
    return sNext.fetch_add(1, std::memory_order_relaxed);
}

ucred peerCredentials(int socket) {
    ucred credentials = {};
    socklen_t size = sizeof(credentials);
    if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) {
        ALOGE("No credentials of a peer: %s", errorText(errno).c_str());
        return {0, UINT32_MAX, UINT32_MAX};
    }
    return credentials;
}

Connection::Connection(OwnFd socket, ConnectionKind kind, Side side,
                       std::shared_ptr<SharedPage> page, Accounts& accounts)
        : mId(nextEventId()),
          mSocket(std::move(socket)),
          mKind(kind),
          mSide(side),
          mCredentials(peerCredentials(mSocket.get())),
          mAccount(accounts.of(mCredentials.uid)),
          mTrusted(mAccount.isTrusted),
          mPage(std::move(page)),
          mInput(mAccount) {}

Connection::~Connection() {
    // The peer must see the end even if a child that was made by other means than fork() holds the
    // socket.
    end();
}

bool Connection::claim() {
    Claim seen = mClaim.load(std::memory_order_relaxed);
    for (;;) {
        const Claim next = seen == Claim::NONE ? Claim::HELD : Claim::CONTESTED;
        if (mClaim.compare_exchange_weak(seen, next, std::memory_order_acq_rel)) {
            return seen == Claim::NONE;
        }
    }
}

bool Connection::release() {
    Claim expected = Claim::HELD;
    if (mClaim.compare_exchange_strong(expected, Claim::NONE, std::memory_order_acq_rel)) {
        return true;
    }
    mClaim.store(Claim::HELD, std::memory_order_relaxed);
    return false;
}

void Connection::expect() {
    // The rest of a frame comes by the stream.
    if (mExpecting || !mInput.isEmpty()) return;
    mPage->inbox(mSide).park(mInput.received());
    mExpecting = true;
}

ssize_t Connection::withdraw() {
    mIdleWakes = 0;
    if (!mExpecting) return 0;
    mExpecting = false;
    Mailbox& inbox = mPage->inbox(mSide);
    if (!inbox.unpark()) return 0;
    const size_t size = inbox.frameBytes();
    if (size > Mailbox::kSlotBytes) return -EPROTO;
    return mInput.append(inbox.frame(), size) ? static_cast<ssize_t>(size) : -ENOMEM;
}

void Connection::sleepAtInbox(Mailbox::Patience patience) {
    // end() sets mEnded and then looks at mAsleep: one of the two sees the other.
    mAsleep.store(true, std::memory_order_seq_cst);
    if (!isEnded()) mPage->inbox(mSide).wait(mInput.received(), patience);
    mAsleep.store(false, std::memory_order_release);
}

ssize_t Connection::receiveNow() {
    const ssize_t got = mInput.receive(fd(), MSG_DONTWAIT);
    // The idle connections of a stranger keep no room.
    if (got == -EAGAIN && !mTrusted) mInput.trim();
    return got;
}

ssize_t Connection::receiveSoon() {
    expect();
    if (mExpecting) {
        sleepAtInbox(Mailbox::Patience::BRIEF);
        if (const ssize_t got = withdraw(); got != 0) return got;
    }
    return receiveNow();
}

ssize_t Connection::await() {
    expect();
    if (mExpecting) {
        sleepAtInbox(Mailbox::Patience::ENDLESS);
        const bool moved = isEnded() || mPage->inbox(mSide).hasMoved(mInput.received());
        const int wakes = mIdleWakes + 1;
        if (const ssize_t got = withdraw(); got != 0) return got;
        if (!moved && wakes < kMaxIdleWakes) {
            mIdleWakes = wakes;
            return -EINTR;
        }
    }
    return mInput.receive(fd(), 0);
}

bool Connection::putInOutbox(const OutFrame& frame) {
    if (frame.descriptors != nullptr) return false;
    iovec parts[kMaxParts];
    const int count = layOut(frame, 0, parts);
    return mPage->outbox(mSide).put(parts, count, frameSize(frame.header), mStreamBytes);
}

void Connection::announce(uint64_t streamBytes) {
    mStreamBytes = streamBytes;
    mPage->outbox(mSide).announce(streamBytes);
}

status_t Connection::send(const OutFrame& frame) {
    if (putInOutbox(frame)) return OK;
    const size_t size = frameSize(frame.header);
    announce(mStreamBytes + size);
    size_t sent = 0;
    int flags = MSG_DONTWAIT;
    while (sent < size) {
        const ssize_t step = sendFrom(fd(), frame, sent, flags);
        if (step < 0 && !isFull(step)) {
            // More descriptors in flight than the system allows: those leave with the first byte.
            if (step != -ETOOMANYREFS) return DEAD_OBJECT;
            announce(mStreamBytes - size);
            return FAILED_TRANSACTION;
        }
        if (step > 0) sent += step;
        // Before this side blocks: a receiver that sleeps at its mailbox makes no room.
        mPage->outbox(mSide).nudge();
        flags = 0;
    }
    return OK;
}

bool Connection::chargeLocked(size_t size, Bound bound) {
    if (bound == Bound::CONTROL && mTrusted) {
        if (mOutputBytes + size > kMaxControlBytes) return false;
        mOutputCharge.add(mAccount, Resource::BYTES, size);
        return true;
    }
    // Also when the receiver says that it has finished more than it can have read.
    if (bound == Bound::ONE_WAY && mOutputBytes > kMaxPendingOneWayBytes) return false;
    return mOutputCharge.take(mAccount, Resource::BYTES, size);
}

Connection::Posted Connection::post(const OutFrame& frame, Bound bound) {
    const size_t size = frameSize(frame.header);
    Mutex::Autolock lock(mOutputLock);
    const bool first = mOutput.empty();
    if (first && putInOutbox(frame)) return Posted::SENT;
    const bool charged = !first || size > kSmallReply;
    if (charged && !chargeLocked(size, bound)) return Posted::FULL;
    announce(mStreamBytes + size);
    size_t sent = 0;
    if (first) {
        const ssize_t step = sendFrom(fd(), frame, 0, MSG_DONTWAIT);
        if (step > 0) sent = step;
        const bool gone = step < 0 && !isFull(step);
        if (charged) mOutputCharge.giveBack(Resource::BYTES, gone ? size : sent);
        if (gone) return Posted::GONE;
        mPage->outbox(mSide).nudge();
        if (sent == size) return Posted::SENT;
    }
    if (!charged && !chargeLocked(size - sent, bound)) {
        if (sent > 0) {
            end();  // the frame cannot be finished
            return Posted::GONE;
        }
        announce(mStreamBytes - size);
        return Posted::FULL;
    }
    queueLocked(frame, sent);
    return first ? Posted::QUEUED : Posted::SENT;
}

void Connection::queueLocked(const OutFrame& frame, size_t sent) {
    // Small frames share a chunk, so that they leave with one system call.
    const size_t size = frameSize(frame.header) - sent;
    const bool alone = (sent == 0 && frame.descriptors != nullptr) || mOutput.empty() ||
                       mOutput.back().bytes.size() + size > kChunk;
    if (alone) mOutput.emplace_back();
    Chunk& chunk = mOutput.back();
    iovec parts[kMaxParts];
    const int count = layOut(frame, sent, parts);
    for (int i = 0; i < count; ++i) {
        const auto* bytes = static_cast<const uint8_t*>(parts[i].iov_base);
        chunk.bytes.insert(chunk.bytes.end(), bytes, bytes + parts[i].iov_len);
    }
    if (sent == 0 && frame.descriptors != nullptr) {
        // The caller may close its own as soon as it is back.
        for (int fd : *frame.descriptors) {
            chunk.descriptors.emplace_back(fcntl(fd, F_DUPFD_CLOEXEC, 0));
        }
    }
    mOutputBytes += size;
}

Connection::Posted Connection::flush() {
    Mutex::Autolock lock(mOutputLock);
    while (!mOutput.empty()) {
        Chunk& chunk = mOutput.front();
        iovec part = {chunk.bytes.data() + chunk.sent, chunk.bytes.size() - chunk.sent};
        int descriptors[kMaxDescriptors];
        size_t count = 0;
        for (const base::unique_fd& fd : chunk.descriptors)
            descriptors[count++] = fd.get();
        const ssize_t sent = sendMessage(fd(), &part, 1, descriptors, count, MSG_DONTWAIT);
        if (isFull(sent)) return Posted::QUEUED;
        if (sent < 0) return Posted::GONE;
        chunk.descriptors.clear();
        chunk.sent += sent;
        mOutputBytes -= sent;
        mOutputCharge.giveBack(Resource::BYTES, sent);
        mPage->outbox(mSide).nudge();
        if (chunk.sent == chunk.bytes.size()) mOutput.pop_front();
    }
    return Posted::SENT;
}

size_t Connection::queuedBytes() const {
    Mutex::Autolock lock(mOutputLock);
    return mOutputBytes;
}

void Connection::end() {
    if (isForkedChild()) return;  // the number of the socket may be another file's by now
    mEnded.store(true, std::memory_order_seq_cst);
    (void)shutdown(fd(), SHUT_RDWR);  // it may have ended by itself
    mPage->outbox(mSide).close();
    // The peer can write to the futex, so one wake-up may come to nothing; mEnded is out of its
    // reach and lets the thread that it keeps asleep go at the next one.
    while (mAsleep.load(std::memory_order_seq_cst)) {
        mPage->inbox(mSide).wake();
        (void)sched_yield();  // always succeeds
    }
}

bool Connection::hasHungUp(int milliseconds) const {
    pollfd entry = {fd(), POLLRDHUP, 0};
    return poll(&entry, 1, milliseconds) > 0;
}

void logNoFrame(Connection& connection) {
    uint64_t leftOut = 0;
    if (!connection.account().mayLog(&leftOut)) return;
    ALOGE("Process %d, uid %u, sent bytes that are no frame of this connection; ending it; %" PRIu64
          " refusals and faults since the last line",
          connection.pid(), connection.uid(), leftOut);
}

}  // namespace android::transport
