#pragma once

#include <android-base/unique_fd.h>
#include <sys/socket.h>
#include <utils/Errors.h>
#include <utils/Mutex.h>

#include <atomic>
#include <deque>
#include <memory>
#include <vector>

#include "Account.h"
#include "FrameInput.h"
#include "OwnFd.h"
#include "SharedPage.h"
#include "Wire.h"

namespace android::transport {

/** A frame on its way out. What it points to stays the caller's, until the sending call returns. */
struct OutFrame {
    FrameHeader header = {};
    const uint8_t* data = nullptr;
    const std::vector<WireObject>* objects = nullptr;
    const std::vector<WireWaiter>* waiters = nullptr;
    const std::vector<int>* descriptors = nullptr;
};

/** A number that no other event of this process has. */
[[nodiscard]] uint64_t nextEventId();

/** The kernel's word on who is at the other end of a socket; nobody's uid when it has none. */
[[nodiscard]] ucred peerCredentials(int socket);

/**
 * One stream socket to one process, and the page of memory with its mailboxes, through which small
 * frames go when the other side waits for them.
 *
 * Input belongs to one thread at a time, the one that holds the claim (an opened CALL: its caller).
 * Output: send() from the thread that a CALL belongs to, post() from any thread. The socket is
 * closed with the last reference; end() wakes whoever waits in it, whatever the other side does.
 */
class Connection {
public:
    Connection(OwnFd socket, ConnectionKind kind, Side side, std::shared_ptr<SharedPage> page,
               Accounts& accounts);
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    virtual ~Connection();

    /** What an event set knows the connection by; never used again in this process. */
    [[nodiscard]] uint64_t id() const { return mId; }
    [[nodiscard]] int fd() const { return mSocket.get(); }
    [[nodiscard]] ConnectionKind kind() const { return mKind; }
    [[nodiscard]] Side side() const { return mSide; }
    [[nodiscard]] pid_t pid() const { return mCredentials.pid; }
    [[nodiscard]] uid_t uid() const { return mCredentials.uid; }
    [[nodiscard]] Account& account() { return mAccount; }
    [[nodiscard]] bool isTrusted() const { return mTrusted; }
    [[nodiscard]] const std::shared_ptr<SharedPage>& page() const { return mPage; }

    // ---- Input, of the thread that it belongs to ----

    FrameInput& input() { return mInput; }

    /** Receives what is there, as FrameInput::receive. */
    [[nodiscard]] ssize_t receiveNow();
    /** As receiveNow, but waits a few milliseconds at the mailbox for something to come. */
    [[nodiscard]] ssize_t receiveSoon();
    /** Waits for what comes next, as long as it takes. -EINTR after an interrupt(). */
    [[nodiscard]] ssize_t await();
    /** Parks at the mailbox ahead of await(), so that an answer may come through it. */
    void expect();
    /** Takes that back; a frame that has come meanwhile is added to the input. */
    [[nodiscard]] ssize_t withdraw();
    /** Has the thread that waits in await() return. From any thread. */
    void interrupt() { mPage->inbox(mSide).wake(); }

    /**
     * The right to receive from a connection that several threads are told of. A failed claim is
     * remembered: release() then returns false once and keeps the claim, so that the holder looks
     * again for what the other thread was told of.
     */
    [[nodiscard]] bool claim();
    [[nodiscard]] bool release();
    /** As release, for a holder who has the connection's event come again. */
    void yield() { mClaim.store(Claim::NONE, std::memory_order_release); }

    // ---- Output ----

    /** Sends the whole frame, waiting as long as the peer takes. DEAD_OBJECT when it is gone. */
    [[nodiscard]] status_t send(const OutFrame& frame);

    enum class Posted { SENT, QUEUED, FULL, GONE };
    /** What may wait in this process for the peer to read. */
    enum class Bound {
        ACCOUNT,  // what the account of the peer's user has room for
        ONE_WAY,  // and kMaxPendingOneWayBytes on this connection
        CONTROL,  // 4 MiB on this connection for the trusted: counts must not be lost
    };
    /**
     * Sends without ever waiting. QUEUED: the rest was copied, and the caller has it flushed once
     * there is room; what comes behind that in the queue counts as SENT. FULL: over the bound, and
     * nothing was sent.
     */
    [[nodiscard]] Posted post(const OutFrame& frame, Bound bound) EXCLUDES(mOutputLock);
    /** Sends queued bytes without waiting. SENT when nothing is left. */
    [[nodiscard]] Posted flush() EXCLUDES(mOutputLock);
    [[nodiscard]] size_t queuedBytes() const EXCLUDES(mOutputLock);

    // ---- End ----

    /** Ends both directions at once. What has arrived can still be received. Any thread. */
    void end();
    [[nodiscard]] bool isEnded() const { return mEnded.load(std::memory_order_seq_cst); }
    /** True once the other side has hung up; waits at most `milliseconds` for it. */
    [[nodiscard]] bool hasHungUp(int milliseconds) const;

private:
    struct Chunk {
        std::vector<uint8_t> bytes;
        size_t sent = 0;
        std::vector<base::unique_fd> descriptors;  // leave with the first byte
    };

    enum class Claim : uint8_t { NONE, HELD, CONTESTED };

    void sleepAtInbox(Mailbox::Patience patience);
    [[nodiscard]] bool putInOutbox(const OutFrame& frame);
    void announce(uint64_t streamBytes);
    [[nodiscard]] bool chargeLocked(size_t size, Bound bound) REQUIRES(mOutputLock);
    void queueLocked(const OutFrame& frame, size_t sent) REQUIRES(mOutputLock);

    const uint64_t mId;
    const OwnFd mSocket;
    const ConnectionKind mKind;
    const Side mSide;
    const ucred mCredentials;
    Account& mAccount;
    const bool mTrusted;  // the account's
    const std::shared_ptr<SharedPage> mPage;

    // The input's.
    FrameInput mInput;
    bool mExpecting = false;  // parked at the inbox
    int mIdleWakes = 0;       // in a row that brought nothing

    // This side's own word, which the peer cannot change: ended, and a thread sleeps at the inbox.
    std::atomic<bool> mEnded{false};
    std::atomic<bool> mAsleep{false};
    std::atomic<Claim> mClaim{Claim::HELD};

    uint64_t mStreamBytes = 0;  // given to the stream, by the one thread at a time that sends
    mutable Mutex mOutputLock;
    std::deque<Chunk> mOutput GUARDED_BY(mOutputLock);
    size_t mOutputBytes GUARDED_BY(mOutputLock) = 0;
    Charge mOutputCharge GUARDED_BY(mOutputLock);
};

/** The one line about a connection that is ended for what came over it; no more than one a second.
 */
void logNoFrame(Connection& connection);

}  // namespace android::transport
