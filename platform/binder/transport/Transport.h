#pragma once

#include <android-base/unique_fd.h>
#include <utils/Mutex.h>

#include "Driver.h"
#include "Peer.h"
#include "References.h"
#include "RuntimeDir.h"
#include "ThreadPool.h"

namespace android::transport {

/**
 * This process's end of the binder, over AF_UNIX stream sockets straight to the process that owns
 * the called object.
 *
 *     ProcessState, IPCThreadState, BpBinder    the platform's names
 *     Calls, OneWayReceiver, ThreadPool         transactions: sent, served, and on which thread
 *     ObjectTransfer, References, Gate          binders and descriptors inside parcels
 *     Peer, Acceptor, Driver                    other processes: connections, counts, death
 *     Connection, FrameInput, OneWayFlow        one socket: frames out and in, bounds
 *     RuntimeDir, Wire                          where processes meet, what they say
 *
 * A two-way call costs one send and one receive on each side: the caller blocks in its own receive,
 * the reply leaves from the thread that received the request. One-way calls of a process to another
 * share one connection, which keeps their order.
 *
 * Locks, outermost first: Peers, Peer, Driver, ConnectionTable, Connection output. Those of
 * LocalObjects (before an object's queue lock), RemoteObjects, ThreadPool and BpBinder are taken
 * with none of the others taken inside. No lock is held while user code runs.
 *
 * A child of fork() must call exec before it uses any binder: threads, sockets and the process's
 * name stay with the parent. The state is never destroyed, as threads use it until the process
 * ends.
 */
class Transport {
public:
    [[nodiscard]] static Transport& get();
    Transport(const Transport&) = delete;
    Transport& operator=(const Transport&) = delete;

    /** This process's name for its peers. */
    [[nodiscard]] const ProcessName& self() const { return mSelf; }
    [[nodiscard]] const RuntimeDir& dir() const { return mDir; }
    [[nodiscard]] LocalObjects& locals() { return mLocals; }
    [[nodiscard]] RemoteObjects& remotes() { return mRemotes; }
    [[nodiscard]] Peers& peers() { return mPeers; }
    [[nodiscard]] ConnectionTable& connections() { return mConnections; }
    [[nodiscard]] ThreadPool& pool() { return mPool; }
    [[nodiscard]] Driver& driver() { return mDriver; }

    /** Makes this process reachable, which it must be before an object of it is sent anywhere. */
    [[nodiscard]] status_t ensureListening() EXCLUDES(mLock);

    /** ALREADY_EXISTS while another process is the context manager. */
    [[nodiscard]] status_t becomeContextManager(const sp<BBinder>& object) EXCLUDES(mLock);
    /** The context manager's object; null while there is none. */
    [[nodiscard]] sp<IBinder> contextObject();

private:
    Transport();
    ~Transport() = default;

    static void removeFiles();
    [[nodiscard]] status_t ensureListeningLocked() REQUIRES(mLock);

    const ProcessName mSelf;
    const RuntimeDir mDir;
    LocalObjects mLocals;
    RemoteObjects mRemotes;
    Peers mPeers;
    ConnectionTable mConnections;
    ThreadPool mPool;
    Driver mDriver;

    Mutex mLock;
    std::atomic<bool> mListening{false};
    base::unique_fd mManagerLock GUARDED_BY(mLock);
};

}  // namespace android::transport
