#include <binder/BpBinder.h>
#include <binder/ProcessState.h>

#include "transport/Transport.h"

namespace android {

using transport::Transport;

sp<ProcessState> ProcessState::self() {
    static const sp<ProcessState>* const sSelf = new sp<ProcessState>(new ProcessState());
    return *sSelf;
}

void ProcessState::startThreadPool() {
    Transport::get().startThreadPool();
}

status_t ProcessState::setThreadPoolMaxThreadCount(size_t maxThreads) {
    Transport::get().setMaxThreads(maxThreads);
    return OK;
}

sp<IBinder> ProcessState::getContextObject(const sp<IBinder>& /*caller*/) {
    return Transport::get().contextObject();
}

status_t ProcessState::becomeContextManager(const sp<BBinder>& object) {
    return Transport::get().becomeContextManager(object);
}

OneWayCounters ProcessState::oneWayCounters(const sp<IBinder>& remote) const {
    BpBinder* const proxy = remote == nullptr ? nullptr : remote->remoteBinder();
    if (proxy == nullptr || proxy->owner() == nullptr) return {};
    const transport::OneWayFlow::Counters counters = proxy->owner()->flow().counters();
    return {counters.sent, counters.delivered, counters.failed};
}

std::string ProcessState::limitsReport() const {
    return Transport::get().accounts().report();
}

}  // namespace android
