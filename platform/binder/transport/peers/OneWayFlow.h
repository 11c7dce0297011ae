#pragma once

#include <utils/Errors.h>
#include <utils/Mutex.h>
#include <utils/Timers.h>

#include <atomic>
#include <memory>

#include "../connection/SharedPage.h"

namespace android::transport {

/** What a STREAM has taken in that its objects have not run yet. */
struct OneWayIntake {
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

    /** The page where the receiver counts, and this process's side of it. Before the first call. */
    void setProgress(std::shared_ptr<SharedPage> page, Side side) EXCLUDES(mLock);

    /** Takes room for a call, or counts and logs a refusal. */
    [[nodiscard]] bool reserve(size_t bytes) EXCLUDES(mLock);
    /** Gives the room back: the call was not sent after all. */
    void cancel(size_t bytes) EXCLUDES(mLock);
    /** As cancel, of a call for which the receiver's way was full: logs that too. */
    void refuse(size_t bytes) EXCLUDES(mLock);

    struct Counters {
        uint64_t sent;
        uint64_t delivered;
        uint64_t failed;
    };
    [[nodiscard]] Counters counters() const EXCLUDES(mLock);

private:
    // A receiver that claims more than it got gains nothing but an empty account.
    [[nodiscard]] uint64_t pendingCallsLocked() const REQUIRES(mLock);
    void logRefusalLocked(size_t bytes, uint64_t pending) REQUIRES(mLock);

    const uint32_t mReceiverPid;
    mutable Mutex mLock;
    std::shared_ptr<SharedPage> mPage GUARDED_BY(mLock);
    Side mSide GUARDED_BY(mLock) = Side::OPENER;
    uint64_t mSent GUARDED_BY(mLock) = 0;
    uint64_t mSentBytes GUARDED_BY(mLock) = 0;
    uint64_t mFailed GUARDED_BY(mLock) = 0;
    uint64_t mUnlogged GUARDED_BY(mLock) = 0;
    nsecs_t mLastLog GUARDED_BY(mLock) = 0;
};

}  // namespace android::transport
