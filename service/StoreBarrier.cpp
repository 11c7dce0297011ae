#include "service/StoreBarrier.h"

#include <media/stagefright/foundation/ALooper.h>

namespace android {

bool StoreBarrier::await(const sp<ALooper>& looper, std::chrono::milliseconds patience) {
    const sp<StoreBarrier> barrier = new StoreBarrier();
    looper->registerHandler(barrier);
    const sp<AMessage> msg = new AMessage(0, barrier);
    const bool isReached = msg->post() == OK && barrier->awaitReached(patience);
    looper->unregisterHandler(barrier->id());
    return isReached;
}

void StoreBarrier::onMessageReceived(const sp<AMessage>&) {
    Mutex::Autolock lock(mMutex);
    mReached = true;
    mCondition.broadcast();
}

bool StoreBarrier::awaitReached(std::chrono::milliseconds patience) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    Mutex::Autolock lock(mMutex);
    while (!mReached) {
        const std::chrono::nanoseconds left = deadline - std::chrono::steady_clock::now();
        if (left.count() <= 0) return false;
        (void)mCondition.waitRelative(mMutex, left.count());  // the loop looks
    }
    return true;
}

}  // namespace android
