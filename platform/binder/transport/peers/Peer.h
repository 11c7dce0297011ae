#pragma once

#include <utils/Mutex.h>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <vector>

#include "../connection/RuntimeDir.h"
#include "Link.h"

namespace android::transport {

class Peer;
using PeerPtr = std::shared_ptr<Peer>;

/** The thread that watches sockets, as peers see it. */
class Watcher {
public:
    /** Has a new STREAM read, and its end noticed. */
    virtual void watchStream(const LinkPtr& stream) = 0;
    /** Flushes the link's queue once it has room. */
    virtual void watchOutput(const LinkPtr& link) = 0;
    /** Reads the next request of a NESTED link. */
    virtual void watchNested(const LinkPtr& link) = 0;
    /** Has the end of an expected peer noticed by its process's descriptor. */
    virtual void watchProcess(uint64_t watch, int process, const PeerPtr& peer) = 0;
    virtual void unwatchProcess(uint64_t watch) = 0;
    /** Ends one link and forgets it. */
    virtual void drop(const LinkPtr& link) = 0;
    /** Marks the peer dead and ends what waits for it. Any thread; only the first call counts. */
    virtual void peerEnded(const PeerPtr& peer) = 0;

protected:
    ~Watcher() = default;
};

/** What all peers of one process share. */
struct Surroundings {
    const ProcessId& self;
    const RuntimeDir& dir;
    Accounts& accounts;
    Watcher& watcher;
};

/**
 * Another process, as long as it lives: its links in both directions. Thread-safe. Only opening a
 * link may wait for the peer, and no lock is held over that.
 *
 * A peer is known by its name and the uid that the kernel gives; the pid in the name is checked
 * against the kernel's when it greets.
 */
class Peer : public std::enable_shared_from_this<Peer> {
public:
    Peer(const ProcessId& processId, const Surroundings& surroundings)
            : id(processId),
              account(surroundings.accounts.of(processId.uid)),
              mSurroundings(surroundings),
              mFlow(processId.name.pid) {}
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;
    ~Peer() = default;

    const ProcessId id;
    Account& account;
    [[nodiscard]] pid_t pid() const { return static_cast<pid_t>(id.name.pid); }

    [[nodiscard]] bool isDead() const { return mDead.load(std::memory_order_acquire); }

    // ---- Links ----

    /**
     * Adds a STREAM; the first one carries what this side sends. False for a dead peer, and for a
     * second one that the peer opened.
     */
    [[nodiscard]] bool attachStream(const LinkPtr& stream) EXCLUDES(mLock);
    /** Adds an accepted CALL or NESTED; false without a STREAM, by whose end its death is seen. */
    [[nodiscard]] bool attach(const LinkPtr& link) EXCLUDES(mLock);
    [[nodiscard]] bool hasStream() const EXCLUDES(mLock);

    /** A CALL link for one call of this thread: an idle one, or a new one. */
    [[nodiscard]] status_t borrowCall(LinkPtr* outLink) EXCLUDES(mLock);
    /** Takes back a link on which every call has been answered. */
    void returnCall(LinkPtr link) EXCLUDES(mLock);
    /** A link to the peer's thread `waiter`, which waits for a call that this thread serves. */
    [[nodiscard]] status_t openNested(uint64_t waiter, LinkPtr* outLink) EXCLUDES(mLock);
    /** Ends and forgets a link. */
    void drop(const LinkPtr& link) EXCLUDES(mLock);

    // ---- The stream: calls and counts arrive in the order of these calls ----

    /** FAILED_TRANSACTION when too much waits for the peer to read. */
    [[nodiscard]] status_t sendOneWay(const OutFrame& frame) EXCLUDES(mLock);
    [[nodiscard]] OneWayFlow& flow() { return mFlow; }
    /** Gives back references on an object of the peer. */
    void release(uint64_t object, uint64_t count) EXCLUDES(mLock);
    /** Tells the peer that `receiver` is about to be sent a reference on its object, or was not. */
    void grant(uint64_t object, const ProcessId& receiver, bool sent) EXCLUDES(mLock);
    /** Has the peer count a reference on its object that `giver` has sent to this process. */
    void claim(uint64_t object, const ProcessId& giver) EXCLUDES(mLock);
    /** Sends what is queued, as this process is about to exit, until `deadline`. */
    void flush(nsecs_t deadline) EXCLUDES(mLock);

