// Lets a thread wait until the looper has carried out everything posted before.
//
// A deferred write goes to the store's user and device of the moment at which it is carried out.
// Who is about to change these waits here first, so that no write lands with the wrong ones.
#pragma once

#include <media/stagefright/foundation/AHandler.h>
#include <media/stagefright/foundation/AMessage.h>
#include <utils/Condition.h>
#include <utils/Mutex.h>
#include <utils/StrongPointer.h>

namespace android {

struct ALooper;

class StoreBarrier : public AHandler {
public:
    // Blocks until the looper has reached this point. Not to be called on the looper's own thread.
    // The looper takes none of the service's locks, so a caller may hold them.
    static void await(const sp<ALooper>& looper);

    void onMessageReceived(const sp<AMessage>& msg) override;

private:
    void awaitReached() EXCLUDES(mMutex);

    Mutex mMutex;
    Condition mCondition;
    bool mReached GUARDED_BY(mMutex) = false;
};

}  // namespace android
