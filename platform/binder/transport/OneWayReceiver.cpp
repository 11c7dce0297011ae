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

bool OneWayReceiver::receive(const std::shared_ptr<Connection>& connection, Turn turn,
                             Arrivals* outArrivals) {
    FrameInput& input = connection->input();
    const ssize_t got = turn == Turn::STAY ? connection->receiveSoon()
                                           : input.receive(connection->fd(), MSG_DONTWAIT);
    FrameInput::Result result;
    for (;;) {
        Frame frame;
        result = input.next(&frame);
        if (result != FrameInput::Result::FRAME) break;
        takeIn(&frame, connection, outArrivals);
    }
    const bool broken = result == FrameInput::Result::BROKEN || got == -EPROTO;
    if (broken) logNoFrame(*connection);
    if (broken || (got <= 0 && got != -EAGAIN)) {
        Transport::get().driver().drop(connection);
        return false;
    }
    // Before any call runs: other objects' calls must not wait for it.
    resume(*connection, turn);
    return true;
}

void OneWayReceiver::serve(const std::shared_ptr<Connection>& connection) {
    ThreadPool& pool = Transport::get().pool();
    Turn turn = Turn::EVENT;
    for (;;) {
        Arrivals arrivals;
        const bool goesOn = receive(connection, turn, &arrivals);
        if (turn == Turn::STAY) pool.endLinger();
        for (const LocalObjectPtr& object : arrivals.others) {
            pool.post([object] { runQueue(object); });
        }
        if (arrivals.object == nullptr) return;
        run(arrivals.object, std::move(arrivals.call));
        if (!goesOn || !pool.beginLinger()) return;
        if (!connection->claim()) {
            pool.endLinger();
            return;
        }
        turn = Turn::STAY;
    }
}

void OneWayReceiver::resume(Connection& connection, Turn turn) {
    OneWayIntake& intake = connection.intake();
    if (isFull(intake)) {
        intake.paused = true;
        // finish() may have made room before it could see the mark.
        if (isFull(intake) || !intake.paused.exchange(false)) return;
    }
    ThreadPool& pool = Transport::get().pool();
    if (turn == Turn::EVENT) {
        pool.rearm(connection);
    } else if (connection.yield()) {
        // A thread that stays has left the connection armed; only another's claim uses that up. It
        // is given up once: the next holder may be here before it is armed.
        pool.arm(connection);
    }
}

void OneWayReceiver::takeIn(Frame* frame, const std::shared_ptr<Connection>& connection,
                            Arrivals* outArrivals) {
    const size_t bytes = frame->header.dataSize;
    connection->intake().pendingBytes += bytes;
    ++connection->intake().pendingCalls;
    OneWayCall call;
    const status_t status = acceptWithReceipt(frame, connection->peer(), &call.objects);
    LocalObjectPtr object = Transport::get().locals().find(frame->header.target);
    if (frame->header.type != FrameType::ONE_WAY || status != OK || object == nullptr) {
        ALOGD("A one-way call of process %d is dropped: %s", connection->pid(),
              object == nullptr ? "no such object" : "not deliverable");
        finish(*connection, bytes);
        return;
    }
    call.frame = std::move(*frame);
    call.from = connection;
    Mutex::Autolock lock(object->queueLock);
    if (object->running) {
        object->queue.push_back(std::move(call));
        return;
    }
    object->running = true;
    if (outArrivals->object == nullptr) {
        outArrivals->object = std::move(object);
        outArrivals->call = std::move(call);
        return;
    }
    object->queue.push_back(std::move(call));
    outArrivals->others.push_back(object);
}

void OneWayReceiver::runOne(LocalObject& object, OneWayCall call) {
    const size_t bytes = call.frame.header.dataSize;
    {
        Parcel data;
        if (fillParcel(call.frame, std::move(call.objects), &data) == OK) {
            serveOneWay(*object.binder, call.frame.header, *call.from, data);
        }
    }
    finish(*call.from, bytes);
}

void OneWayReceiver::run(const LocalObjectPtr& object, OneWayCall call) {
    runOne(*object, std::move(call));
    runQueue(object);
}

void OneWayReceiver::runQueue(const LocalObjectPtr& object) {
    for (int i = 0; i < kQuantum; ++i) {
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
            (void)Transport::get().locals().settle(*object);
            return;
        }
        runOne(*object, std::move(call));
    }
    Transport::get().pool().post([object] { runQueue(object); });
}

void OneWayReceiver::finish(Connection& connection, size_t bytes) {
    OneWayIntake& intake = connection.intake();
    connection.page().add(bytes);
    intake.pendingBytes -= bytes;
    --intake.pendingCalls;
    if (!isFull(intake) && intake.paused.exchange(false)) {
        Transport::get().pool().rearm(connection);
    }
}

}  // namespace android::transport