    /**
     * For a peer that `giver` granted a reference before it connected: keeps what watches its
     * process until it does. False when it has connected, or is watched already.
     */
    [[nodiscard]] bool expect(uint64_t watch, OwnFd process, Charge charge, const ProcessId& giver)
            EXCLUDES(mLock);
    /** Ends that, if it was by the word of `giver`; null for anybody's. True when it was. */
    [[nodiscard]] bool stopExpecting(const ProcessId* giver) EXCLUDES(mLock);

    // ---- End ----

    /** True for the first caller, who then undoes the rest. */
    [[nodiscard]] bool markDead() { return !mDead.exchange(true, std::memory_order_acq_rel); }
    /** After markDead: ends all links. What has arrived on them is still read by their readers. */
    void endLinks() EXCLUDES(mLock);
    /** Forgets a STREAM that was read to its end; true for the last one. */
    [[nodiscard]] bool streamEnded(const LinkPtr& stream) EXCLUDES(mLock);
    /** True once the peer's STREAM has hung up, whatever of it is still to be read. */
    [[nodiscard]] bool hasHungUp() const EXCLUDES(mLock);
    /** The same without a STREAM too; waits shortly for it. */
    [[nodiscard]] bool confirmEnd() const EXCLUDES(mLock);

private:
    struct Expectation {
        uint64_t watch = 0;
        OwnFd process;
        Charge charge;
        ProcessId giver = {};
    };

    [[nodiscard]] status_t open(ConnectionKind kind, uint64_t waiter, LinkPtr* outLink)
            EXCLUDES(mLock);
    [[nodiscard]] LinkPtr stream() const EXCLUDES(mLock);
    void sendCount(FrameType type, uint64_t object, uint64_t count, const ProcessId* other)
            EXCLUDES(mLock);

    const Surroundings& mSurroundings;
    std::atomic<bool> mDead{false};
    OneWayFlow mFlow;

    mutable Mutex mLock;
    LinkPtr mStream GUARDED_BY(mLock);  // for output
    bool mAcceptedStream GUARDED_BY(mLock) = false;
    size_t mStreams GUARDED_BY(mLock) = 0;
    std::vector<LinkPtr> mIdleCalls GUARDED_BY(mLock);
    std::set<LinkPtr> mLinks GUARDED_BY(mLock);  // all of them
    Expectation mExpected GUARDED_BY(mLock);
};

/** The peers of this process: until all that they sent has been read. Thread-safe. */
class Peers {
public:
    explicit Peers(const Surroundings& surroundings) : mSurroundings(surroundings) {}

    /**
     * The peer, connected if need be. Null when it has ended or, after two seconds if `wait`, has
     * not accepted the connection.
     */
    [[nodiscard]] PeerPtr reach(const ProcessId& id, bool wait) EXCLUDES(mLock);
    /** As above, of whatever user `accepts` accepts by the kernel's word on the connection. */
    [[nodiscard]] PeerPtr reach(const ProcessName& name, bool wait,
                                const std::function<bool(uid_t)>& accepts) EXCLUDES(mLock);
    [[nodiscard]] PeerPtr find(const ProcessId& id) EXCLUDES(mLock);
    /** The peer, made if it is new; it is about to connect. */
    [[nodiscard]] PeerPtr meet(const ProcessId& id) EXCLUDES(mLock);
    /** Forgets a peer that has ended. */
    void remove(const PeerPtr& peer) EXCLUDES(mLock);
    /** Forgets those that have not connected and are known by the word of `giver` alone. */
    void removeExpected(const ProcessId& giver) EXCLUDES(mLock);
    /** Sends what is queued for any peer, as this process is about to exit. */
    void flushAll() EXCLUDES(mLock);

private:
    const Surroundings mSurroundings;
    Mutex mLock;
    std::map<ProcessId, PeerPtr> mPeers GUARDED_BY(mLock);
};

}  // namespace android::transport
