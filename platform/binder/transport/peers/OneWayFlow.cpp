#define LOG_TAG "BinderTransport"

#include "OneWayFlow.h"

#include <inttypes.h>
#include <log/log.h>

#include <algorithm>

#include "../connection/Wire.h"

namespace android::transport {

void OneWayFlow::setProgress(std::shared_ptr<SharedPage> page, Side side) {
    Mutex::Autolock lock(mLock);
    mPage = std::move(page);
    mSide = side;
}

uint64_t OneWayFlow::pendingCallsLocked() const {
    return mPage == nullptr ? mSent : mSent - std::min(mPage->finishedCalls(mSide), mSent);
}

bool OneWayFlow::reserve(size_t bytes) {
    Mutex::Autolock lock(mLock);
    const uint64_t pending = pendingCallsLocked();
    const uint64_t done = mPage == nullptr ? 0 : std::min(mPage->finishedBytes(mSide), mSentBytes);
    if (pending >= kMaxPendingOneWays || mSentBytes - done + bytes > kMaxPendingOneWayBytes) {
        ++mFailed;
        logRefusalLocked(bytes, pending);
        return false;
    }
    ++mSent;
    mSentBytes += bytes;
    return true;
}

void OneWayFlow::cancel(size_t bytes) {
    Mutex::Autolock lock(mLock);
    --mSent;
    mSentBytes -= bytes;
    ++mFailed;
}

void OneWayFlow::refuse(size_t bytes) {
    cancel(bytes);
    Mutex::Autolock lock(mLock);
    logRefusalLocked(bytes, pendingCallsLocked());
}

OneWayFlow::Counters OneWayFlow::counters() const {
    Mutex::Autolock lock(mLock);
    return {mSent, mSent - pendingCallsLocked(), mFailed};
}

void OneWayFlow::logRefusalLocked(size_t bytes, uint64_t pending) {
    ++mUnlogged;
    const nsecs_t now = systemTime();
    if (mLastLog != 0 && now - mLastLog < s2ns(1)) return;
    ALOGE("One-way call of %zu bytes to process %u refused: %" PRIu64 " calls wait there; %" PRIu64
          " refused since the last line, %" PRIu64 " in all",
          bytes, mReceiverPid, pending, mUnlogged, mFailed);
    mLastLog = now;
    mUnlogged = 0;
}

}  // namespace android::transport
