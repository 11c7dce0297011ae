#pragma once

#include <binder/BpBinder.h>
#include <binder/Parcel.h>

#include <memory>

#include "Connection.h"

namespace android::transport {

/**
 * A call that this thread is serving; on the stack of the serving function, linked from the
 * thread's IPCThreadState. While it lasts, the caller waits on the connection, so a call back into
 * that process goes over the same connection and is served by the thread that waits.
 */
struct ServedCall {
    Connection* connection;  // null for a one-way call: nobody waits
    const Peer* caller;
    const ServedCall* outer;
};

/** Calls the object behind `proxy`: BpBinder::transact without its bookkeeping. */
[[nodiscard]] status_t transact(BpBinder& proxy, uint32_t code, const Parcel& data, Parcel* reply,
                                uint32_t flags);

/**
 * Serves one received REQUEST on this thread and sends the reply. `waits`: the reply may be waited
 * for (this thread belongs to the connection anyway); else a reply that the peer does not take is
 * left to the driver. QUEUED: the driver has it. GONE: drop the connection.
 */
[[nodiscard]] Connection::Posted serveRequest(const std::shared_ptr<Connection>& connection,
                                              Frame* frame, bool waits);

/** Runs one received one-way call on this thread. */
void serveOneWay(BBinder& object, const FrameHeader& header, const Connection& connection,
                 const Parcel& data);

/** Takes in the objects of a REPLY or ONE_WAY frame, and sends the receipt that it asks for. */
[[nodiscard]] status_t acceptWithReceipt(Frame* frame, const std::shared_ptr<Peer>& sender,
                                         std::vector<ParcelObject>* outObjects);

}  // namespace android::transport
