#pragma once

#include <android-base/unique_fd.h>
#include <utils/Errors.h>
#include <utils/Mutex.h>
#include <utils/Timers.h>

#include <atomic>
#include <memory>

namespace android::transport {

/**
 * What a receiver has finished of one sender's one-way calls: a page that both map. So the sender's
 * bound is exact at any moment, without a message or a wake-up for it.
 */
class ProgressPage {
public:
    /** A page to be shared with a receiver; null when the system refuses. */
    [[nodiscard]] static std::unique_ptr<ProgressPage> create();
    /** The page that a sender shared; null for anything that is not such a page. */
    [[nodiscard]] static std::unique_ptr<ProgressPage> adopt(base::unique_fd fd);

    ProgressPage(const ProgressPage&) = delete;
    ProgressPage& operator=(const ProgressPage&) = delete;
    ~ProgressPage();

    [[nodiscard]] int fd() const { return mFd.get(); }

    void add(uint64_t bytes) {
        mShared->bytes.fetch_add(bytes, std::memory_order_release);
        mShared->calls.fetch_add(1, std::memory_order_release);
    }
    [[nodiscard]] uint64_t calls() const { return mShared->calls.load(std::memory_order_acquire); }
    [[nodiscard]] uint64_t bytes() const { return mShared->bytes.load(std::memory_order_acquire); }

private:
    struct Shared {
        std::atomic<uint64_t> calls;
        std::atomic<uint64_t> bytes;
    };
    static_assert(std::atomic<uint64_t>::is_always_lock_free);

    ProgressPage(base::unique_fd fd, Shared* shared) : mFd(std::move(fd)), mShared(shared) {}
    [[nodiscard]] static std::unique_ptr<ProgressPage> map(base::unique_fd fd);

    const base::unique_fd mFd;
    Shared* const mShared;
};

/** What an accepted ONE_WAY connection has taken in that its objects have not run yet. */
struct OneWayIntake {
    explicit OneWayIntake(std::unique_ptr<ProgressPage> senderPage)
            : progress(std::move(senderPage)) {}

    const std::unique_ptr<ProgressPage> progress;
    std::atomic<size_t> pendingCalls{0};
    std::atomic<size_t> pendingBytes{0};
    // Set while nothing is received, as a sender that keeps its own bound never makes necessary.
    std::atomic<bool> paused{false};
};

/**
 * The sender's account of its one-way calls to one receiver: bounds what waits there, counts, and
 * logs refusals at most once a second. Thread-safe.
 */
class OneWayFlow {
public:
    explicit OneWayFlow(uint32_t receiverPid) : mReceiverPid(receiverPid) {}

    /** Before the first call. */
    void setProgress(std::unique_ptr<ProgressPage> progress) EXCLUDES(mLock);

    /** Takes room for a call, or counts and logs a refusal. */
    [[nodiscard]] bool reserve(size_t bytes) EXCLUDES(mLock);
    /** Gives the room back: the call was not sent after all. */
    void cancel(size_t bytes) EXCLUDES(mLock);

    struct Counters {
        uint64_t sent;
        uint64_t delivered;
        uint64_t failed;
    };
    [[nodiscard]] Counters counters() const EXCLUDES(mLock);

private:
    void logRefusalLocked(size_t bytes, uint64_t pending) REQUIRES(mLock);

    const uint32_t mReceiverPid;
    mutable Mutex mLock;
    std::unique_ptr<ProgressPage> mProgress GUARDED_BY(mLock);
    uint64_t mSent GUARDED_BY(mLock) = 0;
    uint64_t mSentBytes GUARDED_BY(mLock) = 0;
    uint64_t mFailed GUARDED_BY(mLock) = 0;
    uint64_t mUnlogged GUARDED_BY(mLock) = 0;
    nsecs_t mLastLog GUARDED_BY(mLock) = 0;
};

}  // namespace android::transport
