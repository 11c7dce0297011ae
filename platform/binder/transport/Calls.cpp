#define LOG_TAG "BinderTransport"

#include "Calls.h"

#include <binder/IPCThreadState.h>
#include <errno.h>
#include <log/log.h>

#include "ObjectTransfer.h"
#include "Transport.h"

namespace android::transport {

namespace {

/** An owner that does not answer within this time is reported; the call goes on without it. */
constexpr nsecs_t kAcquireDeadline = s2ns(5);

/** Makes the thread a server of `connection`'s peer for its lifetime. */
class ServingScope {
public:
    ServingScope(Connection* waiting, const Peer& caller, pid_t pid, uid_t uid)
            : mThread(IPCThreadState::self()), mCall{waiting, &caller, mThread->servedCall()} {
        mOuter = mThread->enterCall(&mCall, pid, uid);
    }
    ~ServingScope() { mThread->leaveCall(mCall.outer, mOuter); }
    ServingScope(const ServingScope&) = delete;
    ServingScope& operator=(const ServingScope&) = delete;

private:
    IPCThreadState* const mThread;
    const ServedCall mCall;
    IPCThreadState::Identity mOuter;
};

/** The connection on which a thread of `owner` waits for this one, if there is one. */
Connection* findWaiting(const Peer& owner) {
    for (const ServedCall* call = IPCThreadState::self()->servedCall(); call != nullptr;
         call = call->outer) {
        if (call->caller == &owner && call->connection != nullptr) return call->connection;
    }
    return nullptr;
}

status_t takeReply(Frame* frame, const std::shared_ptr<Peer>& peer, Parcel* reply) {
    std::vector<ParcelObject> objects;
    const status_t status = acceptWithReceipt(frame, peer, &objects);
    if (frame->header.status != OK) return frame->header.status;
    if (status != OK || reply == nullptr) return status;
    return fillParcel(*frame, std::move(objects), reply);
}

/** Receives until the reply is there, serving what the peer calls meanwhile. */
status_t awaitReply(const std::shared_ptr<Connection>& shared, Parcel* reply) {
    Connection& connection = *shared;
    for (;;) {
        Frame frame;
        switch (connection.input().next(&frame)) {
            case FrameInput::Result::PARTIAL: {
                if (connection.receive() > 0) break;
                connection.end();
                return DEAD_OBJECT;
            }
            case FrameInput::Result::BROKEN:
                logNoFrame(connection);
                connection.end();
                return DEAD_OBJECT;
            case FrameInput::Result::FRAME:
                if (frame.header.type == FrameType::REPLY) {
                    return takeReply(&frame, connection.peer(), reply);
                }
                if (frame.header.type != FrameType::REQUEST) {
                    logNoFrame(connection);
                    connection.end();
                    return DEAD_OBJECT;
                }
                if (serveRequest(shared, &frame, /*waits*/ true) != Connection::Posted::SENT) {
                    connection.end();
                    return DEAD_OBJECT;
                }
                break;
        }
    }
}

/** Tells death from a mere broken connection, so that the proxies know before the caller does. */
void noteLostConnection(const std::shared_ptr<Peer>& peer) {
    if (!peer->isDead() && peer->confirmEnd()) Transport::get().driver().peerEnded(peer);
}

/** Sends a request and waits. False when nothing has left; then the connection is at rest still. */
bool exchange(const std::shared_ptr<Connection>& connection, const OutFrame& frame, Parcel* reply,
              status_t* outStatus) {
    connection->expect();
    *outStatus = connection->send(frame);
    if (*outStatus == FAILED_TRANSACTION) {
        connection->expectNothing();
        return false;
    }
    if (*outStatus == OK) {
        *outStatus = awaitReply(connection, reply);
    } else {
        connection->end();
    }
    return true;
}

/** A call whose `outSent` is false has not left this process. */
status_t callTwoWay(BpBinder& proxy, const OutFrame& frame, Parcel* reply, bool* outSent) {
    const std::shared_ptr<Peer>& peer = proxy.owner();
    Connection* const waiting = findWaiting(*peer);
    ConnectionPtr connection;
    status_t status = OK;
    if (waiting != nullptr) {
        connection = waiting->shared_from_this();
    } else {
        status = peer->borrowCall(&connection);
    }
    if (status == OK) *outSent = exchange(connection, frame, reply, &status);
    // DEAD_OBJECT may also be the remote method's own answer: the connection tells.
    const bool lost = status == DEAD_OBJECT && (connection == nullptr || connection->hasEnded(0));
    if (waiting == nullptr && connection != nullptr) {
        if (lost) {
            peer->dropConnection(connection);
        } else {
            peer->returnCall(std::move(connection));
        }
    }
    if (lost) noteLostConnection(peer);
    return status;
}

/** A call whose `outSent` is false has not left this process. */
status_t callOneWay(BpBinder& proxy, OutFrame* frame, OutgoingObjects* objects, bool* outSent) {
    const std::shared_ptr<Peer>& peer = proxy.owner();
    ConnectionPtr connection;
    if (const status_t status = peer->oneWayConnection(&connection); status != OK) return status;
    *outSent = true;
    if (!objects->foreign.empty()) frame->header.receipt = peer->pin(std::move(objects->foreign));
    switch (connection->post(*frame)) {
        case Connection::Posted::SENT:
            return OK;
        case Connection::Posted::QUEUED:
            Transport::get().driver().watchOutput(connection);
            return OK;
        case Connection::Posted::GONE:
            break;
    }
    (void)peer->unpin(frame->header.receipt);  // dropped here, where the parcel holds them too
    noteLostConnection(peer);
    return DEAD_OBJECT;
}

/** Fills a reply's frame; what cannot travel becomes the call's failure. */
void prepareReply(const Parcel& reply, status_t status, const std::shared_ptr<Peer>& peer,
                  OutgoingObjects* outObjects, OutFrame* outFrame) {
    if (status == OK) status = prepareObjects(reply, peer, outObjects);
    if (status != OK) {
        outFrame->header.status = status;
        return;
    }
    fillFrame(reply, *outObjects, outFrame);
    if (!outObjects->foreign.empty()) {
        outFrame->header.receipt = peer->pin(std::move(outObjects->foreign));
    }
}

/** Takes in a request's objects, and waits until their owners count them. */
status_t acceptRequest(Frame* frame, const std::shared_ptr<Peer>& caller, Parcel* outData) {
    std::vector<ParcelObject> objects;
    std::shared_ptr<Gate> gate;
    // The caller lets its references go with our reply: by then they must be ours.
    if (hasForeignObjects(*frame, *caller)) gate = std::make_shared<Gate>();
    const status_t status = acceptObjects(frame, caller, gate, &objects);
    if (gate != nullptr) {
        gate->done();
        if (!gate->wait(kAcquireDeadline)) {
            ALOGW("The owner of an object from process %d does not answer", caller->pid);
        }
    }
    if (status != OK) return status;
    return fillParcel(*frame, std::move(objects), outData);
}

}  // namespace

status_t acceptWithReceipt(Frame* frame, const std::shared_ptr<Peer>& sender,
                           std::vector<ParcelObject>* outObjects) {
    const uint64_t receipt = frame->header.receipt;
    std::shared_ptr<Gate> gate;
    if (receipt != 0 || hasForeignObjects(*frame, *sender)) {
        gate = std::make_shared<Gate>([sender, receipt] {
            if (receipt == 0) return;
            FrameHeader header = makeHeader(FrameType::RECEIPT);
            header.receipt = receipt;
            sender->sendControl(header);
        });
    }
    const status_t status = acceptObjects(frame, sender, gate, outObjects);
    if (gate != nullptr) gate->done();
    return status;
}

status_t transact(BpBinder& proxy, uint32_t code, const Parcel& data, Parcel* reply,
                  uint32_t flags) {
    const std::shared_ptr<Peer>& peer = proxy.owner();
    const bool oneWay = (flags & IBinder::FLAG_ONEWAY) != 0;
    OutFrame frame;
    frame.header = makeHeader(oneWay ? FrameType::ONE_WAY : FrameType::REQUEST);
    frame.header.code = code;
    frame.header.flags = flags;
    frame.header.target = proxy.id();
    if (oneWay && !peer->flow().reserve(data.ipcDataSize())) return FAILED_TRANSACTION;
    OutgoingObjects objects;
    status_t status = prepareObjects(data, peer, &objects);
    if (status == OK) {
        fillFrame(data, objects, &frame);
        bool sent = false;
        status = oneWay ? callOneWay(proxy, &frame, &objects, &sent)
                        : callTwoWay(proxy, frame, reply, &sent);
        if (!sent) takeBack(objects, *peer);
    }
    if (oneWay && status != OK) peer->flow().cancel(data.ipcDataSize());
    return status;
}

Connection::Posted serveRequest(const std::shared_ptr<Connection>& connection, Frame* frame,
                                bool waits) {
    const std::shared_ptr<Peer>& caller = connection->peer();
    OutFrame answer;
    answer.header = makeHeader(FrameType::REPLY);
    OutgoingObjects objects;
    Parcel reply;
    status_t status;
    {
        Parcel data;
        status = acceptRequest(frame, caller, &data);
        const LocalObjectPtr object = Transport::get().locals().find(frame->header.target);
        if (status == OK && object == nullptr) status = DEAD_OBJECT;
        if (status == OK) {
            const ServingScope scope(connection.get(), *caller, connection->pid(),
                                     connection->uid());
            status =
                    object->binder->transact(frame->header.code, data, &reply, frame->header.flags);
        }
    }
    prepareReply(reply, status, caller, &objects, &answer);
    if (waits) {
        return connection->send(answer) == OK ? Connection::Posted::SENT : Connection::Posted::GONE;
    }
    return connection->post(answer);
}

void serveOneWay(BBinder& object, const FrameHeader& header, const Connection& connection,
                 const Parcel& data) {
    const ServingScope scope(nullptr, *connection.peer(), /*pid*/ 0, connection.uid());
    Parcel unused;
    const status_t status = object.transact(header.code, data, &unused, header.flags);
    if (status != OK) {
        ALOGD("One-way call %u of uid %u: status %d", header.code, connection.uid(), status);
    }
}

}  // namespace android::transport
