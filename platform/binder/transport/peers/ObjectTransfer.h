#pragma once

#include <binder/Parcel.h>

#include <functional>
#include <vector>

#include "References.h"

namespace android::transport {

/** A parcel's objects in the form in which they travel. */
struct OutgoingObjects {
    std::vector<WireObject> objects;
    std::vector<int> descriptors;
};

/** Turns parcels into frames and frames into parcels: binders, descriptors, bytes. Thread-safe. */
class ObjectTransfer {
public:
    /** `listen` makes this process reachable, before an object of it leaves. */
    ObjectTransfer(const ProcessId& self, LocalObjects& locals, RemoteObjects& remotes,
                   Peers& peers, std::function<status_t()> listen)
            : mSelf(self),
              mLocals(locals),
              mRemotes(remotes),
              mPeers(peers),
              mListen(std::move(listen)) {}

    /**
     * Prepares `parcel` for `receiver`: sizes, objects, descriptors. References are counted for the
     * receiver; takeBack undoes that when the frame does not leave. FAILED_TRANSACTION over a
     * limit, DEAD_OBJECT for a dead receiver, else an error of the parcel's.
     */
    [[nodiscard]] status_t prepare(const Parcel& parcel, const Peer& receiver,
                                   OutgoingObjects* outObjects);
    void takeBack(const OutgoingObjects& objects, const Peer& receiver);

    /** Fills the frame's fields and pointers from a parcel and its prepared objects. */
    static void fillFrame(const Parcel& parcel, const OutgoingObjects& objects, OutFrame* outFrame);

    /**
     * Turns a received frame's objects into binders and descriptors of this process. Only a thread
     * that may `wait`, as it waits for the sender anyway, gives the owners of references time to
     * accept a connection.
     * FAILED_TRANSACTION for a refused frame and for more objects than the sender's user may have.
     */
    [[nodiscard]] status_t accept(Frame* frame, const PeerPtr& sender, bool wait,
                                  std::vector<ParcelObject>* outObjects);

    /** Makes the parcel refer to the frame's bytes. */
    [[nodiscard]] static status_t fillParcel(const Frame& frame, std::vector<ParcelObject> objects,
                                             Parcel* outParcel);

private:
    [[nodiscard]] status_t prepareBinder(const sp<IBinder>& binder, const Peer& receiver,
                                         WireObject* outObject);
    [[nodiscard]] sp<IBinder> acceptBinder(const WireObject& object, const PeerPtr& sender,
                                           bool wait, int* newOwners);

    const ProcessId& mSelf;
    LocalObjects& mLocals;
    RemoteObjects& mRemotes;
    Peers& mPeers;
    const std::function<status_t()> mListen;
};

}  // namespace android::transport
