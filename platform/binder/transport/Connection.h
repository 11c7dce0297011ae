#pragma once

#include <android-base/unique_fd.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <utils/Errors.h>
#include <utils/Mutex.h>

#include <atomic>
#include <deque>
#include <memory>
#include <vector>

#include "FrameInput.h"
#include "OneWayFlow.h"
#include "SharedPage.h"
#include "Wire.h"

namespace android::transport {

class Peer;

/** A frame on its way out. What it points to stays the caller's, until the sending call returns. */
struct OutFrame {
    FrameHeader header = {};
    const uint8_t* data = nullptr;
    const std::vector<WireObject>* objects = nullptr;
    const std::vector<int>* descriptors = nullptr;
};

/**
 * One stream socket to one peer, and the page of memory with its mailboxes, which small frames take
 * when the other side waits for them. CONTROL connections have no page, and neither has a peer that
 * brought none: then everything goes by the stream.
 *
 * Input belongs to one thread at a time: the driver for CONTROL, the pool thread that took the
 * connection's event for an accepted CALL or ONE_WAY, the caller for a CALL that this side opened.
 * Output: send() from the thread that a CALL belongs to, post() from any thread. The socket is
 * closed with the last reference; end() wakes whoever is blocked in it.
 */
class Connection : public std::enable_shared_from_this<Connection> {
public:
    Connection(base::unique_fd socket, ConnectionKind kind, bool accepted);
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection();

    /** What an event set knows the connection by; never used again in this process. */
    [[nodiscard]] uint64_t id() const { return mId; }
    [[nodiscard]] int fd() const { return mSocket.get(); }
    [[nodiscard]] ConnectionKind kind() const { return mKind; }
    [[nodiscard]] bool isAccepted() const { return mAccepted; }

    /** The kernel's word on who is at the other end. */
    [[nodiscard]] pid_t pid() const { return mCredentials.pid; }
    [[nodiscard]] uid_t uid() const { return mCredentials.uid; }

    /** Null until the greeting has told; set once, before any other thread sees the connection. */
    [[nodiscard]] const std::shared_ptr<Peer>& peer() const { return mPeer; }
    void setPeer(std::shared_ptr<Peer> peer) { mPeer = std::move(peer); }

    /** Set like the peer. */
    void setPage(std::shared_ptr<SharedPage> page) { mPage = std::move(page); }
    /** Every ONE_WAY connection has one. */
    [[nodiscard]] SharedPage& page() { return *mPage; }

    FrameInput& input() { return mInput; }

    /** Waits for what comes next, as long as it takes; as FrameInput::receive. */
    [[nodiscard]] ssize_t receive();
    /**
     * As receive, but after a few milliseconds without anything it returns -EAGAIN; at once where
     * there is no mailbox to wait at or a part of a frame is left over.
     */
    [[nodiscard]] ssize_t receiveSoon();
    /** Says that this thread is about to receive, so that an answer may come the short way. */
    void expect();
    /** Takes that back. */
    void expectNothing();

    /**
     * The right to receive from an accepted connection: given up when the connection is armed in
     * the pool's event set, taken by the first thread that wants to serve it. It also orders what
     * one thread did with the input before what the next one does. A claim that comes too late is
     * remembered: yield returns true for one, as the event that led to it is used up.
     */
    [[nodiscard]] bool yield() {
        return mClaim.exchange(Claim::NONE, std::memory_order_acq_rel) == Claim::CONTESTED;
    }
    [[nodiscard]] bool claim();

    /** Only of an accepted ONE_WAY connection. */
    OneWayIntake& intake() { return *mIntake; }
    void setIntake(std::unique_ptr<OneWayIntake> intake) { mIntake = std::move(intake); }

    /** Sends the whole frame, waiting as long as the peer takes. DEAD_OBJECT when it is gone. */
    [[nodiscard]] status_t send(const OutFrame& frame);

    enum class Posted { SENT, QUEUED, GONE };
    /**
     * Sends without ever waiting. QUEUED: the rest was copied; the caller has the driver watch for
     * room (Driver::watchOutput), which then calls flush.
     */
    [[nodiscard]] Posted post(const OutFrame& frame) EXCLUDES(mOutputLock);
    /** Sends queued bytes without waiting. SENT when nothing is left. */
    [[nodiscard]] Posted flush() EXCLUDES(mOutputLock);
    [[nodiscard]] size_t queuedBytes() const EXCLUDES(mOutputLock);

    /** Ends both directions at once. */
    void end();

    /** True once the other side has hung up; waits at most `milliseconds` for it. */
    [[nodiscard]] bool hasEnded(int milliseconds) const;

private:
    struct Chunk {
        std::vector<uint8_t> bytes;
        size_t sent = 0;
        std::vector<base::unique_fd> descriptors;  // leave with the first byte
    };

    enum class Claim : uint8_t { NONE, HELD, CONTESTED };

    [[nodiscard]] Side side() const { return mAccepted ? Side::ACCEPTOR : Side::OPENER; }
    [[nodiscard]] ssize_t takeFromInbox(Mailbox::Patience patience);
    [[nodiscard]] bool putInOutbox(const OutFrame& frame);
    void announce(uint64_t streamBytes);
    void nudge();
    [[nodiscard]] Posted flushLocked() REQUIRES(mOutputLock);
    void queueLocked(const OutFrame& frame, size_t sent) REQUIRES(mOutputLock);

    const uint64_t mId;
    const base::unique_fd mSocket;
    const ConnectionKind mKind;
    const bool mAccepted;
    ucred mCredentials = {};
    std::shared_ptr<Peer> mPeer;
    FrameInput mInput;
    bool mExpecting = false;    // parked at the inbox, by the thread that the input belongs to
    uint64_t mStreamBytes = 0;  // given to the stream, by the one thread at a time that sends
    std::shared_ptr<SharedPage> mPage;
    std::atomic<Claim> mClaim{Claim::HELD};
    std::unique_ptr<OneWayIntake> mIntake;

    mutable Mutex mOutputLock;
    std::deque<Chunk> mOutput GUARDED_BY(mOutputLock);
    size_t mOutputBytes GUARDED_BY(mOutputLock) = 0;
};

/** The one line about a connection that is ended for what came over it. */
void logNoFrame(const Connection& connection);

}  // namespace android::transport
