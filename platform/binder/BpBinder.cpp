#define LOG_TAG "BpBinder"

#include <binder/BpBinder.h>
#include <binder/IPCThreadState.h>
#include <binder/Parcel.h>
#include <log/log.h>

#include <algorithm>

#include "transport/peers/References.h"

namespace android {

BpBinder::BpBinder(transport::ProxyHost& host, std::shared_ptr<transport::Peer> owner, uint64_t id,
                   bool alive)
        : mHost(host), mOwner(std::move(owner)), mId(id), mAlive(alive) {}

BpBinder::~BpBinder() {
    if (mOwner != nullptr) mHost.forget(*this);
}

const String16& BpBinder::getInterfaceDescriptor() const {
    {
        Mutex::Autolock lock(mLock);
        if (mHasDescriptor) return mDescriptor;
    }
    static const String16 sNone;
    Parcel data;
    Parcel reply;
    // The call changes nothing in the proxy that a holder could see.
    const status_t status =
            const_cast<BpBinder*>(this)->transact(INTERFACE_TRANSACTION, data, &reply, 0);
    if (status != OK) return sNone;
    const String16 descriptor = reply.readString16();
    Mutex::Autolock lock(mLock);
    if (!mHasDescriptor) {
        mDescriptor = descriptor;
        mHasDescriptor = true;
    }
    return mDescriptor;
}

bool BpBinder::isBinderAlive() const {
    // The driver may not have come to the end of a process that has exited already.
    return isKnownAlive() && !mOwner->hasHungUp();
}

bool BpBinder::isKnownAlive() const {
    // Test the peer too: the driver marks its proxies one by one, but after a caller has seen the
    // death of one, all must be dead.
    return mAlive.load(std::memory_order_acquire) && !mOwner->isDead();
}

status_t BpBinder::pingBinder() {
    Parcel data;
    Parcel reply;
    return transact(PING_TRANSACTION, data, &reply, 0);
}

status_t BpBinder::dump(int fd, const Vector<String16>& args) {
    Parcel data;
    Parcel reply;
    if (const status_t status = data.writeFileDescriptor(fd); status != OK) return status;
    data.writeInt32(static_cast<int32_t>(args.size()));
    for (const String16& arg : args)
        data.writeString16(arg);
    if (data.errorCheck() != OK) return data.errorCheck();
    return transact(DUMP_TRANSACTION, data, &reply, 0);
}

status_t BpBinder::transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    if (!isKnownAlive()) return DEAD_OBJECT;
    const status_t status = mHost.transact(*this, code, data, reply, flags);
    if (status != OK && reply != nullptr && (flags & FLAG_ONEWAY) == 0) {
        reply->freeData();
        reply->setError(status);
    }
    return status;
}

status_t BpBinder::linkToDeath(const sp<DeathRecipient>& recipient, void* cookie, uint32_t flags) {
    if (recipient == nullptr) return BAD_VALUE;
    Mutex::Autolock lock(mLock);
    // Under the lock: whoever marks the proxy dead takes the links under it afterwards.
    if (!isKnownAlive()) return DEAD_OBJECT;
    mLinks.push_back({recipient, cookie, flags});
    return OK;
}

status_t BpBinder::unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie, uint32_t flags,
                                 wp<DeathRecipient>* outRecipient) {
    Mutex::Autolock lock(mLock);
    if (!isKnownAlive()) return DEAD_OBJECT;
    const auto link = std::find_if(mLinks.begin(), mLinks.end(), [&](const DeathLink& candidate) {
        if (recipient != nullptr) {
            return candidate.recipient == recipient && candidate.flags == flags;
        }
        return candidate.cookie == cookie && candidate.flags == flags;
    });
    if (link == mLinks.end()) return NAME_NOT_FOUND;
    if (outRecipient != nullptr) *outRecipient = link->recipient;
    mLinks.erase(link);
    return OK;
}

bool BpBinder::markDead() {
    Mutex::Autolock lock(mLock);
    mAlive.store(false, std::memory_order_release);
    return !mLinks.empty();
}

void BpBinder::sendObituary() {
    std::vector<DeathLink> links;
    {
        Mutex::Autolock lock(mLock);
        links.swap(mLinks);
    }
    for (const DeathLink& link : links) {
        if (const sp<DeathRecipient> recipient = link.recipient.promote(); recipient != nullptr) {
            recipient->binderDied(this);
        }
    }
}

void* BpBinder::attachObject(const void* objectId, void* object, void* cleanupCookie,
                             object_cleanup_func func) {
    return mAttached.attach(objectId, object, cleanupCookie, func);
}

void* BpBinder::findObject(const void* objectId) const {
    return mAttached.find(objectId);
}

void* BpBinder::detachObject(const void* objectId) {
    return mAttached.detach(objectId);
}

BpBinder* BpBinder::remoteBinder() {
    return this;
}

}  // namespace android
