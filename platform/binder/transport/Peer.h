#pragma once

#include <binder/IBinder.h>
#include <utils/Mutex.h>

#include <atomic>
#include <deque>
#include <map>
#include <memory>
#include <set>
#include <vector>

#include "Connection.h"
#include "Gate.h"
#include "OneWayFlow.h"

namespace android::transport {

class RuntimeDir;

using ConnectionPtr = std::shared_ptr<Connection>;

/**
 * Another process, as long as it lives: its connections in both directions, and what must be undone
 * when it ends. Thread-safe; no function waits for the peer.
 *
 * It is known by the name it gave in its greeting together with the pid and uid that the kernel
 * gave. A stranger who borrows a name is therefore a peer of his own. Connections that this side
 * opens must lead to the same pid and uid.
 */
class Peer : public std::enable_shared_from_this<Peer> {
public:
    Peer(const ProcessName& peerName, pid_t peerPid, uid_t peerUid)
            : name(peerName), pid(peerPid), uid(peerUid), mFlow(peerName.pid) {}
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;
    ~Peer() = default;

    const ProcessName name;
    const pid_t pid;
    const uid_t uid;

    [[nodiscard]] bool isDead() const { return mDead.load(std::memory_order_acquire); }

    // ---- Connections ----

    /** A CALL connection for one call of this thread: an idle one, or a new one. */
    [[nodiscard]] status_t borrowCall(ConnectionPtr* outConnection) EXCLUDES(mLock);
    /** Takes back a connection on which every call has been answered. */
    void returnCall(ConnectionPtr connection) EXCLUDES(mLock);
    /** Drops a connection that cannot be used any more. */
    void dropConnection(const ConnectionPtr& connection) EXCLUDES(mLock);

    /** The connection of all one-way calls of this process to the peer. */
    [[nodiscard]] status_t oneWayConnection(ConnectionPtr* outConnection) EXCLUDES(mLock);
    [[nodiscard]] OneWayFlow& flow() { return mFlow; }

    /**
     * Adds a CONTROL connection; the first one carries what this side sends. Returns the accepted
     * connections that waited for it; false for a dead peer.
     */
    [[nodiscard]] bool attachControl(const ConnectionPtr& connection,
                                     std::vector<ConnectionPtr>* outParked) EXCLUDES(mLock);
    /**
     * Adds an accepted CALL or ONE_WAY connection. `outReady` tells whether it may be served; else
     * it is parked until a CONTROL connection is there, so that a peer that is served can be told
     * about references and seen dying. False for a dead peer.
     */
    [[nodiscard]] bool attachAccepted(const ConnectionPtr& connection, bool* outReady)
            EXCLUDES(mLock);
    [[nodiscard]] bool hasControl() const EXCLUDES(mLock);
    /** True once the peer's CONTROL connection has hung up; waits shortly for it. */
    [[nodiscard]] bool confirmEnd() const EXCLUDES(mLock);

    // ---- References ----

    /** Asks for a reference on the peer's object; the gate is done() when it is counted or lost. */
    void acquireObject(uint64_t id, std::shared_ptr<Gate> gate) EXCLUDES(mLock);
    /** The answer to the oldest acquireObject: its number and gate. Null for a stray answer. */
    [[nodiscard]] std::shared_ptr<Gate> takeAcquired(uint64_t id) EXCLUDES(mLock);
    void releaseObject(uint64_t id, uint64_t count) EXCLUDES(mLock);
    void sendControl(const FrameHeader& header) EXCLUDES(mLock);

    /** Keeps these until the peer sends the receipt with the returned number. */
    [[nodiscard]] uint64_t pin(std::vector<sp<IBinder>> objects) EXCLUDES(mLock);
    [[nodiscard]] std::vector<sp<IBinder>> unpin(uint64_t receipt) EXCLUDES(mLock);

    // ---- End ----

    /** True for the first caller, who then undoes the rest. */
    [[nodiscard]] bool markDead() { return !mDead.exchange(true, std::memory_order_acq_rel); }

    struct Remains {
        std::vector<ConnectionPtr> connections;
        std::vector<std::shared_ptr<Gate>> gates;
        std::vector<sp<IBinder>> pinned;
    };
    /** After markDead: hands everything over and ends the connections. */
    [[nodiscard]] Remains takeRemains() EXCLUDES(mLock);

private:
    struct Acquisition {
        uint64_t id;
        std::shared_ptr<Gate> gate;
    };

    [[nodiscard]] status_t openLocked(ConnectionKind kind, ConnectionPtr* outConnection)
            REQUIRES(mLock);
    void sendControlLocked(const FrameHeader& header) REQUIRES(mLock);

    std::atomic<bool> mDead{false};
    OneWayFlow mFlow;

    mutable Mutex mLock;
    ConnectionPtr mControl GUARDED_BY(mLock);
    ConnectionPtr mOneWay GUARDED_BY(mLock);
    std::vector<ConnectionPtr> mIdleCalls GUARDED_BY(mLock);
    std::set<ConnectionPtr> mConnections GUARDED_BY(mLock);  // all of them
    std::vector<ConnectionPtr> mParked GUARDED_BY(mLock);
    std::deque<Acquisition> mAcquisitions GUARDED_BY(mLock);  // in the order of their answers
    std::map<uint64_t, std::vector<sp<IBinder>>> mPinned GUARDED_BY(mLock);
    uint64_t mNextReceipt GUARDED_BY(mLock) = 1;
};

using PeerPtr = std::shared_ptr<Peer>;

/** The living peers of this process. Thread-safe. */
class Peers {
public:
    /** The peer of that name, connected if need be. Null when it has ended. */
    [[nodiscard]] PeerPtr reach(const ProcessName& name) EXCLUDES(mLock);
    /** The peer that greeted, made if it is new. */
    [[nodiscard]] PeerPtr meet(const ProcessName& name, pid_t pid, uid_t uid) EXCLUDES(mLock);
    /** Forgets a peer that is marked dead. */
    void remove(const PeerPtr& peer) EXCLUDES(mLock);

private:
    struct Key {
        ProcessName name;
        pid_t pid;
        uid_t uid;
        [[nodiscard]] bool operator<(const Key& other) const;
    };
    [[nodiscard]] PeerPtr meetLocked(const ProcessName& name, pid_t pid, uid_t uid) REQUIRES(mLock);

    Mutex mLock;
    std::map<Key, PeerPtr> mPeers GUARDED_BY(mLock);
    // Those whose socket was found to belong to the pid and uid of the peer.
    std::map<ProcessName, PeerPtr> mVerified GUARDED_BY(mLock);
};

}  // namespace android::transport
