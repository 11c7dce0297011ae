#pragma once

#include <utils/Mutex.h>

#include <atomic>
#include <deque>
#include <functional>

#include "../connection/OwnFd.h"

namespace android::transport {

/**
 * The threads on which this process's objects are called and death recipients notified.
 *
 * They wait together in one event set, which holds the connections that others opened and the
 * streams. The thread that gets an event serves the connection from receive to reply. An event
 * comes once for what has arrived (edge-triggered): a thread that leaves without having seen the
 * connection empty calls rearm. A thread that takes work while no other is left waiting has the
 * next one started, up to the bound.
 *
 * After a reply a thread may stay a few milliseconds with the connection, which spares a client
 * that calls again at once the event, and lets its call come by the mailbox. At most half of the
 * threads do, and only while another one waits for the rest.
 */
class ThreadPool {
public:
    /** `serve` is called with the number of each event. */
    explicit ThreadPool(std::function<void(uint64_t)> serve);
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;
    ~ThreadPool() = default;

    /** Starts the first thread; later calls do nothing. */
    void start() EXCLUDES(mLock);
    /** Makes the calling thread one of the pool, beyond the bound, for good. */
    [[noreturn]] void join();
    /** Threads that the pool starts at most, 15 at first; one is always allowed. */
    void setMaxThreads(size_t count) EXCLUDES(mLock);
    [[nodiscard]] bool hasThreads() const { return mThreads.load(std::memory_order_relaxed) > 0; }

    /** True when some thread waits for work. */
    [[nodiscard]] bool hasIdle() const { return mIdle.load(std::memory_order_relaxed) > 0; }

    /** Watches a socket from now on. */
    void add(int fd, uint64_t id);
    /** Has the event come again if the socket is readable, or once it is. */
    void rearm(int fd, uint64_t id);
    void remove(int fd);

    /** True when the calling thread may stay with its connection; then endLinger ends the stay. */
    [[nodiscard]] bool beginLinger();
    void endLinger() { mLingering.fetch_sub(1, std::memory_order_relaxed); }

    using Task = std::function<void()>;
    /** Has a thread run the task; it waits until the process has one. */
    void post(Task task) EXCLUDES(mLock);
    /** Destroys `things` on a pool thread, as destructors of user objects may run; a process
     * without a pool gets a passing thread for it. */
    template <typename T>
    void letGo(T things) {
        postCleanup([things = std::move(things)] {});
    }

private:
    void postCleanup(Task task) EXCLUDES(mLock);
    [[noreturn]] void run();
    void leaveIdle() EXCLUDES(mLock);
    [[nodiscard]] bool hasTasks() const { return mTaskCount.load(std::memory_order_relaxed) != 0; }
    void signalTask();
    [[nodiscard]] bool takeTask(Task* outTask) EXCLUDES(mLock);
    void spawnLocked() REQUIRES(mLock);

    const std::function<void(uint64_t)> mServe;
    const OwnFd mEvents;
    const OwnFd mTaskSignal;

    std::atomic<int> mThreads{0};
    std::atomic<int> mIdle{0};  // waiting for work, or just started
    std::atomic<int> mLingering{0};
    std::atomic<size_t> mTaskCount{0};

    Mutex mLock;
    bool mStarted GUARDED_BY(mLock) = false;
    size_t mMaxThreads GUARDED_BY(mLock) = 15;
    size_t mSpawned GUARDED_BY(mLock) = 0;
    std::deque<Task> mTasks GUARDED_BY(mLock);
};

}  // namespace android::transport
