#define LOG_TAG "BinderTransport"

#include "ThreadPool.h"

#include <errno.h>
#include <log/log.h>
#include <pthread.h>
#include <stdio.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <system_error>
#include <thread>

#include "../connection/ErrorText.h"

namespace android::transport {

namespace {

constexpr uint64_t kTaskSignalId = 0;

void control(int set, int operation, int fd, uint64_t id, uint32_t events) {
    epoll_event event = {};
    event.events = events;
    event.data.u64 = id;
    // The connection may have been removed by the thread that saw its end.
    if (epoll_ctl(set, operation, fd, &event) != 0 && errno != ENOENT) {
        ALOGE("Cannot watch a connection: %s", errorText(errno).c_str());
    }
}

constexpr uint32_t kInput = EPOLLIN | EPOLLRDHUP | EPOLLET;

}  // namespace

ThreadPool::ThreadPool(std::function<void(uint64_t)> serve)
        : mServe(std::move(serve)),
          mEvents(epoll_create1(EPOLL_CLOEXEC)),
          mTaskSignal(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    LOG_ALWAYS_FATAL_IF(mEvents.get() < 0 || mTaskSignal.get() < 0,
                        "No event set for the binder threads: %s", errorText(errno).c_str());
    control(mEvents.get(), EPOLL_CTL_ADD, mTaskSignal.get(), kTaskSignalId, kInput);
}

void ThreadPool::start() {
    Mutex::Autolock lock(mLock);
    if (mStarted || isForkedChild()) return;
    mStarted = true;
    spawnLocked();
}

void ThreadPool::join() {
    LOG_ALWAYS_FATAL_IF(isForkedChild(), "A child of fork() has no binder to serve");
    mThreads.fetch_add(1, std::memory_order_relaxed);
    mIdle.fetch_add(1);
    run();
}

void ThreadPool::setMaxThreads(size_t count) {
    Mutex::Autolock lock(mLock);
    mMaxThreads = std::max<size_t>(count, 1);
}

void ThreadPool::spawnLocked() {
    const size_t number = ++mSpawned;
    mThreads.fetch_add(1, std::memory_order_relaxed);
    mIdle.fetch_add(1);
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
        mIdle.fetch_sub(1);
    }
}

/** Counts the thread as busy; the last one to become so has its successor started. */
void ThreadPool::leaveIdle() {
    if (mIdle.fetch_sub(1) > 1) return;
    Mutex::Autolock lock(mLock);
    if (mStarted && mSpawned < mMaxThreads && mIdle.load() <= 0) spawnLocked();
}

void ThreadPool::add(int fd, uint64_t id) {
    control(mEvents.get(), EPOLL_CTL_ADD, fd, id, kInput);
}

void ThreadPool::rearm(int fd, uint64_t id) {
    control(mEvents.get(), EPOLL_CTL_MOD, fd, id, kInput);
}

void ThreadPool::remove(int fd) {
    (void)epoll_ctl(mEvents.get(), EPOLL_CTL_DEL, fd, nullptr);  // may not be in it
}

void ThreadPool::post(Task task) {
    {
        Mutex::Autolock lock(mLock);
        mTasks.push_back(std::move(task));
        mTaskCount.store(mTasks.size(), std::memory_order_relaxed);
    }
    signalTask();
}

/** Wakes one thread; nobody reads the number, each write is an event. */
void ThreadPool::signalTask() {
    const uint64_t one = 1;
    (void)!write(mTaskSignal.get(), &one, sizeof(one));  // would take for ever to fill up
}

void ThreadPool::postCleanup(Task task) {
    if (hasThreads()) {
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
    if (!hasTasks()) return false;
    {
        Mutex::Autolock lock(mLock);
        if (mTasks.empty()) return false;
        *outTask = std::move(mTasks.front());
        mTasks.pop_front();
        mTaskCount.store(mTasks.size(), std::memory_order_relaxed);
    }
    // Two posts that come together may wake one thread only.
    if (hasTasks()) signalTask();
    return true;
}

void ThreadPool::run() {
    for (;;) {
        Task task;
        epoll_event event = {};
        if (takeTask(&task)) {
            leaveIdle();
            task();
            task = nullptr;  // what it holds goes while this thread counts as busy
        } else if (epoll_wait(mEvents.get(), &event, 1, -1) != 1 ||
                   event.data.u64 == kTaskSignalId) {
            continue;
        } else {
            leaveIdle();
            mServe(event.data.u64);
        }
        mIdle.fetch_add(1);
    }
}

bool ThreadPool::beginLinger() {
    if (!hasIdle() || hasTasks()) return false;
    if (2 * (mLingering.fetch_add(1, std::memory_order_relaxed) + 1) <=
        mThreads.load(std::memory_order_relaxed)) {
        return true;
    }
    endLinger();
    return false;
}

}  // namespace android::transport
