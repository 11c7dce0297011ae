#define LOG_TAG "BinderTransport"

#include "Connection.h"

#include <errno.h>
#include <fcntl.h>
#include <log/log.h>
#include <poll.h>
#include <string.h>
#include <unistd.h>

#include <atomic>

#include "ErrorText.h"
#include "FlakeDelay.h"

namespace android::transport {

namespace {

constexpr uint8_t kPadding[8] = {};
constexpr int kMaxParts = 4;
constexpr size_t kSmallFrame = 512;

uint64_t nextId() {
    static std::atomic<uint64_t> sNext{1};
    return sNext.fetch_add(1, std::memory_order_relaxed);
}

/** Lays out what of the frame follows its first `skip` bytes; returns the number of parts. */
int layOut(const OutFrame& frame, size_t skip, iovec (&outParts)[kMaxParts]) {
    const size_t padding = padTo8(frame.header.dataSize) - frame.header.dataSize;
    const void* const objects = frame.objects == nullptr ? nullptr : frame.objects->data();
    const struct {
        const void* bytes;
        size_t size;
    } whole[kMaxParts] = {{&frame.header, sizeof(FrameHeader)},
                          {frame.data, frame.header.dataSize},
                          {kPadding, padding},
                          {objects, frame.header.objectCount * sizeof(WireObject)}};
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

/** One sendmsg; the descriptors go with it. Returns bytes, or -errno. */
ssize_t sendParts(int socket, iovec* parts, int count, const int* descriptors,
                  size_t descriptorCount, int flags) {
    alignas(cmsghdr) char ancillary[CMSG_SPACE(kMaxDescriptors * sizeof(int))];
    msghdr message = {};
    message.msg_iov = parts;
    message.msg_iovlen = count;
    if (descriptorCount > 0) {
        message.msg_control = ancillary;
        message.msg_controllen = CMSG_SPACE(descriptorCount * sizeof(int));
        cmsghdr* const header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(descriptorCount * sizeof(int));
        memcpy(CMSG_DATA(header), descriptors, descriptorCount * sizeof(int));
    }
    flakeDelay();
    ssize_t sent;
    do {
        sent = sendmsg(socket, &message, flags | MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    return sent < 0 ? -errno : sent;
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
    return sendParts(socket, parts, count, withDescriptors ? frame.descriptors->data() : nullptr,
                     withDescriptors ? frame.descriptors->size() : 0, flags);
}

bool isFull(ssize_t result) {
    return result == -EAGAIN || result == -EWOULDBLOCK;
}

}  // namespace

Connection::Connection(base::unique_fd socket, ConnectionKind kind, bool accepted)
        : mId(nextId()), mSocket(std::move(socket)), mKind(kind), mAccepted(accepted) {
    socklen_t size = sizeof(mCredentials);
    if (getsockopt(fd(), SOL_SOCKET, SO_PEERCRED, &mCredentials, &size) != 0) {
        ALOGE("No credentials of a peer: %s", errorText(errno).c_str());
        mCredentials = {0, UINT32_MAX, UINT32_MAX};  // nobody's uid
    }
}

Connection::~Connection() {
    // A child between fork and exec may still hold the socket: the peer must see the end now.
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

void Connection::expect() {
    // What is left of a frame is never waited for at the futex: the rest comes by the stream.
    if (mPage == nullptr || mExpecting || !mInput.isEmpty()) return;
    mPage->inbox(side()).park(mInput.received());
    mExpecting = true;
}

void Connection::expectNothing() {
    if (mExpecting) (void)mPage->inbox(side()).unpark();
    mExpecting = false;
}

/** Waits at the inbox. Bytes; 0 for the stream's turn; -errno. */
ssize_t Connection::takeFromInbox(Mailbox::Patience patience) {
    expect();
    if (!mExpecting) return 0;
    mExpecting = false;
    Mailbox& inbox = mPage->inbox(side());
    inbox.wait(mInput.received(), patience);
    if (!inbox.unpark()) return 0;
    const size_t size = inbox.frameBytes();
    if (size > Mailbox::kSlotBytes) return -EPROTO;
    return mInput.append(inbox.frame(), size) ? static_cast<ssize_t>(size) : -ENOMEM;
}

ssize_t Connection::receive() {
    const ssize_t got = takeFromInbox(Mailbox::Patience::ENDLESS);
    return got != 0 ? got : mInput.receive(fd(), 0);
}

ssize_t Connection::receiveSoon() {
    const ssize_t got = takeFromInbox(Mailbox::Patience::BRIEF);
    return got != 0 ? got : mInput.receive(fd(), MSG_DONTWAIT);
}

bool Connection::putInOutbox(const OutFrame& frame) {
    if (mPage == nullptr || frame.descriptors != nullptr) return false;
    iovec parts[kMaxParts];
    const int count = layOut(frame, 0, parts);
    return mPage->outbox(side()).put(parts, count, frameSize(frame.header), mStreamBytes);
}

void Connection::announce(uint64_t streamBytes) {
    mStreamBytes = streamBytes;
    if (mPage != nullptr) mPage->outbox(side()).announce(streamBytes);
}

void Connection::nudge() {
    if (mPage != nullptr) mPage->outbox(side()).nudge();
}

status_t Connection::send(const OutFrame& frame) {
    if (putInOutbox(frame)) return OK;
    const size_t size = frameSize(frame.header);
    announce(mStreamBytes + size);
    size_t sent = 0;
    while (sent < size) {
        const ssize_t step = sendFrom(fd(), frame, sent, 0);
        if (step < 0) {
            // More descriptors in flight than the system allows: those leave with the first byte.
            if (step != -ETOOMANYREFS) return DEAD_OBJECT;
            announce(mStreamBytes - size);
            return FAILED_TRANSACTION;
        }
        sent += step;
        nudge();
    }
    return OK;
}

Connection::Posted Connection::post(const OutFrame& frame) {
    Mutex::Autolock lock(mOutputLock);
    if (mOutput.empty() && putInOutbox(frame)) return Posted::SENT;
    announce(mStreamBytes + frameSize(frame.header));
    ssize_t sent = 0;
    if (mOutput.empty()) {
        sent = sendFrom(fd(), frame, 0, MSG_DONTWAIT);
        if (sent < 0 && !isFull(sent)) return Posted::GONE;
        if (sent < 0) sent = 0;
        nudge();
        if (static_cast<size_t>(sent) == frameSize(frame.header)) return Posted::SENT;
    }
    queueLocked(frame, sent);
    return Posted::QUEUED;
}

void Connection::queueLocked(const OutFrame& frame, size_t sent) {
    Chunk chunk;
    chunk.bytes.reserve(frameSize(frame.header) - sent);
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
    mOutputBytes += chunk.bytes.size();
    mOutput.push_back(std::move(chunk));
}

Connection::Posted Connection::flush() {
    Mutex::Autolock lock(mOutputLock);
    return flushLocked();
}

Connection::Posted Connection::flushLocked() {
    while (!mOutput.empty()) {
        Chunk& chunk = mOutput.front();
        iovec part = {chunk.bytes.data() + chunk.sent, chunk.bytes.size() - chunk.sent};
        int descriptors[kMaxDescriptors];
        size_t count = 0;
        for (const base::unique_fd& fd : chunk.descriptors)
            descriptors[count++] = fd.get();
        const ssize_t sent = sendParts(fd(), &part, 1, descriptors, count, MSG_DONTWAIT);
        if (isFull(sent)) return Posted::QUEUED;
        if (sent < 0) return Posted::GONE;
        chunk.descriptors.clear();
        chunk.sent += sent;
        mOutputBytes -= sent;
        if (chunk.sent == chunk.bytes.size()) mOutput.pop_front();
    }
    return Posted::SENT;
}

size_t Connection::queuedBytes() const {
    Mutex::Autolock lock(mOutputLock);
    return mOutputBytes;
}

void Connection::end() {
    (void)shutdown(fd(), SHUT_RDWR); /* it may have ended by itself */
    if (mPage == nullptr) return;
    mPage->outbox(side()).close();
    mPage->inbox(side()).close();
}

bool Connection::hasEnded(int milliseconds) const {
    pollfd entry = {fd(), POLLRDHUP, 0};
    return poll(&entry, 1, milliseconds) > 0;
}

void logNoFrame(const Connection& connection) {
    ALOGE("Process %d, uid %u, sent bytes that are no frame of this connection; ending it",
          connection.pid(), connection.uid());
}

}  // namespace android::transport
