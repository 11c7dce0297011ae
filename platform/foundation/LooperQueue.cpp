#include "LooperQueue.h"

#include <media/stagefright/foundation/ALooper.h>
#include <media/stagefright/foundation/AMessage.h>

#include <algorithm>
#include <limits>

namespace android {

void LooperQueue::post(const sp<AMessage>& msg, int64_t delayUs) {
    Mutex::Autolock lock(mLock);
    // Read under the lock: the clock then never runs against the order of posting.
    const int64_t now = ALooper::GetNowUs();
    const int64_t delay = std::max<int64_t>(delayUs, 0);
    const int64_t due = delay > std::numeric_limits<int64_t>::max() - now
                                ? std::numeric_limits<int64_t>::max()
                                : now + delay;
    const auto place = mMessages.emplace(due, msg);
    if (place == mMessages.begin()) mChanged.broadcast();
}

LooperQueue::Run LooperQueue::beginRun() {
    Mutex::Autolock lock(mLock);
    return ++mRun;
}

void LooperQueue::endRun() {
    // Dropped outside the lock: a message may own an object whose destructor posts.
    std::multimap<int64_t, sp<AMessage>> dropped;
    Mutex::Autolock lock(mLock);
    ++mRun;
    dropped.swap(mMessages);
    mChanged.broadcast();
}

void LooperQueue::loop(Run run) {
    while (const sp<AMessage> msg = take(run))
        msg->deliver();
}

sp<AMessage> LooperQueue::take(Run run) {
    Mutex::Autolock lock(mLock);
    while (mRun == run) {
        if (mMessages.empty()) {
            mChanged.wait(mLock);
            continue;
        }
        const auto first = mMessages.begin();
        const int64_t waitUs = first->first - ALooper::GetNowUs();
        if (waitUs <= 0) {
            const sp<AMessage> msg = first->second;
            mMessages.erase(first);
            return msg;
        }
        constexpr int64_t kLongestWaitUs = int64_t{3600} * 1000 * 1000;
        (void)mChanged.waitRelative(mLock, us2ns(std::min(waitUs, kLongestWaitUs)));
    }
    return nullptr;
}

}  // namespace android
