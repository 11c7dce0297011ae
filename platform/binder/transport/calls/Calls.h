#pragma once

#include <binder/BpBinder.h>
#include <binder/Parcel.h>

#include "../peers/ObjectTransfer.h"
#include "WaitingThreads.h"

namespace android::transport {

/**
 * A call that this thread is serving; on the stack of the serving function, linked from the
 * thread's IPCThreadState. While it lasts, the caller waits on the link, so a call back into that
 * process goes over the same link and is served by the thread that waits.
 */
struct ServedCall {
    const LinkPtr* link;  // null for a one-way call: nobody waits
    const Peer* caller;
    uint64_t thread;            // the caller's, which waits
    const WireWaiter* waiters;  // threads that wait for that one, innermost first
    uint32_t waiterCount;
    const ServedCall* outer;
};

/** Calls to other processes, and the serving of what they call. Thread-safe. */
class Calls : public ProxyHost {
public:
    Calls(LocalObjects& locals, RemoteObjects& remotes, ObjectTransfer& transfer, Watcher& watcher)
            : mLocals(locals), mRemotes(remotes), mTransfer(transfer), mWatcher(watcher) {}
    Calls(const Calls&) = delete;
    Calls& operator=(const Calls&) = delete;
    virtual ~Calls() = default;

    [[nodiscard]] status_t transact(BpBinder& proxy, uint32_t code, const Parcel& data,
                                    Parcel* reply, uint32_t flags) override;
    void forget(const BpBinder& proxy) override;

    /**
     * Serves one received REQUEST on this thread and sends the reply. `waits`: the reply may be
     * waited for (this thread belongs to the link anyway); else a reply that the peer does not take
     * is left to the watcher. QUEUED: the watcher has it. GONE: drop the link.
     */
    [[nodiscard]] Connection::Posted serveRequest(const LinkPtr& link, Frame* frame, bool waits);

    /** Runs one received one-way call on this thread. */
    static void serveOneWay(BBinder& object, const FrameHeader& header, const LinkPtr& link,
                            const Parcel& data);

    /** Has the thread that it is for serve a request on a NESTED link; refuses it without one. */
    void serveNested(Delivery delivery);

private:
    [[nodiscard]] status_t callTwoWay(BpBinder& proxy, OutFrame* frame, Parcel* reply,
                                      bool* outSent);
    [[nodiscard]] status_t callOneWay(BpBinder& proxy, const OutFrame& frame, bool* outSent);
    [[nodiscard]] bool exchange(const LinkPtr& link, OutFrame* frame, Parcel* reply,
                                status_t* outStatus);
    [[nodiscard]] status_t awaitReply(const LinkPtr& link, WaitingThreads::Scope* scope,
                                      Parcel* reply);
    [[nodiscard]] status_t takeReply(Frame* frame, const PeerPtr& peer, Parcel* reply);
    void runNested(Delivery* delivery);
    void noteLostLink(const PeerPtr& peer);

    LocalObjects& mLocals;
    RemoteObjects& mRemotes;
    ObjectTransfer& mTransfer;
    Watcher& mWatcher;
};

}  // namespace android::transport
