#pragma once

#include <binder/BpBinder.h>
#include <binder/Parcel.h>
#include <utils/Mutex.h>

#include <deque>
#include <map>
#include <memory>
#include <unordered_map>
#include <vector>

#include "FrameInput.h"

namespace android::transport {

class Connection;
class Peer;

/** A one-way call that has been received and waits for its object. */
struct OneWayCall {
    Frame frame;
    std::shared_ptr<Connection> from;
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

    // References by holder; guarded by LocalObjects' lock.
    std::map<const Peer*, uint64_t> holders;

    Mutex queueLock;
    std::deque<OneWayCall> queue GUARDED_BY(queueLock);
    bool running GUARDED_BY(queueLock) = false;  // some thread owns the front of the queue
};

using LocalObjectPtr = std::shared_ptr<LocalObject>;

/**
 * The objects of this process that have left it.
 *
 * The owner counts a holder's references; it counts them before it sends them, so that a reference
 * is never on its way uncounted. A holder gives back what it received, in one RELEASE, when its
 * proxy goes; what a dead holder had goes with it.
 *
 * Functions that may drop the last reference return it, and the caller lets it go where the
 * object's destructor may run.
 */
class LocalObjects {
public:
    /** Counts one reference of `holder` on `binder`. Null when the holder is dead. */
    [[nodiscard]] LocalObjectPtr publish(const sp<BBinder>& binder, const Peer& holder)
            EXCLUDES(mLock);
    [[nodiscard]] LocalObjectPtr find(uint64_t id) const EXCLUDES(mLock);
    /** Counts one more reference of `holder`; false when there is no such object. */
    [[nodiscard]] bool acquire(uint64_t id, const Peer& holder) EXCLUDES(mLock);
    [[nodiscard]] LocalObjectPtr release(uint64_t id, const Peer& holder, uint64_t count)
            EXCLUDES(mLock);
    [[nodiscard]] std::vector<LocalObjectPtr> dropHolder(const Peer& holder) EXCLUDES(mLock);
    /** Forgets an object whose queue has run dry and that nobody holds any more. */
    [[nodiscard]] LocalObjectPtr settle(LocalObject& object) EXCLUDES(mLock);

    /** The object that everyone may call without having been given it; null for none again. */
    void setContextManager(const sp<BBinder>& binder) EXCLUDES(mLock);
    [[nodiscard]] sp<BBinder> contextManager() const EXCLUDES(mLock);

private:
    [[nodiscard]] LocalObjectPtr dropIfUnusedLocked(LocalObject& object) REQUIRES(mLock);

    mutable Mutex mLock;
    std::unordered_map<uint64_t, LocalObjectPtr> mById GUARDED_BY(mLock);
    std::unordered_map<const BBinder*, LocalObject*> mByBinder GUARDED_BY(mLock);
};

/** The proxies of this process, found by owner and number; it holds none of them. */
class RemoteObjects {
public:
    /**
     * The proxy of an object, made if there is none. `credits` are the references that came with
     * it. `outIsNew`, when given, tells that a proxy was made, which then is taken to have one
     * credit that the caller gets from the owner by ACQUIRE.
     */
    [[nodiscard]] sp<BpBinder> take(const std::shared_ptr<Peer>& owner, uint64_t id,
                                    uint64_t credits, bool* outIsNew = nullptr) EXCLUDES(mLock);
    /** The proxy, if there is one. */
    [[nodiscard]] sp<BpBinder> find(const Peer& owner, uint64_t id) const EXCLUDES(mLock);
    /** A proxy that never reached its object. */
    [[nodiscard]] static sp<BpBinder> makeDead(uint64_t id);
    /** Called by the proxy's destructor: gives its references back. */
    void forget(const BpBinder* proxy) EXCLUDES(mLock);
    [[nodiscard]] std::vector<sp<BpBinder>> allOf(const Peer& owner) const EXCLUDES(mLock);

private:
    struct Entry {
        wp<BpBinder> weak;
        const BpBinder* raw;  // only compared
    };
    using Key = std::pair<const Peer*, uint64_t>;

    mutable Mutex mLock;
    std::map<Key, Entry> mEntries GUARDED_BY(mLock);
};

}  // namespace android::transport
