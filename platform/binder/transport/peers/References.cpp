#include "References.h"

#include <iterator>

namespace android::transport {

bool LocalObjects::count(LocalObject& object, const Peer& holder, Account& payer) {
    // Under the lock of the table: dropHolder() runs after markDead() and removes everything that
    // was counted before.
    if (holder.isDead()) return false;
    LocalObject::Holding& holding = object.holders[&holder];
    if (holding.count == 0 && !holding.charge.take(payer, Resource::REFERENCES, 1)) {
        object.holders.erase(&holder);
        return false;
    }
    ++holding.count;
    return true;
}

LocalObjectPtr LocalObjects::publish(const sp<BBinder>& binder, const Peer& holder) {
    Mutex::Autolock lock(mLock);
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
    if (!count(*object, holder, holder.account)) {
        // The sender's parcel still holds the object, so this is not its last reference.
        (void)dropIfUnusedLocked(*object);
        return nullptr;
    }
    return object;
}

LocalObjectPtr LocalObjects::find(uint64_t id) const {
    Mutex::Autolock lock(mLock);
    const auto object = mById.find(id);
    return object == mById.end() ? nullptr : object->second;
}

LocalObjectPtr LocalObjects::grant(uint64_t id, const ProcessId& giver, const Peer& receiver,
                                   int change, Account& payer) {
    Mutex::Autolock lock(mLock);
    const auto object = mById.find(id);
    if (object == mById.end() || receiver.isDead()) return nullptr;
    auto& transfers = object->second->transfers;
    const auto key = std::make_pair(giver, receiver.id);
    LocalObject::Transfer& transfer = transfers[key];
    if (transfer.count == 0 && !transfer.charge.take(payer, Resource::REFERENCES, 1)) {
        transfers.erase(key);
        return nullptr;
    }
    transfer.count += change;
    if (transfer.count == 0) transfers.erase(key);
    return dropIfUnusedLocked(*object->second);
}

void LocalObjects::claim(uint64_t id, const ProcessId& giver, bool announces, const Peer& holder) {
    Mutex::Autolock lock(mLock);
    const auto object = mById.find(id);
    if (object == mById.end() || !count(*object->second, holder, holder.account)) return;
    auto& transfers = object->second->transfers;
    const auto key = std::make_pair(giver, holder.id);
    auto transfer = transfers.find(key);
    if (transfer == transfers.end()) {
        Charge charge;
        if (!announces || !charge.take(holder.account, Resource::REFERENCES, 1)) return;
        transfer = transfers.emplace(key, LocalObject::Transfer{}).first;
        transfer->second.charge = std::move(charge);
    }
    if (--transfer->second.count == 0) transfers.erase(transfer);
}

LocalObjectPtr LocalObjects::dropIfUnusedLocked(LocalObject& object) {
    if (!object.holders.empty() || object.id == kContextManagerId) return nullptr;
    for (const auto& [ways, transfer] : object.transfers) {
        if (transfer.count > 0) return nullptr;
    }
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
    if (held->second.count > count) {
        held->second.count -= count;
        return nullptr;
    }
    holders.erase(held);
    return dropIfUnusedLocked(*object->second);
}

std::vector<LocalObjectPtr> LocalObjects::dropHolder(const Peer& holder) {
    std::vector<LocalObjectPtr> held;
    Mutex::Autolock lock(mLock);
    for (const auto& [id, object] : mById) {
        bool changed = object->holders.erase(&holder) != 0;
        for (auto entry = object->transfers.begin(); entry != object->transfers.end();) {
            const auto& [giver, receiver] = entry->first;
            // It claims nothing any more, nor does what it has not announced yet come. A stranger
            // may have announced what it never sent.
            const bool over =
                    receiver == holder.id ||
                    (giver == holder.id && (entry->second.count < 0 || !holder.account.isTrusted));
            entry = over ? object->transfers.erase(entry) : std::next(entry);
            changed = changed || over;
        }
        if (changed) held.push_back(object);
    }
    std::vector<LocalObjectPtr> last;
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

sp<BpBinder> RemoteObjects::take(const PeerPtr& owner, uint64_t id, uint64_t credits) {
    Mutex::Autolock lock(mLock);
    const Key key(owner.get(), id);
    auto entry = mEntries.find(key);
    if (entry == mEntries.end()) {
        Charge charge;
        if (!charge.take(owner->account, Resource::REFERENCES, 1)) return nullptr;
        entry = mEntries.emplace(key, Entry{}).first;
        entry->second.charge = std::move(charge);
    }
    sp<BpBinder> proxy = entry->second.weak.promote();
    if (proxy == nullptr) {
        // An entry whose proxy is just going is taken over; forget() then leaves it alone.
        proxy = new BpBinder(mHost, owner, id, !owner->isDead());
        entry->second.weak = proxy;
        entry->second.raw = proxy.get();
    }
    proxy->mCredits += credits;
    return proxy;
}

sp<BpBinder> RemoteObjects::makeDead(uint64_t id) {
    return new BpBinder(mHost, nullptr, id, false);
}

uint64_t RemoteObjects::forget(const BpBinder& proxy) {
    Mutex::Autolock lock(mLock);
    const auto entry = mEntries.find(Key(proxy.owner().get(), proxy.id()));
    if (entry != mEntries.end() && entry->second.raw == &proxy) mEntries.erase(entry);
    return proxy.mCredits;
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
