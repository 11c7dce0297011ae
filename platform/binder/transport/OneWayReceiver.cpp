#define LOG_TAG "BinderTransport"

#include "OneWayReceiver.h"

#include <errno.h>
#include <log/log.h>

#include "Calls.h"
#include "ObjectTransfer.h"
#include "Transport.h"

namespace android::transport {

namespace {

/** Calls of one object that a thread runs before it lets other work have a turn. */
constexpr int kQuantum = 32;

bool isFull(const OneWayIntake& intake) {
    return intake.pendingCalls >= kMaxPendingOneWays ||
           intake.pendingBytes >= kMaxPendingOneWayBytes;
}

}  // namespace

void OneWayReceiver::serve(const std::shared_ptr<Connection>& connection) {
    FrameInput& input = connection->input();
    const ssize_t got = input.receive(connection->fd(), MSG_DONTWAIT);
    std::vector<LocalObjectPtr> ready;
    FrameInput::Result result = FrameInput::Result::PARTIAL;
    do {
        Frame frame;
        result = input.next(&frame);
        if (result == FrameInput::Result::FRAME) takeIn(&frame, connection, &ready);
    } while (result == FrameInput::Result::FRAME);
    if (result == FrameInput::Result::BROKEN || got == -EPROTO) {
        logNoFrame(*connection);
        Transport::get().driver().drop(connection);
    } else if (got <= 0 && got != -EAGAIN) {
        Transport::get().driver().drop(connection);
    } else {
        resume(connection);  // before any call runs: other objects' calls must not wait for it
    }
    for (size_t i = 1; i < ready.size(); ++i) {
        Transport::get().pool().post([object = ready[i]] { run(object); });
    }
    if (!ready.empty()) run(ready.front());
}

void OneWayReceiver::resume(const std::shared_ptr<Connection>& connection) {
    OneWayIntake& intake = connection->intake();
    if (isFull(intake)) {
        intake.paused = true;
        // finish() may have made room before it could see the mark.
        if (isFull(intake) || !intake.paused.exchange(false)) return;
    }
    Transport::get().pool().rearm(*connection);
}

void OneWayReceiver::takeIn(Frame* frame, const std::shared_ptr<Connection>& connection,
                            std::vector<LocalObjectPtr>* outReady) {
    const size_t bytes = frame->header.dataSize;
    connection->intake().pendingBytes += bytes;
    ++connection->intake().pendingCalls;
    OneWayCall call;
    const status_t status = acceptWithReceipt(frame, connection->peer(), &call.objects);
    const LocalObjectPtr object = Transport::get().locals().find(frame->header.target);
    if (frame->header.type != FrameType::ONE_WAY || status != OK || object == nullptr) {
        ALOGD("A one-way call of process %d is dropped: %s", connection->pid(),
              object == nullptr ? "no such object" : "not deliverable");
        finish(*connection, bytes);
        return;
    }
    call.frame = std::move(*frame);
    call.from = connection;
    Mutex::Autolock lock(object->queueLock);
    object->queue.push_back(std::move(call));
    if (object->running) return;
    object->running = true;
    outReady->push_back(object);
}

void OneWayReceiver::run(const LocalObjectPtr& object) {
    for (int i = 0; i < kQuantum; ++i) {
        OneWayCall call;
        {
            Mutex::Autolock lock(object->queueLock);
            if (object->queue.empty()) {
                object->running = false;
                break;
            }
            call = std::move(object->queue.front());
            object->queue.pop_front();
        }
        const size_t bytes = call.frame.header.dataSize;
        {
            Parcel data;
            if (fillParcel(call.frame, std::move(call.objects), &data) == OK) {
                serveOneWay(*object->binder, call.frame.header, *call.from, data);
            }
        }
        finish(*call.from, bytes);
    }
    {
        Mutex::Autolock lock(object->queueLock);
        if (object->running) {
            Transport::get().pool().post([object] { run(object); });
            return;
        }
    }
    (void)Transport::get().locals().settle(
            *object);  // its last reference ends here, on this thread
}

void OneWayReceiver::finish(Connection& connection, size_t bytes) {
    OneWayIntake& intake = connection.intake();
    intake.progress->add(bytes);
    intake.pendingBytes -= bytes;
    --intake.pendingCalls;
    if (!isFull(intake) && intake.paused.exchange(false)) {
        Transport::get().pool().rearm(connection);
    }
}

}  // namespace android::transport
