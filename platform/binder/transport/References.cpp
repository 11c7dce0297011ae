#include "References.h"

#include "Peer.h"

namespace android::transport {

LocalObjectPtr LocalObjects::publish(const sp<BBinder>& binder, const Peer& holder) {
    Mutex::Autolock lock(mLock);
    // Under the lock: dropHolder comes after the mark and takes what was counted before it.
    if (holder.isDead()) return nullptr;
    LocalObjectPtr object;
    if (const auto known = mByBinder.find(binder.get()); known != mByBinder.end()) {
        object = mById.at(known->second->id);
    } else {
        uint64_t id;
        do {
            fillRandom(&id, sizeof(id));
        } while (id == kContextManagerId || mById.count(id) != 0);
        object = std::make_shared<LocalObject>(id, binder);
        mById[id] = object;
        mByBinder[binder.get()] = object.get();
    }
    ++object->holders[&holder];
    return object;
}

LocalObjectPtr LocalObjects::find(uint64_t id) const {
    Mutex::Autolock lock(mLock);
    const auto object = mById.find(id);
    return object == mById.end() ? nullptr : object->second;
}

bool LocalObjects::acquire(uint64_t id, const Peer& holder) {
    Mutex::Autolock lock(mLock);
    const auto object = mById.find(id);
    if (object == mById.end() || holder.isDead()) return false;
    ++object->second->holders[&holder];
    return true;
}

LocalObjectPtr LocalObjects::dropIfUnusedLocked(LocalObject& object) {
    if (!object.holders.empty() || object.id == kContextManagerId) return nullptr;
    {
        // While calls wait the object keeps its place, so that a new holder's calls queue behind.
        Mutex::Autolock queueLock(object.queueLock);
        if (object.running) return nullptr;
    }
    const auto entry = mById.find(object.id);
    if (entry == mById.end()) return nullptr;
    LocalObjectPtr last = std::move(entry->second);
    mById.erase(entry);
    mByBinder.erase(object.binder.get());
    return last;
}

LocalObjectPtr LocalObjects::release(uint64_t id, const Peer& holder, uint64_t count) {
    Mutex::Autolock lock(mLock);
    const auto object = mById.find(id);
    if (object == mById.end()) return nullptr;
    auto& holders = object->second->holders;
    const auto held = holders.find(&holder);
    if (held == holders.end()) return nullptr;
    // A peer that gives back more than it has loses only its own references.
    if (held->second > count) {
        held->second -= count;
        return nullptr;
    }
    holders.erase(held);
    return dropIfUnusedLocked(*object->second);
}

std::vector<LocalObjectPtr> LocalObjects::dropHolder(const Peer& holder) {
    std::vector<LocalObjectPtr> last;
    Mutex::Autolock lock(mLock);
    std::vector<LocalObjectPtr> held;
    for (const auto& [id, object] : mById) {
        if (object->holders.erase(&holder) != 0) held.push_back(object);
    }
    for (const LocalObjectPtr& object : held) {
        if (LocalObjectPtr dropped = dropIfUnusedLocked(*object)) {
            last.push_back(std::move(dropped));
        }
    }
    return last;
}

LocalObjectPtr LocalObjects::settle(LocalObject& object) {
    Mutex::Autolock lock(mLock);
    return dropIfUnusedLocked(object);
}

void LocalObjects::setContextManager(const sp<BBinder>& binder) {
    Mutex::Autolock lock(mLock);
    if (binder == nullptr) {
        if (const auto entry = mById.find(kContextManagerId); entry != mById.end()) {
            mByBinder.erase(entry->second->binder.get());
            mById.erase(entry);
        }
        return;
    }
    const auto object = std::make_shared<LocalObject>(kContextManagerId, binder);
    mById[kContextManagerId] = object;
    mByBinder[binder.get()] = object.get();
}

sp<BBinder> LocalObjects::contextManager() const {
    const LocalObjectPtr object = find(kContextManagerId);
    return object == nullptr ? nullptr : object->binder;
}

sp<BpBinder> RemoteObjects::take(const std::shared_ptr<Peer>& owner, uint64_t id, uint64_t credits,
                                 bool* outIsNew) {
    Mutex::Autolock lock(mLock);
    Entry& entry = mEntries[Key(owner.get(), id)];
    sp<BpBinder> proxy = entry.weak.promote();
    const bool isNew = proxy == nullptr;
    if (isNew) {
        // An entry whose proxy is just going is taken over; forget() then leaves it alone.
        proxy = new BpBinder(owner, id, !owner->isDead());
        entry = {proxy, proxy.get()};
        if (outIsNew != nullptr) credits = 1;
    }
    proxy->mCredits += credits;
    if (outIsNew != nullptr) *outIsNew = isNew;
    return proxy;
}

sp<BpBinder> RemoteObjects::find(const Peer& owner, uint64_t id) const {
    Mutex::Autolock lock(mLock);
    const auto entry = mEntries.find(Key(&owner, id));
    return entry == mEntries.end() ? nullptr : entry->second.weak.promote();
}

sp<BpBinder> RemoteObjects::makeDead(uint64_t id) {
    return new BpBinder(nullptr, id, false);
}

void RemoteObjects::forget(const BpBinder* proxy) {
    const std::shared_ptr<Peer>& owner = proxy->owner();
    if (owner == nullptr) return;
    uint64_t credits;
    {
        Mutex::Autolock lock(mLock);
        credits = proxy->mCredits;
        const auto entry = mEntries.find(Key(owner.get(), proxy->id()));
        if (entry != mEntries.end() && entry->second.raw == proxy) mEntries.erase(entry);
    }
    if (credits == 0 || proxy->id() == kContextManagerId) return;
    owner->releaseObject(proxy->id(), credits);
}

std::vector<sp<BpBinder>> RemoteObjects::allOf(const Peer& owner) const {
    std::vector<sp<BpBinder>> proxies;
    Mutex::Autolock lock(mLock);
    for (auto entry = mEntries.lower_bound(Key(&owner, 0));
         entry != mEntries.end() && entry->first.first == &owner; ++entry) {
        if (sp<BpBinder> proxy = entry->second.weak.promote(); proxy != nullptr) {
            proxies.push_back(std::move(proxy));
        }
    }
    return proxies;
}

}  // namespace android::transport
