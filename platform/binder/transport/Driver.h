#pragma once

#include <android-base/unique_fd.h>
#include <utils/Mutex.h>

#include <map>
#include <memory>
#include <vector>

#include "Acceptor.h"
#include "Connection.h"
#include "Peer.h"

namespace android::transport {

/** The connections that an event set may report, by number. Thread-safe. */
class ConnectionTable {
public:
    void add(const ConnectionPtr& connection) EXCLUDES(mLock);
    [[nodiscard]] ConnectionPtr find(uint64_t id) const EXCLUDES(mLock);
    void remove(uint64_t id) EXCLUDES(mLock);

private:
    mutable Mutex mLock;
    std::map<uint64_t, ConnectionPtr> mConnections GUARDED_BY(mLock);
};

/**
 * What a kernel driver does elsewhere, on one thread of its own: accepts connections, keeps the
 * reference counts, sees peers end, and sends what posted output did not fit at once. It runs no
 * user code, so references and death work while every binder thread is busy, or none was started.
 * Started with the first peer or the first exported object; its thread never ends.
 */
class Driver {
public:
    Driver();
    Driver(const Driver&) = delete;
    Driver& operator=(const Driver&) = delete;
    ~Driver() = default;

    /** Accepts from now on. */
    void listen(base::unique_fd socket) EXCLUDES(mLock);
    /** Takes over a CONTROL connection, and activates those that waited for it. */
    void adoptControl(const ConnectionPtr& connection, const std::vector<ConnectionPtr>& parked)
            EXCLUDES(mLock);
    /** Lets the pool serve an accepted connection. */
    void activate(const ConnectionPtr& connection);
    /** Flushes the connection when it has room; an accepted CALL is then rearmed in the pool. */
    void watchOutput(const ConnectionPtr& connection) EXCLUDES(mLock);
    /** Ends one connection and forgets it. */
    void drop(const ConnectionPtr& connection);
    /** Undoes everything that depended on the peer. Any thread; only the first call does it. */
    void peerEnded(const PeerPtr& peer);

private:
    void startLocked() REQUIRES(mLock);
    void run();
    void handle(uint64_t id, uint32_t events);
    void handleControl(const ConnectionPtr& connection);
    [[nodiscard]] bool handleFrame(const FrameHeader& header, const PeerPtr& peer);
    void acquire(uint64_t id, const PeerPtr& peer);
    [[nodiscard]] bool acquired(uint64_t id, status_t status, const PeerPtr& peer);
    void flush(const ConnectionPtr& connection) EXCLUDES(mLock);
    void watch(const Connection& connection, uint32_t events);
    void takeNewSocket() EXCLUDES(mLock);

    const base::unique_fd mEvents;
    const base::unique_fd mWake;
    Acceptor mAcceptor;  // the driver's thread alone

    // Orders the start and end of watching for output.
    Mutex mLock;
    bool mStarted GUARDED_BY(mLock) = false;
    base::unique_fd mNewSocket GUARDED_BY(mLock);
};

}  // namespace android::transport
