#include "service/StoreBarrier.h"

#include <media/stagefright/foundation/ALooper.h>

namespace android {

void StoreBarrier::await(const sp<ALooper>& looper) {
    const sp<StoreBarrier> barrier = new StoreBarrier();
    looper->registerHandler(barrier);
    const sp<AMessage> msg = new AMessage(0, barrier);
    if (msg->post() == OK) {
        barrier->awaitReached();
    }
    looper->unregisterHandler(barrier->id());
}

void StoreBarrier::onMessageReceived(const sp<AMessage>&) {
    Mutex::Autolock lock(mMutex);
    mReached = true;
    mCondition.broadcast();
}

void StoreBarrier::awaitReached() {
    Mutex::Autolock lock(mMutex);
    while (!mReached) {
        (void)mCondition.wait(mMutex);  // fails on a broken mutex only
    }
}

}  // namespace android
