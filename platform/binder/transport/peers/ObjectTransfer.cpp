#define LOG_TAG "BinderTransport"

#include "ObjectTransfer.h"

#include <log/log.h>

namespace android::transport {

namespace {

/** A stranger who sends references of more unknown processes than this at once invents them. */
constexpr int kMaxNewOwners = 16;

}  // namespace

status_t ObjectTransfer::prepareBinder(const sp<IBinder>& binder, const Peer& receiver,
                                       WireObject* outObject) {
    outObject->kind = ObjectKind::BINDER;
    if (BBinder* const local = binder->localBinder(); local != nullptr) {
        if (mListen() != OK) return FAILED_TRANSACTION;
        const LocalObjectPtr object = mLocals.publish(local, receiver);
        if (object == nullptr) return receiver.isDead() ? DEAD_OBJECT : FAILED_TRANSACTION;
        outObject->id = object->id;
        outObject->owner = mSelf;
        return OK;
    }
    BpBinder* const remote = binder->remoteBinder();
    if (remote == nullptr) return BAD_TYPE;
    outObject->id = remote->id();
    const PeerPtr& owner = remote->owner();
    if (owner == nullptr) return OK;  // was dead when it came; its name leads nowhere either
    outObject->owner = owner->id;
    if (owner.get() != &receiver && remote->id() != kContextManagerId) {
        owner->grant(remote->id(), receiver.id, /*sent*/ true);
    }
    return OK;
}

status_t ObjectTransfer::prepare(const Parcel& parcel, const Peer& receiver,
                                 OutgoingObjects* outObjects) {
    if (parcel.errorCheck() != OK) return parcel.errorCheck();
    if (parcel.ipcDataSize() > kMaxTransactionSize || parcel.ipcObjects().size() > kMaxObjects) {
        ALOGE("A parcel of %zu bytes and %zu objects for process %d exceeds the limit of %zu and "
              "%zu",
              parcel.ipcDataSize(), parcel.ipcObjects().size(), receiver.pid(), kMaxTransactionSize,
              kMaxObjects);
        return FAILED_TRANSACTION;
    }
    status_t status = OK;
    for (const ParcelObject& object : parcel.ipcObjects()) {
        WireObject wire = {};
        wire.position = static_cast<uint32_t>(object.position);
        if (object.fd != nullptr) {
            wire.kind = ObjectKind::DESCRIPTOR;
            outObjects->descriptors.push_back(object.fd->get());
            if (outObjects->descriptors.size() > kMaxDescriptors) status = FAILED_TRANSACTION;
        } else {
            status = prepareBinder(object.binder, receiver, &wire);
        }
        if (status != OK) {
            takeBack(*outObjects, receiver);
            return status;
        }
        outObjects->objects.push_back(wire);
    }
    return OK;
}

void ObjectTransfer::takeBack(const OutgoingObjects& objects, const Peer& receiver) {
    for (const WireObject& object : objects.objects) {
        if (object.kind != ObjectKind::BINDER || object.owner == receiver.id) continue;
        if (object.owner == mSelf) {
            // The sender's parcel still holds the object, so this is not its last reference.
            (void)mLocals.release(object.id, receiver, 1);
        } else if (const PeerPtr owner = mPeers.find(object.owner)) {
            owner->grant(object.id, receiver.id, /*sent*/ false);
        }
    }
}

void ObjectTransfer::fillFrame(const Parcel& parcel, const OutgoingObjects& objects,
                               OutFrame* outFrame) {
    outFrame->header.dataSize = static_cast<uint32_t>(parcel.ipcDataSize());
    outFrame->data = parcel.ipcData();
    if (objects.objects.empty()) return;
    outFrame->header.objectCount = static_cast<uint32_t>(objects.objects.size());
    outFrame->objects = &objects.objects;
    if (objects.descriptors.empty()) return;
    outFrame->header.descriptorCount = static_cast<uint16_t>(objects.descriptors.size());
    outFrame->descriptors = &objects.descriptors;
}

sp<IBinder> ObjectTransfer::acceptBinder(const WireObject& object, const PeerPtr& sender, bool wait,
                                         int* newOwners) {
    if (object.owner == mSelf) {
        const LocalObjectPtr local = mLocals.find(object.id);
        if (local != nullptr) return local->binder;
        return mRemotes.makeDead(object.id);
    }
    if (object.owner == sender->id) return mRemotes.take(sender, object.id, /*credits*/ 1);
    if (!sender->account.isTrusted && mPeers.find(object.owner) == nullptr &&
        ++*newOwners > kMaxNewOwners) {
        sender->account.shutOut();
        sender->endLinks();
        return nullptr;
    }
    const PeerPtr owner = mPeers.reach(object.owner, wait);
    if (owner == nullptr) return mRemotes.makeDead(object.id);
    if (object.id == kContextManagerId) return mRemotes.take(owner, object.id, /*credits*/ 0);
    owner->claim(object.id, sender->id);
    return mRemotes.take(owner, object.id, /*credits*/ 1);
}

status_t ObjectTransfer::accept(Frame* frame, const PeerPtr& sender, bool wait,
                                std::vector<ParcelObject>* outObjects) {
    if (frame->refused) return FAILED_TRANSACTION;
    outObjects->reserve(frame->header.objectCount);
    size_t nextDescriptor = 0;
    int newOwners = 0;
    for (uint32_t i = 0; i < frame->header.objectCount; ++i) {
        const WireObject& wire = frame->objects[i];
        ParcelObject object;
        object.position = wire.position;
        if (wire.kind == ObjectKind::BINDER) {
            object.binder = acceptBinder(wire, sender, wait, &newOwners);
            if (object.binder == nullptr) return FAILED_TRANSACTION;
        } else {
            object.fd = std::make_shared<base::unique_fd>(
                    std::move(frame->descriptors[nextDescriptor++]));
        }
        outObjects->push_back(std::move(object));
    }
    return OK;
}

status_t ObjectTransfer::fillParcel(const Frame& frame, std::vector<ParcelObject> objects,
                                    Parcel* outParcel) {
    BlockRef held = frame.block;
    Block* const block = held.release();
    return outParcel->ipcSetDataReference(
            frame.data, frame.header.dataSize, std::move(objects),
            [](const uint8_t*, size_t, void* cookie) { static_cast<Block*>(cookie)->unref(); },
            block);
}

}  // namespace android::transport
