#pragma once

#include <utils/Mutex.h>

#include "calls/Driver.h"

namespace android::transport {

/**
 * A process's end of the binder, over AF_UNIX stream sockets straight to the process that owns the
 * called object.
 *
 *     ProcessState, IPCThreadState, BpBinder        the platform's names
 *     calls/       Driver, Acceptor                 sockets watched, accepted; death
 *                  CallServer, StreamReader         calls served, on threads of the ThreadPool
 *                  Calls, WaitingThreads            calls made, and nested ones
 *     peers/       ObjectTransfer, References       binders and descriptors inside parcels; counts
 *                  Peer, Link, OneWayFlow           other processes, their connections, bounds
 *     connection/  Connection, FrameInput, Mailbox  bytes of one connection: frames out and in
 *                  Account, RuntimeDir, Wire        who may hold how much; where processes meet
 *
 * A layer includes those below it only. Each part gets what it works with from here, so several
 * transports may stand in one process, as in tests.
 *
 * Two processes share one STREAM, for all that needs no answer, in order, and open CALL connections
 * as their threads need them. A two-way call costs one send and one receive on each side: the
 * caller blocks in its own receive, the reply leaves from the thread that received the request.
 *
 * Locks, outermost first: Transport, Peers, Peer, Driver, Connection output. Those of LocalObjects
 * (before an object's queue lock), RemoteObjects, ThreadPool, LinkTable, CallServer, WaitingThreads
 * and BpBinder are taken with none of the others taken inside. No lock is held while user code
 * runs.
 *
 * In a child of fork() nothing of this works; it must call exec before it uses any binder. The
 * state is never destroyed, as threads use it until the process ends.
 */
class Transport {
public:
    /** The one of this process. */
    [[nodiscard]] static Transport& get();
    /** One in the runtime folder `path`; "" for the usual one. */
    explicit Transport(const std::string& path, const Limits& limits = usualLimits());
    Transport(const Transport&) = delete;
    Transport& operator=(const Transport&) = delete;

    [[nodiscard]] const ProcessId& self() const { return mSelf; }
    [[nodiscard]] Accounts& accounts() { return mAccounts; }
    [[nodiscard]] const std::string& folder() const { return mDir.path(); }

    void startThreadPool() { mPool.start(); }
    [[noreturn]] void joinThreadPool() { mPool.join(); }
    void setMaxThreads(size_t count);

    /**
     * ALREADY_EXISTS while another process is the context manager, PERMISSION_DENIED for a user
     * whom other processes would not accept.
     */
    [[nodiscard]] status_t becomeContextManager(const sp<BBinder>& object) EXCLUDES(mLock);
    /**
     * The context manager's object; null while there is none, and when whoever goes by that name is
     * neither root, nor the owner of the runtime folder, nor a trusted user.
     */
    [[nodiscard]] sp<IBinder> contextObject();

private:
    ~Transport() = default;

    static void leave();
    [[nodiscard]] status_t ensureListening() EXCLUDES(mLock);
    [[nodiscard]] status_t ensureListeningLocked() REQUIRES(mLock);
    void serve(uint64_t id);

    const ProcessId mSelf;
    const RuntimeDir mDir;
    Accounts mAccounts;
    ThreadPool mPool;
    LinkTable mLinks;
    LocalObjects mLocals;
    Driver mDriver;
    Calls mCalls;
    RemoteObjects mRemotes;
    const Surroundings mSurroundings;
    Peers mPeers;
    ObjectTransfer mTransfer;
    CallServer mServer;
    StreamReader mReader;

    Mutex mLock;
    std::atomic<bool> mListening{false};
    OwnFd mManagerLock GUARDED_BY(mLock);
};

}  // namespace android::transport
