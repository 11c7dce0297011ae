#define LOG_TAG "BinderTransport"

#include "StreamReader.h"

#include <errno.h>
#include <log/log.h>
#include <malloc.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace android::transport {

namespace {

/** Calls of one object that the last free thread runs before it lets other work have a turn. */
constexpr int kQuantum = 32;
constexpr nsecs_t kTrimInterval = s2ns(1);

/**
 * True when nothing more is to be read for now. A sender that keeps its own bound never makes that
 * necessary, but for other processes of its user that hold all that the user may. Without a pending
 * call of its own, whose end would resume it, a stream is never paused.
 */
bool isFull(Link& stream) {
    const OneWayIntake& intake = stream.intake;
    if (intake.pendingCalls == 0) return false;
    return intake.pendingCalls >= kMaxPendingOneWays ||
           intake.pendingBytes >= kMaxPendingOneWayBytes ||
           (!stream.isTrusted() && stream.account().isFull(Resource::BYTES));
}

}  // namespace

void StreamReader::serve(const LinkPtr& stream) {
    Reading reading = Reading::EVENT;
    for (;;) {
        Arrivals arrivals;
        const bool open = receive(stream, reading, &arrivals);
        if (reading == Reading::STAY) mPool.endLinger();
        for (const LocalObjectPtr& object : arrivals.others)
            postQueue(object);
        if (arrivals.object == nullptr) return;
        runOne(*arrivals.object, std::move(arrivals.call));
        runQueue(arrivals.object);
        // Who sends faster than one by one is better served by the next event.
        if (!open || arrivals.calls > 1 || !mPool.beginLinger()) return;
        if (!stream->claim()) {
            mPool.endLinger();
            return;
        }
        reading = Reading::STAY;
    }
}

void StreamReader::drain(const LinkPtr& stream) {
    Arrivals arrivals;
    (void)receive(stream, Reading::DRAIN, &arrivals);  // read to the end in any case
    for (const LocalObjectPtr& object : arrivals.others)
        postQueue(object);
}

/**
 * Receives, and gives the claim up before any call runs, as the calls of other objects must not
 * wait for it. False when the stream has ended or is paused.
 */
bool StreamReader::receive(const LinkPtr& stream, Reading reading, Arrivals* outArrivals) {
    FrameInput& input = stream->input();
    bool stay = reading == Reading::STAY;
    for (;;) {
        const uint64_t before = input.received();
        const ssize_t got = stay ? stream->receiveSoon() : stream->receiveNow();
        stay = false;
        if (got == -EPROTO || !takeFrames(stream, outArrivals)) {
            logNoFrame(*stream);
            stream->account().shutOut();
            stream->end();
            streamEnded(stream);
            return false;
        }
        if (got <= 0 && got != -EAGAIN) {
            streamEnded(stream);
            return false;
        }
        if (reading == Reading::DRAIN && outArrivals->object != nullptr) {
            Mutex::Autolock lock(outArrivals->object->queueLock);
            outArrivals->object->queue.push_front(std::move(outArrivals->call));
            outArrivals->others.push_back(std::move(outArrivals->object));
        }
        if (isFull(*stream) && pause(stream)) return false;
        // A frame by the mailbox tells that the stream was empty.
        if (input.received() == before) {
            if (stream->release()) return true;
        } else if (outArrivals->object != nullptr) {
            stream->yield();
            mPool.rearm(stream->fd(), stream->id());
            return true;
        }
    }
}

/** Keeps the claim, so that nobody reads; finish() goes on from there. */
bool StreamReader::pause(const LinkPtr& stream) {
    stream->intake.paused = true;
    // finish() may have made room before it could see the mark.
    return isFull(*stream) || !stream->intake.paused.exchange(false);
}

bool StreamReader::takeFrames(const LinkPtr& stream, Arrivals* outArrivals) {
    for (;;) {
        Frame frame;
        switch (stream->input().next(&frame)) {
            case FrameInput::Result::PARTIAL:
                return true;
            case FrameInput::Result::BROKEN:
                return false;
            case FrameInput::Result::FRAME:
                if (!takeFrame(&frame, stream, outArrivals)) return false;
        }
    }
}

bool StreamReader::takeFrame(Frame* frame, const LinkPtr& stream, Arrivals* outArrivals) {
    const FrameHeader& header = frame->header;
    const PeerPtr& peer = stream->peer;
    switch (header.type) {
        case FrameType::ONE_WAY:
            ++outArrivals->calls;
            takeCall(frame, stream, outArrivals);
            return true;
        case FrameType::RELEASE:
            if (LocalObjectPtr last = mLocals.release(header.target, *peer, header.word)) {
                mPool.letGo(std::move(last));
            }
            return true;
        case FrameType::GRANT:
        case FrameType::CLAIM:
            return takeTransfer(*frame, *peer);
        default:
            return false;
    }
}

/** One end of a reference's way between two other processes of which the sender is one. */
bool StreamReader::takeTransfer(const Frame& frame, const Peer& sender) {
    const FrameHeader& header = frame.header;
    ProcessId other;
    if (header.dataSize != sizeof(other)) return false;
    memcpy(&other, frame.data, sizeof(other));
    if (header.type == FrameType::CLAIM) {
        mLocals.claim(header.target, other, mPeers.find(other) != nullptr, sender);
        return true;
    }
    // A trusted process names the receiver's user by the kernel's word; a stranger might name
    // anybody.
    Account& payer = sender.account.isTrusted ? mAccounts.of(other.uid) : sender.account;
    PeerPtr receiver = mPeers.find(other);
    if (receiver == nullptr) receiver = expectPeer(other, payer, sender.id);
    if (receiver == nullptr) return true;
    const int change = header.word == 0 ? -1 : 1;
    LocalObjectPtr last = mLocals.grant(header.target, sender.id, *receiver, change, payer);
    if (last != nullptr) mPool.letGo(std::move(last));
    return true;
}

