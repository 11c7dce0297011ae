#pragma once

#include <utils/Condition.h>
#include <utils/Mutex.h>

#include <functional>

namespace android::transport {

/**
 * Opens once everything it was told to wait for is done, then runs a function on the thread that
 * did the last thing. Starts with one thing to wait for, which its maker does with done() when it
 * has added the others. Thread-safe.
 */
class Gate {
public:
    explicit Gate(std::function<void()> onOpen = nullptr) : mOnOpen(std::move(onOpen)) {}

    void add() EXCLUDES(mLock) {
        Mutex::Autolock lock(mLock);
        ++mOpen;
    }

    void done() EXCLUDES(mLock) {
        {
            Mutex::Autolock lock(mLock);
            if (--mOpen != 0) return;
            mOpened.broadcast();
        }
        if (mOnOpen) mOnOpen();
    }

    /** False when `within` nanoseconds passed first. */
    [[nodiscard]] bool wait(nsecs_t within) EXCLUDES(mLock) {
        Mutex::Autolock lock(mLock);
        const nsecs_t end = systemTime() + within;
        while (mOpen != 0) {
            const nsecs_t left = end - systemTime();
            if (left <= 0) return false;
            (void)mOpened.waitRelative(mLock, left);  // the loop looks at the clock itself
        }
        return true;
    }

private:
    const std::function<void()> mOnOpen;
    Mutex mLock;
    Condition mOpened;
    int mOpen GUARDED_BY(mLock) = 1;
};

}  // namespace android::transport
