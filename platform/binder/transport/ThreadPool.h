#pragma once

#include <android-base/unique_fd.h>
#include <utils/Mutex.h>

#include <atomic>
#include <deque>
#include <functional>
#include <memory>

#include "Connection.h"

namespace android::transport {

/**
 * The threads on which this process's objects are called and death is told.
 *
 * They wait together in one event set, which holds the accepted CALL and ONE_WAY connections, each
 * armed for one event. The thread that gets the event serves the connection from receive to reply.
 * A thread that takes work while no other is left waiting has the next one started, up to the
 * bound.
 *
 * After a reply a thread may stay a few milliseconds with the connection, which saves three system
 * calls for a client that calls again at once and lets its call come by the mailbox. At most half
 * of the threads do, and only while another one waits for the rest.
 */
class ThreadPool {
public:
    ThreadPool();
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;
    ~ThreadPool() = default;

    /** Starts the first thread; later calls do nothing. */
    void start() EXCLUDES(mLock);
    /** Makes the calling thread one of the pool, beyond the bound, for good. */
    void join();
    /** Threads that the pool starts at most, 15 at first; one is always allowed. */
    void setMaxThreads(size_t count) EXCLUDES(mLock);

    /** Starts to watch an accepted connection. */
    void add(Connection& connection);
    /** Watches for the next event, of a connection whose last one has been dealt with. */
    void rearm(Connection& connection);
    /** As rearm, of a connection that the caller has given up already. */
    void arm(Connection& connection);
    /** True when the calling thread may stay with its connection; then endLinger ends the stay. */
    [[nodiscard]] bool beginLinger();
    void endLinger() { mLingering.fetch_sub(1, std::memory_order_relaxed); }

    using Task = std::function<void()>;
    /** Has a thread run the task; it waits until the process has one. */
    void post(Task task) EXCLUDES(mLock);
    /** As post, but a process without a pool gets a passing thread for it. */
    void postCleanup(Task task) EXCLUDES(mLock);

private:
    void run();
    void waitForWork();
    void serve(uint64_t id);
    void serveCalls(const std::shared_ptr<Connection>& connection);
    [[nodiscard]] bool takeTask(Task* outTask) EXCLUDES(mLock);
    void spawnIfNeeded() EXCLUDES(mLock);
    void spawnLocked() REQUIRES(mLock);

    const base::unique_fd mEvents;
    const base::unique_fd mTaskSignal;

    std::atomic<int> mThreads{0};
    std::atomic<int> mIdle{0};  // waiting in the event set
    std::atomic<int> mLingering{0};
    std::atomic<size_t> mTaskCount{0};

    Mutex mLock;
    bool mStarted GUARDED_BY(mLock) = false;
    size_t mMaxThreads GUARDED_BY(mLock) = 15;
    size_t mSpawned GUARDED_BY(mLock) = 0;
    std::deque<Task> mTasks GUARDED_BY(mLock);
};

}  // namespace android::transport
