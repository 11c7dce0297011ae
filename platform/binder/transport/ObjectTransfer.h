#pragma once

#include <binder/Parcel.h>

#include <memory>
#include <vector>

#include "Connection.h"
#include "Gate.h"

namespace android::transport {

/** A parcel's objects in the form in which they travel, and what must outlive the travel. */
struct OutgoingObjects {
    std::vector<WireObject> objects;
    std::vector<int> descriptors;
    /**
     * Proxies among the objects. Their owner knows of the receiver's reference only later, so this
     * process has to keep its own until then.
     */
    std::vector<sp<IBinder>> foreign;
};

/**
 * Prepares `parcel` for `receiver`: sizes, objects, descriptors. Objects of this process are
 * counted for the receiver; takeBack undoes that when the frame does not leave. FAILED_TRANSACTION
 * over a limit, DEAD_OBJECT for a dead receiver, else an error of the parcel's.
 */
[[nodiscard]] status_t prepareObjects(const Parcel& parcel, const std::shared_ptr<Peer>& receiver,
                                      OutgoingObjects* outObjects);
void takeBack(const OutgoingObjects& objects, Peer& receiver);

/** Fills the frame's fields and pointers from a parcel and its prepared objects. */
void fillFrame(const Parcel& parcel, const OutgoingObjects& objects, OutFrame* outFrame);

/**
 * Turns a received frame's objects into binders and descriptors of this process. A reference that a
 * third process owns is asked for there; `gate` waits for the answers. FAILED_TRANSACTION when
 * descriptors were lost.
 */
[[nodiscard]] status_t acceptObjects(Frame* frame, const std::shared_ptr<Peer>& sender,
                                     const std::shared_ptr<Gate>& gate,
                                     std::vector<ParcelObject>* outObjects);

/** True when some object belongs neither to this process nor to the sender. */
[[nodiscard]] bool hasForeignObjects(const Frame& frame, const Peer& sender);

/** Makes the parcel refer to the frame's bytes. */
[[nodiscard]] status_t fillParcel(const Frame& frame, std::vector<ParcelObject> objects,
                                  Parcel* outParcel);

}  // namespace android::transport
