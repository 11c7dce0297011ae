#pragma once

#include <media/stagefright/foundation/ABase.h>
#include <media/stagefright/foundation/AString.h>
#include <utils/Errors.h>
#include <utils/Mutex.h>
#include <utils/RefBase.h>
#include <utils/ThreadDefs.h>

#include <map>
#include <memory>
#include <thread>

namespace android {

class LooperQueue;
struct AHandler;
struct AMessage;

// Delivers messages one at a time, in the order of their times and, for equal times, of their
// posting. Thread-safe.
struct ALooper : public RefBase {
    using event_id = int32_t;
    using handler_id = int32_t;

    ALooper();

    // The thread's name, from the next start() on.
    void setName(const char* name);

    // A handler is registered with one looper at a time. Returns its id, above 0, or
    // INVALID_OPERATION when it is registered already.
    handler_id registerHandler(const sp<AHandler>& handler);
    // Messages made before still reach the handler; later ones find no looper.
    void unregisterHandler(handler_id handlerID);

    // Starts delivery on a thread of its own with the given nice value (kept at the default, with a
    // log line, where this process may not set it), or on the calling thread, which then returns
    // once another thread calls stop(). What was posted before is delivered. INVALID_OPERATION
    // while it runs. `canCallJava` has no meaning on a host.
    status_t start(bool runOnCallingThread = false, bool canCallJava = false,
                   int32_t priority = PRIORITY_DEFAULT);

    // Ends delivery and drops what is queued. Waits for the message that is being handled, unless
    // called from inside it. INVALID_OPERATION when it does not run.
    status_t stop();

    // The monotonic clock, in microseconds.
    static int64_t GetNowUs();

    const char* getName() const;

protected:
    // Stops. The last reference may go on the looper's own thread.
    ~ALooper() override;

private:
    friend struct AMessage;

    void post(const sp<AMessage>& msg, int64_t delayUs);
    status_t startThread(int32_t priority) REQUIRES(mLock);

    // Shared with the thread, which may outlive the looper by the end of its last message.
    const std::shared_ptr<LooperQueue> mQueue;
    mutable Mutex mLock;
    AString mName GUARDED_BY(mLock);
    std::map<handler_id, wp<AHandler>> mHandlers GUARDED_BY(mLock);
    std::thread mThread GUARDED_BY(mLock);
    bool mRunning GUARDED_BY(mLock) = false;

    DISALLOW_EVIL_CONSTRUCTORS(ALooper);
};

}  // namespace android
