#define LOG_TAG "BinderTransport"

#include "ThreadPool.h"

#include <errno.h>
#include <log/log.h>
#include <pthread.h>
#include <stdio.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <system_error>
#include <thread>

#include "Calls.h"
#include "ErrorText.h"
#include "OneWayReceiver.h"
#include "Transport.h"

namespace android::transport {

namespace {

constexpr uint64_t kTaskSignalId = 0;

epoll_event eventOf(const Connection& connection) {
    epoll_event event = {};
    event.events = EPOLLIN | EPOLLRDHUP | EPOLLONESHOT;
    event.data.u64 = connection.id();
    return event;
}

}  // namespace

ThreadPool::ThreadPool()
        : mEvents(epoll_create1(EPOLL_CLOEXEC)),
          mTaskSignal(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK | EFD_SEMAPHORE)) {
    epoll_event event = {};
    event.events = EPOLLIN;
    event.data.u64 = kTaskSignalId;
    LOG_ALWAYS_FATAL_IF(epoll_ctl(mEvents.get(), EPOLL_CTL_ADD, mTaskSignal.get(), &event) != 0,
                        "No event set for the binder threads: %s", errorText(errno).c_str());
}

void ThreadPool::start() {
    Mutex::Autolock lock(mLock);
    if (mStarted) return;
    mStarted = true;
    spawnLocked();
}

void ThreadPool::join() {
    mThreads.fetch_add(1, std::memory_order_relaxed);
    run();
}

void ThreadPool::setMaxThreads(size_t count) {
    Mutex::Autolock lock(mLock);
    mMaxThreads = std::max<size_t>(count, 1);
}

void ThreadPool::spawnLocked() {
    const size_t number = ++mSpawned;
    mThreads.fetch_add(1, std::memory_order_relaxed);
    try {
        std::thread([this, number] {
            char name[16];
            snprintf(name, sizeof(name), "binder:%d_%zX", static_cast<int>(getpid()), number);
            (void)pthread_setname_np(pthread_self(), name);  // a help for the reader of lists only
            run();
        }).detach();
    } catch (const std::system_error& error) {
        ALOGE("Cannot start a binder thread: %s", error.what());
        --mSpawned;
        mThreads.fetch_sub(1, std::memory_order_relaxed);
    }
}

void ThreadPool::spawnIfNeeded() {
    Mutex::Autolock lock(mLock);
    if (mStarted && mSpawned < mMaxThreads && mIdle.load() <= 0) spawnLocked();
}

void ThreadPool::add(Connection& connection) {
    (void)connection.yield();  // nobody can have come for it yet
    epoll_event event = eventOf(connection);
    if (epoll_ctl(mEvents.get(), EPOLL_CTL_ADD, connection.fd(), &event) != 0) {
        ALOGE("Cannot watch a connection: %s", errorText(errno).c_str());
    }
}

void ThreadPool::rearm(Connection& connection) {
    (void)connection.yield();  // armed anew in any case
    arm(connection);
}

void ThreadPool::arm(Connection& connection) {
    epoll_event event = eventOf(connection);
    if (epoll_ctl(mEvents.get(), EPOLL_CTL_MOD, connection.fd(), &event) != 0) {
        ALOGE("Cannot watch a connection: %s", errorText(errno).c_str());
    }
}

void ThreadPool::post(Task task) {
    {
        Mutex::Autolock lock(mLock);
        mTasks.push_back(std::move(task));
        mTaskCount.store(mTasks.size(), std::memory_order_relaxed);
    }
    const uint64_t one = 1;
    (void)!write(mTaskSignal.get(), &one, sizeof(one));  // a full counter wakes threads as well
}

void ThreadPool::postCleanup(Task task) {
    if (mThreads.load() > 0) {
        post(std::move(task));
        return;
    }
    // What the task holds must go on the passing thread too, so this one keeps no copy of it.
    const auto shared = std::make_shared<Task>(std::move(task));
    try {
        std::thread([shared] {
            (*shared)();
            *shared = nullptr;
        }).detach();
    } catch (const std::system_error&) {
        post(std::move(*shared));  // kept until a thread comes
    }
}

bool ThreadPool::takeTask(Task* outTask) {
    if (mTaskCount.load(std::memory_order_relaxed) == 0) return false;
    Mutex::Autolock lock(mLock);
    if (mTasks.empty()) return false;
    *outTask = std::move(mTasks.front());
    mTasks.pop_front();
    mTaskCount.store(mTasks.size(), std::memory_order_relaxed);
    return true;
}

void ThreadPool::run() {
    for (;;) {
        Task task;
        if (takeTask(&task)) {
            task();
        } else {
            waitForWork();
        }
    }
}

void ThreadPool::waitForWork() {
    epoll_event event;
    mIdle.fetch_add(1);
    const int count = epoll_wait(mEvents.get(), &event, 1, -1);
    const bool lastIdle = mIdle.fetch_sub(1) == 1;
    if (count != 1) return;
    if (lastIdle) spawnIfNeeded();
    if (event.data.u64 == kTaskSignalId) {
        uint64_t value;
        (void)!read(mTaskSignal.get(), &value,
                    sizeof(value));  // another thread may have been first
        return;
    }
    serve(event.data.u64);
}

void ThreadPool::serve(uint64_t id) {
    const std::shared_ptr<Connection> connection = Transport::get().connections().find(id);
    // Dropped meanwhile, or its thread has stayed with it after all.
    if (connection == nullptr || !connection->claim()) return;
    if (connection->kind() == ConnectionKind::ONE_WAY) {
        OneWayReceiver::serve(connection);
    } else {
        serveCalls(connection);
    }
}

bool ThreadPool::beginLinger() {
    if (mIdle.load(std::memory_order_relaxed) < 1) return false;
    if (mTaskCount.load(std::memory_order_relaxed) != 0) return false;
    if (2 * (mLingering.fetch_add(1, std::memory_order_relaxed) + 1) <=
        mThreads.load(std::memory_order_relaxed)) {
        return true;
    }
    endLinger();
    return false;
}

void ThreadPool::serveCalls(const std::shared_ptr<Connection>& connection) {
    FrameInput& input = connection->input();
    bool answered = false;
    for (;;) {
        Frame frame;
        const FrameInput::Result result = input.next(&frame);
        if (result == FrameInput::Result::FRAME && frame.header.type == FrameType::REQUEST) {
            const Connection::Posted posted = serveRequest(connection, &frame, /*waits*/ false);
            if (posted == Connection::Posted::QUEUED) {
                Transport::get().driver().watchOutput(connection);  // which rearms it afterwards
                return;
            }
            if (posted == Connection::Posted::GONE) break;
            answered = true;
            continue;
        }
        if (result != FrameInput::Result::PARTIAL) {
            logNoFrame(*connection);
            break;
        }
        // Half a frame is never waited for here: its sender would hold the thread.
        const bool linger = answered && input.isEmpty() && beginLinger();
        if (answered && !linger) {
            rearm(*connection);
            return;
        }
        const ssize_t got =
                linger ? connection->receiveSoon() : input.receive(connection->fd(), MSG_DONTWAIT);
        if (linger) endLinger();
        answered = false;
        if (got == -EAGAIN) {
            rearm(*connection);
            return;
        }
        if (got == -EPROTO) logNoFrame(*connection);
        if (got <= 0) break;
    }
    Transport::get().driver().drop(connection);
}

}  // namespace android::transport
