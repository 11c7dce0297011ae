#define LOG_TAG "BinderTransport"

#include "ObjectTransfer.h"

#include <log/log.h>

#include "Transport.h"

namespace android::transport {

namespace {

status_t prepareBinder(const sp<IBinder>& binder, const std::shared_ptr<Peer>& receiver,
                       OutgoingObjects* outObjects, WireObject* outObject) {
    Transport& transport = Transport::get();
    outObject->kind = ObjectKind::BINDER;
    if (BBinder* const local = binder->localBinder(); local != nullptr) {
        if (const status_t status = transport.ensureListening(); status != OK) {
            return FAILED_TRANSACTION;
        }
        const LocalObjectPtr object = transport.locals().publish(local, *receiver);
        if (object == nullptr) return DEAD_OBJECT;
        outObject->id = object->id;
        outObject->owner = transport.self();
        return OK;
    }
    BpBinder* const remote = binder->remoteBinder();
    if (remote == nullptr) return BAD_TYPE;
    outObject->id = remote->id();
    // A proxy without an owner was dead when it came; its name leads nowhere either.
    outObject->owner = remote->owner() == nullptr ? ProcessName{} : remote->owner()->name;
    outObjects->foreign.push_back(binder);
    return OK;
}

sp<IBinder> acceptBinder(const WireObject& object, const std::shared_ptr<Peer>& sender,
                         const std::shared_ptr<Gate>& gate) {
    Transport& transport = Transport::get();
    if (object.owner == transport.self()) {
        const LocalObjectPtr local = transport.locals().find(object.id);
        if (local != nullptr) return local->binder;
        return RemoteObjects::makeDead(object.id);
    }
    if (object.owner == sender->name) {
        return transport.remotes().take(sender, object.id, /*credits*/ 1);
    }
    const PeerPtr owner = transport.peers().reach(object.owner);
    if (owner == nullptr) return RemoteObjects::makeDead(object.id);
    bool isNew = false;
    sp<BpBinder> proxy = transport.remotes().take(owner, object.id, /*credits*/ 0, &isNew);
    if (isNew && object.id != kContextManagerId) {
        gate->add();
        owner->acquireObject(object.id, gate);
    }
    return proxy;
}

}  // namespace

status_t prepareObjects(const Parcel& parcel, const std::shared_ptr<Peer>& receiver,
                        OutgoingObjects* outObjects) {
    if (parcel.errorCheck() != OK) return parcel.errorCheck();
    if (parcel.ipcDataSize() > kMaxTransactionSize) {
        ALOGE("A parcel of %zu bytes for process %d exceeds the limit of %zu", parcel.ipcDataSize(),
              receiver->pid, kMaxTransactionSize);
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
            status = prepareBinder(object.binder, receiver, outObjects, &wire);
        }
        if (status != OK) {
            takeBack(*outObjects, *receiver);
            return status;
        }
        outObjects->objects.push_back(wire);
    }
    return OK;
}

void takeBack(const OutgoingObjects& objects, Peer& receiver) {
    Transport& transport = Transport::get();
    for (const WireObject& object : objects.objects) {
        if (object.kind != ObjectKind::BINDER || !(object.owner == transport.self())) continue;
        // The sender's parcel still holds the object, so this is not its last reference.
        (void)transport.locals().release(object.id, receiver, 1);
    }
}

void fillFrame(const Parcel& parcel, const OutgoingObjects& objects, OutFrame* outFrame) {
    outFrame->header.dataSize = static_cast<uint32_t>(parcel.ipcDataSize());
    outFrame->data = parcel.ipcData();
    if (objects.objects.empty()) return;
    outFrame->header.objectCount = static_cast<uint32_t>(objects.objects.size());
    outFrame->objects = &objects.objects;
    if (objects.descriptors.empty()) return;
    outFrame->header.descriptorCount = static_cast<uint16_t>(objects.descriptors.size());
    outFrame->descriptors = &objects.descriptors;
}

status_t acceptObjects(Frame* frame, const std::shared_ptr<Peer>& sender,
                       const std::shared_ptr<Gate>& gate, std::vector<ParcelObject>* outObjects) {
    const uint32_t count = frame->header.objectCount;
    if (count == 0) return OK;
    outObjects->reserve(count);
    size_t nextDescriptor = 0;
    for (uint32_t i = 0; i < count; ++i) {
        const WireObject& wire = frame->objects[i];
        ParcelObject object;
        object.position = wire.position;
        if (wire.kind == ObjectKind::BINDER) {
            // Also when the frame fails below: its references have been counted for this process.
            object.binder = acceptBinder(wire, sender, gate);
        } else if (!frame->descriptorsLost) {
            object.fd = std::make_shared<base::unique_fd>(
                    std::move(frame->descriptors[nextDescriptor++]));
        }
        outObjects->push_back(std::move(object));
    }
    if (!frame->descriptorsLost) return OK;
    ALOGE("Descriptors from process %d were lost: no room in this process", sender->pid);
    outObjects->clear();
    return FAILED_TRANSACTION;
}

bool hasForeignObjects(const Frame& frame, const Peer& sender) {
    for (uint32_t i = 0; i < frame.header.objectCount; ++i) {
        const WireObject& object = frame.objects[i];
        if (object.kind == ObjectKind::BINDER && !(object.owner == sender.name) &&
            !(object.owner == Transport::get().self())) {
            return true;
        }
    }
    return false;
}

status_t fillParcel(const Frame& frame, std::vector<ParcelObject> objects, Parcel* outParcel) {
    BlockRef held = frame.block;
    Block* const block = held.release();
    return outParcel->ipcSetDataReference(
            frame.data, frame.header.dataSize, std::move(objects),
            [](const uint8_t*, size_t, void* cookie) { static_cast<Block*>(cookie)->unref(); },
            block);
}

}  // namespace android::transport
