#pragma once

#include "CallServer.h"
#include "LinkTable.h"

namespace android::transport {

/**
 * Takes in what comes on streams, in order: one-way calls, which it runs (those of one object one
 * at a time and in order, those of different objects at once), and counts of references. A stream
 * is read to its end although the peer has died: what it sent is carried out, and only then are
 * its references dropped.
 */
class StreamReader {
public:
    StreamReader(LocalObjects& locals, ObjectTransfer& transfer, Peers& peers, Accounts& accounts,
                 Watcher& watcher, CallServer& server, ThreadPool& pool)
            : mLocals(locals),
              mTransfer(transfer),
              mPeers(peers),
              mAccounts(accounts),
              mWatcher(watcher),
              mServer(server),
              mPool(pool) {}

    /** Serves a stream on a thread of the pool; the caller holds the claim. */
    void serve(const LinkPtr& stream);
    /**
     * Reads all that is there and leaves the calls to the pool: for a process without a pool, and
     * for the end of a peer while every thread is busy. The caller holds the claim.
     */
    void drain(const LinkPtr& stream);
    /** Drops the references of a peer that has ended and of which nothing is left to be read. */
    void dropHolder(const PeerPtr& peer);

private:
    /** What one receive brought: the first call that may run at once, and objects with more. */
    struct Arrivals {
        LocalObjectPtr object;
        OneWayCall call;
        std::vector<LocalObjectPtr> others;
        int calls = 0;
    };
    enum class Reading { EVENT, STAY, DRAIN };

    [[nodiscard]] bool receive(const LinkPtr& stream, Reading reading, Arrivals* outArrivals);
    [[nodiscard]] bool takeFrames(const LinkPtr& stream, Arrivals* outArrivals);
    [[nodiscard]] bool takeFrame(Frame* frame, const LinkPtr& stream, Arrivals* outArrivals);
    void takeCall(Frame* frame, const LinkPtr& stream, Arrivals* outArrivals);
    [[nodiscard]] bool takeTransfer(const Frame& frame, const Peer& sender);
    [[nodiscard]] PeerPtr expectPeer(const ProcessId& id, Account& payer, const ProcessId& giver);
    [[nodiscard]] bool pause(const LinkPtr& stream);
    void streamEnded(const LinkPtr& stream);
    void postQueue(const LocalObjectPtr& object);
    void runQueue(const LocalObjectPtr& object);
    void runOne(LocalObject& object, OneWayCall call);
    void finish(const LinkPtr& stream, size_t bytes);
    void trimHeap();

    LocalObjects& mLocals;
    ObjectTransfer& mTransfer;
    Peers& mPeers;
    Accounts& mAccounts;
    Watcher& mWatcher;
    CallServer& mServer;
    ThreadPool& mPool;
    std::atomic<nsecs_t> mLastTrim{0};
};

}  // namespace android::transport
