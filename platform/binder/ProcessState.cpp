#include <binder/BpBinder.h>
#include <binder/ProcessState.h>

#include "transport/Transport.h"

namespace android {

using transport::Transport;

namespace {

/** Null for a local object, and for one whose owner had ended as it came. */
transport::PeerPtr ownerOf(const sp<IBinder>& remote) {
    BpBinder* const proxy = remote == nullptr ? nullptr : remote->remoteBinder();
    return proxy == nullptr ? nullptr : proxy->owner();
}

}  // namespace

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

const std::string& ProcessState::runtimeFolder() const {
    return Transport::get().folder();
}

pid_t ProcessState::ownerPid(const sp<IBinder>& remote) const {
    const transport::PeerPtr owner = ownerOf(remote);
    return owner == nullptr ? 0 : owner->pid();
}

OneWayCounters ProcessState::oneWayCounters(const sp<IBinder>& remote) const {
    const transport::PeerPtr owner = ownerOf(remote);
    if (owner == nullptr) return {};
    const transport::OneWayFlow::Counters counters = owner->flow().counters();
    return {counters.sent, counters.delivered, counters.failed};
}

std::string ProcessState::limitsReport() const {
    return Transport::get().accounts().report();
}

}  // namespace android
