#define LOG_TAG "ALooper"

#include <log/log.h>
#include <media/stagefright/foundation/AHandler.h>
#include <media/stagefright/foundation/ALooper.h>
#include <media/stagefright/foundation/AMessage.h>
#include <pthread.h>
#include <sys/resource.h>
#include <utils/Timers.h>

#include <atomic>
#include <cerrno>
#include <iterator>
#include <string>
#include <system_error>
#include <vector>

#include "LooperQueue.h"

namespace android {
namespace {

// Both concern the calling thread.
void nameThread(const std::string& name) {
    constexpr size_t kMaxThreadName = 15;
    (void)pthread_setname_np(pthread_self(), name.substr(0, kMaxThreadName).c_str());
}

void setThreadPriority(const std::string& name, int32_t priority) {
    if (priority == PRIORITY_DEFAULT || setpriority(PRIO_PROCESS, 0, priority) == 0) return;
    // Without the right to it the loop works at the default priority.
    ALOGI("looper %s keeps its priority: %s", name.c_str(),
          std::generic_category().message(errno).c_str());
}

}  // namespace

ALooper::handler_id AHandler::id() const {
    Mutex::Autolock lock(mLock);
    return mID;
}

wp<ALooper> AHandler::getLooper() const {
    Mutex::Autolock lock(mLock);
    return mLooper;
}

ALooper::ALooper() : mQueue(std::make_shared<LooperQueue>()) {}

ALooper::~ALooper() {
    // INVALID_OPERATION only says that it does not run.
    (void)stop();
}

int64_t ALooper::GetNowUs() {
    return ns2us(systemTime(SYSTEM_TIME_MONOTONIC));
}

void ALooper::setName(const char* name) {
    Mutex::Autolock lock(mLock);
    mName = name;
}

const char* ALooper::getName() const {
    Mutex::Autolock lock(mLock);
    return mName.c_str();
}

ALooper::handler_id ALooper::registerHandler(const sp<AHandler>& handler) {
    static std::atomic<handler_id> sLastId{0};
    // Released after the locks: the last reference to a looper stops it, that to a handler runs
    // code of others.
    sp<ALooper> current;
    std::vector<sp<AHandler>> alive;
    Mutex::Autolock lock(mLock);
    handler_id id = 0;
    {
        Mutex::Autolock handlerLock(handler->mLock);
        current = handler->mLooper.promote();
        // A looper that is gone took its registrations with it.
        if (handler->mID != 0 && current != nullptr) return INVALID_OPERATION;
        id = ++sLastId;
        handler->mID = id;
        handler->mLooper = this;
    }
    for (auto it = mHandlers.begin(); it != mHandlers.end();) {
        alive.push_back(it->second.promote());
        it = alive.back() == nullptr ? mHandlers.erase(it) : std::next(it);
    }
    mHandlers[id] = handler;
    return id;
}

void ALooper::unregisterHandler(handler_id handlerID) {
    sp<AHandler> handler;
    {
        Mutex::Autolock lock(mLock);
        const auto found = mHandlers.find(handlerID);
        if (found == mHandlers.end()) return;
        handler = found->second.promote();
        mHandlers.erase(found);
    }
    if (handler == nullptr) return;
    Mutex::Autolock lock(handler->mLock);
    if (handler->mID != handlerID) return;
    handler->mID = 0;
    handler->mLooper.clear();
}

status_t ALooper::start(bool runOnCallingThread, bool /*canCallJava*/, int32_t priority) {
    LooperQueue::Run run = 0;
    {
        Mutex::Autolock lock(mLock);
        if (mRunning) return INVALID_OPERATION;
        if (!runOnCallingThread) return startThread(priority);
        mRunning = true;
        run = mQueue->beginRun();
    }
    // The caller may let go of the looper inside a message.
    const std::shared_ptr<LooperQueue> queue = mQueue;
    queue->loop(run);
    return OK;
}

status_t ALooper::startThread(int32_t priority) {
    const std::string name = mName.empty() ? "ALooper" : mName.c_str();
    const LooperQueue::Run run = mQueue->beginRun();
    try {
        mThread = std::thread([queue = mQueue, run, name, priority] {
            nameThread(name);
            setThreadPriority(name, priority);
            queue->loop(run);
        });
    } catch (const std::system_error& error) {
        ALOGE("looper %s gets no thread: %s", name.c_str(), error.what());
        return -error.code().value();
    }
    mRunning = true;
    return OK;
}

status_t ALooper::stop() {
    std::thread thread;
    {
        Mutex::Autolock lock(mLock);
        if (!mRunning) return INVALID_OPERATION;
        mRunning = false;
        thread.swap(mThread);
    }
    mQueue->endRun();
    if (!thread.joinable()) return OK;
    if (thread.get_id() == std::this_thread::get_id()) {
        // It leaves by itself when the message is done, and touches the queue alone.
        thread.detach();
    } else {
        thread.join();
    }
    return OK;
}

void ALooper::post(const sp<AMessage>& msg, int64_t delayUs) {
    mQueue->post(msg, delayUs);
}

}  // namespace android
