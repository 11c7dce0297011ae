#pragma once

#include <binder/BpBinder.h>
#include <binder/Parcel.h>
#include <utils/Mutex.h>

#include <deque>
#include <map>
#include <memory>
#include <unordered_map>
#include <vector>

#include "Peer.h"

namespace android::transport {

/** A one-way call that has been received and waits for its object. */
struct OneWayCall {
    Frame frame;
    LinkPtr from;
    std::vector<ParcelObject> objects;
};

/**
 * An object of this process that other processes hold. It keeps the object alive.
 *
 * One-way calls to it run one at a time, in the order in which they came.
 */
struct LocalObject {
    LocalObject(uint64_t objectId, sp<BBinder> object) : id(objectId), binder(std::move(object)) {}

    const uint64_t id;
    const sp<BBinder> binder;

    struct Transfer {
        int64_t count = 0;
        Charge charge;
    };
    struct Holding {
        uint64_t count = 0;
        Charge charge;
    };
    // Guarded by LocalObjects' lock.
    std::map<const Peer*, Holding> holders;
    // References on their way from one process to another: what the giver has announced less what
    // the receiver has claimed, whichever comes first. Nothing is in order between their streams.
    std::map<std::pair<ProcessId, ProcessId>, Transfer> transfers;

    Mutex queueLock;
    std::deque<OneWayCall> queue GUARDED_BY(queueLock);
    bool running GUARDED_BY(queueLock) = false;  // some thread owns the front of the queue
};

using LocalObjectPtr = std::shared_ptr<LocalObject>;

/**
 * The objects of this process that have left it.
 *
 * The owner alone counts. It counts a reference before it sends one, so that none is on its way
 * uncounted. A process that passes a reference on to a third one tells the owner first (GRANT), and
 * what it gives back itself travels behind that on the same stream; the receiver has it counted
 * (CLAIM) as it takes it in, ahead of what it gives back. So nobody waits for anybody, and the
 * object lives on the way. A holder gives back all that it has in one RELEASE, when its proxy goes;
 * what a dead holder had goes with it.
 *
 * Functions that may drop the last reference return it, and the caller lets it go where the
 * object's destructor may run.
 */
class LocalObjects {
public:
    /** Counts one reference of `holder` on `binder`. Null when it is dead or may have no more. */
    [[nodiscard]] LocalObjectPtr publish(const sp<BBinder>& binder, const Peer& holder)
            EXCLUDES(mLock);
    [[nodiscard]] LocalObjectPtr find(uint64_t id) const EXCLUDES(mLock);
    /** Counts a reference that `giver` has announced for `receiver`, or (-1) takes that back. */
    [[nodiscard]] LocalObjectPtr grant(uint64_t id, const ProcessId& giver, const Peer& receiver,
                                       int change, Account& payer) EXCLUDES(mLock);
    /**
     * Counts a reference of `holder` that `giver` sent it; `announces`: the giver's announcement
     * may still come.
     */
    void claim(uint64_t id, const ProcessId& giver, bool announces, const Peer& holder)
            EXCLUDES(mLock);
    [[nodiscard]] LocalObjectPtr release(uint64_t id, const Peer& holder, uint64_t count)
            EXCLUDES(mLock);
    [[nodiscard]] std::vector<LocalObjectPtr> dropHolder(const Peer& holder) EXCLUDES(mLock);
    /** Forgets an object whose queue has run dry and that nobody holds any more. */
    [[nodiscard]] LocalObjectPtr settle(LocalObject& object) EXCLUDES(mLock);

    /** The object that everyone may call without having been given it; null for none again. */
    void setContextManager(const sp<BBinder>& binder) EXCLUDES(mLock);
    [[nodiscard]] sp<BBinder> contextManager() const EXCLUDES(mLock);

private:
    [[nodiscard]] static bool count(LocalObject& object, const Peer& holder, Account& payer);
    [[nodiscard]] LocalObjectPtr dropIfUnusedLocked(LocalObject& object) REQUIRES(mLock);

    mutable Mutex mLock;
    std::unordered_map<uint64_t, LocalObjectPtr> mById GUARDED_BY(mLock);
    std::unordered_map<const BBinder*, LocalObject*> mByBinder GUARDED_BY(mLock);
};

/** What a proxy needs of its transport. */
class ProxyHost {
public:
    /** Calls the object behind `proxy`: BpBinder::transact for a proxy that is alive. */
    [[nodiscard]] virtual status_t transact(BpBinder& proxy, uint32_t code, const Parcel& data,
                                            Parcel* reply, uint32_t flags) = 0;
    /** Called by the proxy's destructor: gives its references back. */
    virtual void forget(const BpBinder& proxy) = 0;

protected:
    ~ProxyHost() = default;
};

/** The proxies of this process, found by owner and number; it holds none of them. */
class RemoteObjects {
public:
    explicit RemoteObjects(ProxyHost& host) : mHost(host) {}

    /**
     * The proxy of an object, made if there is none. `credits` are the references that came with
     * it. Null when the owner's user may have no more proxies here.
     */
    [[nodiscard]] sp<BpBinder> take(const PeerPtr& owner, uint64_t id, uint64_t credits)
            EXCLUDES(mLock);
    /** A proxy that never reached its object. */
    [[nodiscard]] sp<BpBinder> makeDead(uint64_t id);
    /** Forgets a proxy that is being destroyed; returns its references. */
    [[nodiscard]] uint64_t forget(const BpBinder& proxy) EXCLUDES(mLock);
    [[nodiscard]] std::vector<sp<BpBinder>> allOf(const Peer& owner) const EXCLUDES(mLock);

private:
    struct Entry {
        wp<BpBinder> weak;
        const BpBinder* raw = nullptr;  // only compared
        Charge charge;
    };
    using Key = std::pair<const Peer*, uint64_t>;

    ProxyHost& mHost;
    mutable Mutex mLock;
    std::map<Key, Entry> mEntries GUARDED_BY(mLock);
};

}  // namespace android::transport
