#define LOG_TAG "BinderTransport"

#include "OneWayFlow.h"

#include <inttypes.h>
#include <log/log.h>

#include <algorithm>

#include "Wire.h"

namespace android::transport {

void OneWayFlow::setProgress(std::shared_ptr<SharedPage> progress) {
    Mutex::Autolock lock(mLock);
    mProgress = std::move(progress);
}

bool OneWayFlow::reserve(size_t bytes) {
    Mutex::Autolock lock(mLock);
    // A receiver that claims more than it got gains nothing but an empty account.
    const uint64_t calls = mProgress == nullptr ? 0 : std::min(mProgress->calls(), mSent);
    const uint64_t done = mProgress == nullptr ? 0 : std::min(mProgress->bytes(), mSentBytes);
    const uint64_t pending = mSent - calls;
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

OneWayFlow::Counters OneWayFlow::counters() const {
    Mutex::Autolock lock(mLock);
    const uint64_t calls = mProgress == nullptr ? 0 : std::min(mProgress->calls(), mSent);
    return {mSent, calls, mFailed};
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
