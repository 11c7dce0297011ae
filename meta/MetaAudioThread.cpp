#include "meta/MetaAudioThread.h"

#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>

#include <utils/AndroidThreads.h>

#include "service/ServiceLog.h"
#include "service/SonorelService.h"

namespace android {

namespace {

constexpr useconds_t kTickPeriodUs = 8000;

// Both concern the calling thread. Thread::run() does them on a device, and not everywhere else.
void takeNameAndPriority() {
    androidSetThreadName("MetaAudioThread");
    if (setpriority(PRIO_PROCESS, 0, ANDROID_PRIORITY_AUDIO) == 0) return;
    SONOREL_LOGD("%s: the worker keeps its priority, errno=%d", __func__, errno);
}

}  // namespace

MetaAudioThread::MetaAudioThread(const sp<SonorelService>& service)
        : Thread(false /*canCallJava*/), mService(service) {}

MetaAudioThread::~MetaAudioThread() {
    // A thread holds this object until it ends, so this never waits: it takes the lock under which
    // the thread said that it ended.
    (void)join();
}

void MetaAudioThread::requestExit() {
    Thread::requestExit();
}

bool MetaAudioThread::threadLoop() {
    // A running thread keeps the service alive. One whose service went before it came to run ends.
    const sp<SonorelService> service = mService.promote();
    takeNameAndPriority();
    while (service != nullptr && !exitPending()) {
        onWork(*service);
        usleep(kTickPeriodUs);
    }
    return false;
}

void MetaAudioThread::onWork(const SonorelService& service) {
    using qelto::halvend::IHalvendClient;
    const auto entry = service.findClient(IHalvendClient::CLIENT_ID_META_THREAD);
    if (entry == nullptr || entry->mClient == nullptr) return;
    // Nobody to tell: a client that is gone misses its tick.
    (void)entry->mClient->onClientEventOneWay(IHalvendClient::CB_META_THREAD_TICK,
                                              qelto::halvend::CallbackData());
}

}  // namespace android