/**
 * The receiver of a reference that has not connected yet. Should it end before it does, its process
 * tells; null when it has ended already.
 */
PeerPtr StreamReader::expectPeer(const ProcessId& id, Account& payer, const ProcessId& giver) {
    if (payer.isFull(Resource::DESCRIPTORS)) return nullptr;  // before it costs a system call
    OwnFd process(static_cast<int>(syscall(SYS_pidfd_open, id.name.pid, 0)));
    Charge charge;
    if (process.get() < 0 || !charge.take(payer, Resource::DESCRIPTORS, 1)) return nullptr;
    PeerPtr peer = mPeers.meet(id);
    const uint64_t watch = nextEventId();
    mWatcher.watchProcess(watch, process.get(), peer);
    if (!peer->expect(watch, std::move(process), std::move(charge), giver)) {
        mWatcher.unwatchProcess(watch);
    }
    return peer;
}

void StreamReader::takeCall(Frame* frame, const LinkPtr& stream, Arrivals* outArrivals) {
    const size_t bytes = frame->header.dataSize;
    stream->intake.pendingBytes += bytes;
    ++stream->intake.pendingCalls;
    OneWayCall call;
    const status_t status = mTransfer.accept(frame, stream->peer, /*wait*/ false, &call.objects);
    LocalObjectPtr object = mLocals.find(frame->header.target);
    if (status != OK || object == nullptr) {
        ALOGD("A one-way call of process %d is dropped: %s", stream->pid(),
              object == nullptr ? "no such object" : "not deliverable");
        finish(stream, bytes);
        return;
    }
    call.frame = std::move(*frame);
    call.from = stream;
    Mutex::Autolock lock(object->queueLock);
    if (!object->running && outArrivals->object == nullptr) {
        object->running = true;
        outArrivals->object = std::move(object);
        outArrivals->call = std::move(call);
        return;
    }
    if (!stream->isTrusted()) {
        call.frame.compact();
        call.frame.held.add(stream->account(), Resource::BYTES,
                            static_cast<uint32_t>(frameSize(call.frame.header)));
    }
    object->queue.push_back(std::move(call));
    if (object->running) return;
    object->running = true;
    outArrivals->others.push_back(object);
}

void StreamReader::streamEnded(const LinkPtr& stream) {
    const PeerPtr& peer = stream->peer;
    mWatcher.peerEnded(peer);
    mWatcher.drop(stream);
    if (peer->streamEnded(stream)) dropHolder(peer);
}

void StreamReader::dropHolder(const PeerPtr& peer) {
    mPeers.remove(peer);
    // The process that a stranger named may live for ever and know nothing of it.
    if (!peer->account.isTrusted) mPeers.removeExpected(peer->id);
    std::vector<LocalObjectPtr> objects = mLocals.dropHolder(*peer);
    if (!objects.empty()) mPool.letGo(std::move(objects));
    if (!peer->account.isTrusted) trimHeap();
}

/** Returns what a stranger made this process allocate, now and then. */
void StreamReader::trimHeap() {
    const nsecs_t now = systemTime();
    nsecs_t last = mLastTrim.load(std::memory_order_relaxed);
    if (now - last < kTrimInterval ||
        !mLastTrim.compare_exchange_strong(last, now, std::memory_order_relaxed)) {
        return;
    }
    mPool.post([] { (void)malloc_trim(0); });  // there may be nothing to return
}

void StreamReader::postQueue(const LocalObjectPtr& object) {
    mPool.post([this, object] { runQueue(object); });
}

void StreamReader::runOne(LocalObject& object, OneWayCall call) {
    const size_t bytes = call.frame.header.dataSize;
    {
        const CallServer::OneWay counted(mServer, *call.from);
        Parcel data;
        if (ObjectTransfer::fillParcel(call.frame, std::move(call.objects), &data) == OK) {
            Calls::serveOneWay(*object.binder, call.frame.header, call.from, data);
        }
    }
    finish(call.from, bytes);
}

void StreamReader::runQueue(const LocalObjectPtr& object) {
    for (int i = 0; i < kQuantum || mPool.hasIdle(); ++i) {
        OneWayCall call;
        bool idle = false;
        {
            Mutex::Autolock lock(object->queueLock);
            idle = object->queue.empty();
            if (idle) {
                object->running = false;
            } else {
                call = std::move(object->queue.front());
                object->queue.pop_front();
            }
        }
        if (idle) {
            // Its last reference may end here, on this thread.
            (void)mLocals.settle(*object);
            return;
        }
        runOne(*object, std::move(call));
    }
    postQueue(object);
}

void StreamReader::finish(const LinkPtr& stream, size_t bytes) {
    OneWayIntake& intake = stream->intake;
    stream->page()->addFinished(stream->side(), bytes);
    intake.pendingBytes -= bytes;
    --intake.pendingCalls;
    if (!isFull(*stream) && intake.paused.exchange(false)) {
        mPool.post([this, stream] { serve(stream); });
    }
}

}  // namespace android::transport
