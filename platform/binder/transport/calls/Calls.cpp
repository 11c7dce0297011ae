#define LOG_TAG "BinderTransport"

#include "Calls.h"

#include <binder/IPCThreadState.h>
#include <errno.h>
#include <log/log.h>

#include <algorithm>

namespace android::transport {

namespace {

/** Makes the thread a server of a call for its lifetime. */
class ServingScope {
public:
    ServingScope(const LinkPtr* waiting, const Connection& from, const Peer& caller, pid_t pid,
                 const Frame* frame)
            : mThread(IPCThreadState::self()),
              mCall{waiting,
                    &caller,
                    frame == nullptr ? 0 : frame->header.word,
                    frame == nullptr ? nullptr : frame->waiters,
                    frame == nullptr ? 0 : frame->header.waiterCount,
                    mThread->servedCall()} {
        mOuter = mThread->enterCall(&mCall, pid, from.uid());
    }
    ~ServingScope() { mThread->leaveCall(mCall.outer, mOuter); }
    ServingScope(const ServingScope&) = delete;
    ServingScope& operator=(const ServingScope&) = delete;

private:
    IPCThreadState* const mThread;
    const ServedCall mCall;
    IPCThreadState::Identity mOuter;
};

/** The way of a two-way call. */
struct Route {
    LinkPtr link;
    bool own = true;  // else the link of a call that this thread serves
};

/**
 * A thread of the called process that waits for this one, directly or through others, is to serve
 * the call: over the link on which it waits, or over one that names it. Else any thread serves it.
 */
status_t findRoute(const PeerPtr& peer, Route* outRoute) {
    for (const ServedCall* call = IPCThreadState::self()->servedCall(); call != nullptr;
         call = call->outer) {
        if (call->link == nullptr) continue;
        if (call->caller == peer.get()) {
            *outRoute = {*call->link, false};
            return OK;
        }
        for (uint32_t i = 0; i < call->waiterCount; ++i) {
            if (call->waiters[i].process == peer->id.name) {
                return peer->openNested(call->waiters[i].thread, &outRoute->link);
            }
        }
    }
    return peer->borrowCall(&outRoute->link);
}

/** The threads that wait for what this thread does, innermost first. */
std::vector<WireWaiter> findWaiters() {
    std::vector<WireWaiter> waiters;
    const ServedCall* const call = IPCThreadState::self()->servedCall();
    if (call == nullptr || call->link == nullptr) return waiters;
    waiters.push_back({call->caller->id.name, call->thread});
    const size_t more = std::min<size_t>(call->waiterCount, kMaxWaiters - 1);
    waiters.insert(waiters.end(), call->waiters, call->waiters + more);
    return waiters;
}

}  // namespace

status_t Calls::takeReply(Frame* frame, const PeerPtr& peer, Parcel* reply) {
    std::vector<ParcelObject> objects;
    const status_t status = mTransfer.accept(frame, peer, /*wait*/ true, &objects);
    if (frame->header.status != OK) return frame->header.status;
    if (status != OK || reply == nullptr) return status;
    return ObjectTransfer::fillParcel(*frame, std::move(objects), reply);
}

/** Receives until the reply is there, serving what is called in this thread meanwhile. */
status_t Calls::awaitReply(const LinkPtr& link, WaitingThreads::Scope* scope, Parcel* reply) {
    for (;;) {
        Frame frame;
        const FrameInput::Result result = link->input().next(&frame);
        if (result == FrameInput::Result::PARTIAL) {
            link->expect();
            Delivery delivery;
            if (scope->take(&delivery)) {
                // The reply takes the stream while this thread is busy.
                if (link->withdraw() < 0) break;
                runNested(&delivery);
                continue;
            }
            const ssize_t got = link->await();
            if (got > 0 || got == -EINTR) continue;
            break;
        }
        if (result == FrameInput::Result::FRAME && frame.header.type == FrameType::REPLY) {
            return takeReply(&frame, link->peer, reply);
        }
        if (result == FrameInput::Result::FRAME && frame.header.type == FrameType::REQUEST) {
            if (serveRequest(link, &frame, /*waits*/ true) == Connection::Posted::SENT) continue;
            break;
        }
        logNoFrame(*link);
        link->account().shutOut();
        break;
    }
    link->end();
    return DEAD_OBJECT;
}

/** Sends a request and waits. False when nothing has left; then the link is at rest still. */
bool Calls::exchange(const LinkPtr& link, OutFrame* frame, Parcel* reply, status_t* outStatus) {
    WaitingThreads::Scope scope(*link);
    frame->header.word = scope.thread();
    const std::vector<WireWaiter> waiters = findWaiters();
    frame->waiters = &waiters;
    frame->header.waiterCount = static_cast<uint32_t>(waiters.size());
    link->expect();
    *outStatus = link->send(*frame);
    const bool sent = *outStatus != FAILED_TRANSACTION;
    if (*outStatus == OK) {
        *outStatus = awaitReply(link, &scope, reply);
    } else if (sent) {
        link->end();
    } else {
        (void)link->withdraw();  // nothing was asked, so nothing has come
    }
    frame->waiters = nullptr;  // they go with this function
    for (Delivery& late : scope.finish())
        serveNested(std::move(late));
    return sent;
}

/** Distinguishes death from a broken link, so that the proxies are dead before the caller knows. */
void Calls::noteLostLink(const PeerPtr& peer) {
    if (!peer->isDead() && peer->confirmEnd()) mWatcher.peerEnded(peer);
}

/** A call whose `outSent` is false has not left this process. */
status_t Calls::callTwoWay(BpBinder& proxy, OutFrame* frame, Parcel* reply, bool* outSent) {
    const PeerPtr& peer = proxy.owner();
    Route route;
    status_t status = findRoute(peer, &route);
    if (status == OK) *outSent = exchange(route.link, frame, reply, &status);
    // DEAD_OBJECT may also be the remote method's own answer: the link tells them apart.
    const bool lost = status == DEAD_OBJECT && (route.link == nullptr || route.link->hasHungUp(0));
    if (route.own && route.link != nullptr) {
        if (lost || route.link->kind() == ConnectionKind::NESTED) {
            peer->drop(route.link);
        } else {
            peer->returnCall(std::move(route.link));
        }
    }
    if (lost) noteLostLink(peer);
    return status;
}

/** A call whose `outSent` is false has not left this process. */
status_t Calls::callOneWay(BpBinder& proxy, const OutFrame& frame, bool* outSent) {
    const PeerPtr& peer = proxy.owner();
    const size_t bytes = frame.header.dataSize;
    if (!peer->flow().reserve(bytes)) return FAILED_TRANSACTION;
    const status_t status = peer->sendOneWay(frame);
    *outSent = status == OK;
    if (status == OK) return OK;
    if (status == FAILED_TRANSACTION) {
        peer->flow().refuse(bytes);
        return status;
    }
    peer->flow().cancel(bytes);
    noteLostLink(peer);
    return status;
}

status_t Calls::transact(BpBinder& proxy, uint32_t code, const Parcel& data, Parcel* reply,
                         uint32_t flags) {
    if (isForkedChild()) return INVALID_OPERATION;
    const PeerPtr& peer = proxy.owner();
    const bool oneWay = (flags & IBinder::FLAG_ONEWAY) != 0;
    OutFrame frame;
    frame.header = makeHeader(oneWay ? FrameType::ONE_WAY : FrameType::REQUEST, proxy.id());
    frame.header.code = code;
    frame.header.flags = flags;
    OutgoingObjects objects;
    status_t status = mTransfer.prepare(data, *peer, &objects);
    if (status != OK) return status;
    ObjectTransfer::fillFrame(data, objects, &frame);
    bool sent = false;
    status = oneWay ? callOneWay(proxy, frame, &sent) : callTwoWay(proxy, &frame, reply, &sent);
    if (!sent) mTransfer.takeBack(objects, *peer);
    return status;
}

void Calls::forget(const BpBinder& proxy) {
    if (isForkedChild()) return;
    const uint64_t credits = mRemotes.forget(proxy);
    if (credits == 0 || proxy.id() == kContextManagerId) return;
    proxy.owner()->release(proxy.id(), credits);
}

Connection::Posted Calls::serveRequest(const LinkPtr& link, Frame* frame, bool waits) {
    const PeerPtr& caller = link->peer;
    OutFrame answer;
    answer.header = makeHeader(FrameType::REPLY);
    OutgoingObjects objects;
    Parcel reply;
    status_t status;
    {
        Parcel data;
        std::vector<ParcelObject> accepted;
        status = mTransfer.accept(frame, caller, /*wait*/ false, &accepted);
        if (status == OK) status = ObjectTransfer::fillParcel(*frame, std::move(accepted), &data);
        const LocalObjectPtr object = mLocals.find(frame->header.target);
        if (status == OK && object == nullptr) status = DEAD_OBJECT;
        if (status == OK) {
            const ServingScope scope(&link, *link, *caller, link->pid(), frame);
            status =
                    object->binder->transact(frame->header.code, data, &reply, frame->header.flags);
        }
    }
    // What cannot travel becomes the call's failure.
    if (status == OK) status = mTransfer.prepare(reply, *caller, &objects);
    if (status == OK) ObjectTransfer::fillFrame(reply, objects, &answer);
    answer.header.status = status;
    if (waits) {
        return link->send(answer) == OK ? Connection::Posted::SENT : Connection::Posted::GONE;
    }
    const Connection::Posted posted = link->post(answer, Connection::Bound::ACCOUNT);
    if (posted != Connection::Posted::FULL) return posted;
    mTransfer.takeBack(objects, *caller);
    OutFrame refusal;
    refusal.header = makeHeader(FrameType::REPLY);
    refusal.header.status = FAILED_TRANSACTION;
    return link->post(refusal, Connection::Bound::ACCOUNT);
}

void Calls::serveOneWay(BBinder& object, const FrameHeader& header, const LinkPtr& link,
                        const Parcel& data) {
    const ServingScope scope(nullptr, *link, *link->peer, /*pid*/ 0, nullptr);
    Parcel unused;
    const status_t status = object.transact(header.code, data, &unused, header.flags);
    if (status != OK) {
        ALOGD("One-way call %u of uid %u: status %d", header.code, link->uid(), status);
    }
}

void Calls::serveNested(Delivery delivery) {
    if (WaitingThreads::deliver(delivery.link->waiter, &delivery)) return;
    // The chain has come apart, or there never was one.
    delivery.frame.refused = true;
    runNested(&delivery);
}

void Calls::runNested(Delivery* delivery) {
    switch (serveRequest(delivery->link, &delivery->frame, /*waits*/ false)) {
        case Connection::Posted::QUEUED:
            mWatcher.watchOutput(delivery->link);
            break;
        case Connection::Posted::SENT:
            mWatcher.watchNested(delivery->link);
            break;
        default:
            mWatcher.drop(delivery->link);
    }
}

}  // namespace android::transport
