#pragma once

#include <utils/Condition.h>
#include <utils/Mutex.h>
#include <utils/RefBase.h>

#include <cstdint>
#include <map>

namespace android {

struct AMessage;

// The messages of a looper by the time at which they are due, and the loop that delivers them. Each
// run of the loop has a number; a loop leaves as soon as its number is no longer the current one,
// so that one that was stopped from inside a message never competes with its successor.
// Thread-safe.
class LooperQueue {
public:
    using Run = uint64_t;

    // `whenUs` on ALooper::GetNowUs()'s clock. Counts behind whatever is due at the same time.
    void post(const sp<AMessage>& msg, int64_t delayUs) EXCLUDES(mLock);

    // Makes loops of earlier runs leave.
    [[nodiscard]] Run beginRun() EXCLUDES(mLock);
    // Also drops what is queued.
    void endRun() EXCLUDES(mLock);

    // Delivers until the run ends.
    void loop(Run run) EXCLUDES(mLock);

private:
    // The next message that is due; null once the run has ended.
    sp<AMessage> take(Run run) EXCLUDES(mLock);

    Mutex mLock;
    Condition mChanged;
    Run mRun GUARDED_BY(mLock) = 0;
    // A multimap keeps equal keys in the order of their insertion.
    std::multimap<int64_t, sp<AMessage>> mMessages GUARDED_BY(mLock);
};

}  // namespace android
