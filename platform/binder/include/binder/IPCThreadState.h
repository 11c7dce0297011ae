#pragma once

#include <stdint.h>
#include <sys/types.h>
#include <utils/Errors.h>

namespace android {

namespace transport {
struct ServedCall;
}  // namespace transport

/**
 * The binder state of one thread: on whose behalf it runs. While a thread serves a call, the
 * calling uid and pid are the kernel's word on the process at the other end, as of its connecting;
 * a one-way call has the pid 0. In every other place, local calls included, they are this process's
 * own. Each thread uses only its own object.
 */
class IPCThreadState {
public:
    /** This thread's state; never null. */
    static IPCThreadState* self();
    IPCThreadState(const IPCThreadState&) = delete;
    IPCThreadState& operator=(const IPCThreadState&) = delete;

    [[nodiscard]] pid_t getCallingPid() const { return mIdentity.pid; }
    [[nodiscard]] uid_t getCallingUid() const { return mIdentity.uid; }

    /** Makes the calling identity the process's own; the token restores it. */
    int64_t clearCallingIdentity();
    /** Makes `token` the calling identity: the uid in the high word, the pid in the low one. */
    void restoreCallingIdentity(int64_t token);

    /** True while the thread serves a call of another process. */
    [[nodiscard]] bool isServingCall() const { return mServed != nullptr; }

    /** Makes this thread one of the pool that serves calls. Does not return. */
    void joinThreadPool(bool isMain = true);
    /** Nothing is ever held back on a host. */
    void flushCommands() {}

    // ---- For the transport ----

    struct Identity {
        pid_t pid;
        uid_t uid;
    };
    /** Starts to serve `call`; returns the identity to give to leaveCall. */
    Identity enterCall(const transport::ServedCall* call, pid_t pid, uid_t uid);
    void leaveCall(const transport::ServedCall* outer, Identity outerIdentity);
    /** The innermost call that the thread serves, or null. */
    [[nodiscard]] const transport::ServedCall* servedCall() const { return mServed; }

private:
    IPCThreadState();
    ~IPCThreadState() = default;

    Identity mIdentity;
    const transport::ServedCall* mServed = nullptr;
};

}  // namespace android
