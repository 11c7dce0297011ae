// Lets a thread wait until the looper has carried out everything posted before.
//
// A deferred write goes to the store's user and device at the moment at which it is carried out.
// Call await() before changing user or device, so that pending writes go to the old one.
#pragma once

#include <chrono>

#include <media/stagefright/foundation/AHandler.h>
#include <media/stagefright/foundation/AMessage.h>
#include <utils/Condition.h>
#include <utils/Mutex.h>
#include <utils/StrongPointer.h>

namespace android {

struct ALooper;

class StoreBarrier : public AHandler {
public:
    static constexpr std::chrono::milliseconds kForever = std::chrono::hours(24 * 365);

    // Blocks until the looper has reached this point; false when it has not within `patience`. Not
    // to be called on the looper's own thread. The looper takes none of the service's locks, so a
    // caller may hold them.
    [[nodiscard]] static bool await(const sp<ALooper>& looper, std::chrono::milliseconds patience);

    void onMessageReceived(const sp<AMessage>& msg) override;

private:
    bool awaitReached(std::chrono::milliseconds patience) EXCLUDES(mMutex);

    Mutex mMutex;
    Condition mCondition;
    bool mReached GUARDED_BY(mMutex) = false;
};

}  // namespace android
