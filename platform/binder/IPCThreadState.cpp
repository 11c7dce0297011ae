#include <binder/IPCThreadState.h>
#include <unistd.h>

#include <type_traits>
#include <utility>

#include "transport/Transport.h"

namespace android {

IPCThreadState::IPCThreadState() : mIdentity{getpid(), getuid()} {}

IPCThreadState* IPCThreadState::self() {
    // Nothing to destroy, so it still serves whoever calls while the thread or the process ends.
    static_assert(std::is_trivially_destructible_v<Identity>);
    static thread_local IPCThreadState sState;
    return &sState;
}

int64_t IPCThreadState::clearCallingIdentity() {
    const int64_t token = static_cast<int64_t>(static_cast<uint64_t>(mIdentity.uid) << 32 |
                                               static_cast<uint32_t>(mIdentity.pid));
    mIdentity = {getpid(), getuid()};
    return token;
}

void IPCThreadState::restoreCallingIdentity(int64_t token) {
    mIdentity.uid = static_cast<uid_t>(static_cast<uint64_t>(token) >> 32);
    mIdentity.pid = static_cast<pid_t>(static_cast<uint32_t>(token));
}

void IPCThreadState::joinThreadPool(bool /*isMain*/) {
    transport::Transport::get().joinThreadPool();
}

IPCThreadState::Identity IPCThreadState::enterCall(const transport::ServedCall* call, pid_t pid,
                                                   uid_t uid) {
    mServed = call;
    return std::exchange(mIdentity, Identity{pid, uid});
}

void IPCThreadState::leaveCall(const transport::ServedCall* outer, Identity outerIdentity) {
    mServed = outer;
    mIdentity = outerIdentity;
}

}  // namespace android
