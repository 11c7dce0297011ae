#pragma once

#include <media/stagefright/foundation/ALooper.h>
#include <utils/Mutex.h>
#include <utils/RefBase.h>

namespace android {

struct AMessage;

// Receives messages on the thread of the looper with which it is registered, one at a time. The
// looper holds its handlers weakly: the owner keeps them alive.
struct AHandler : public RefBase {
    AHandler() = default;

    // 0 while it is not registered.
    ALooper::handler_id id() const;
    sp<ALooper> looper() const { return getLooper().promote(); }
    wp<ALooper> getLooper() const;
    wp<AHandler> getHandler() const { return const_cast<AHandler*>(this); }

protected:
    ~AHandler() override = default;

    // On the looper's thread. May post, register, unregister and stop.
    virtual void onMessageReceived(const sp<AMessage>& msg) = 0;

private:
    friend struct AMessage;
    friend struct ALooper;

    mutable Mutex mLock;
    ALooper::handler_id mID GUARDED_BY(mLock) = 0;
    wp<ALooper> mLooper GUARDED_BY(mLock);

    DISALLOW_EVIL_CONSTRUCTORS(AHandler);
};

}  // namespace android
