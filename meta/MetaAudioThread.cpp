#include "meta/MetaAudioThread.h"

#include <unistd.h>

#include "service/SonorelService.h"

namespace android {

namespace {

constexpr useconds_t kTickPeriodUs = 8000;

}  // namespace

MetaAudioThread::MetaAudioThread(const sp<SonorelService>& service)
        : Thread(false /*canCallJava*/), mService(service) {}

MetaAudioThread::~MetaAudioThread() = default;

void MetaAudioThread::requestExit() {
    Thread::requestExit();
}

bool MetaAudioThread::threadLoop() {
    while (!exitPending()) {
        onWork();
        usleep(kTickPeriodUs);
    }
    return false;
}

void MetaAudioThread::onWork() {
    using qelto::halvend::IHalvendClient;
    const auto entry = mService->findClient(IHalvendClient::CLIENT_ID_META_THREAD);
    if (entry == nullptr || entry->mClient == nullptr) return;
    // Nobody to tell: a client that is gone misses its tick.
    (void)entry->mClient->onClientEventOneWay(IHalvendClient::CB_META_THREAD_TICK,
                                              qelto::halvend::CallbackData());
}

}  // namespace android
