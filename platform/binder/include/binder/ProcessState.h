#pragma once

#include <binder/Binder.h>
#include <binder/IBinder.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>

#include <string>

namespace android {

/** What this process did with one-way calls to other processes. */
struct OneWayCounters {
    /** Accepted from the caller. */
    uint64_t sent;
    /** Run to their end by the receiver. */
    uint64_t delivered;
    /** Refused, because too many waited at the receiver or the call could not leave. */
    uint64_t failed;
};

/**
 * This process's binder. Processes meet in a folder: $SONOREL_RUNTIME_DIR, by default
 * $XDG_RUNTIME_DIR/sonorel, else /tmp/sonorel-UID. It is read at the first use of any binder.
 *
 * In a child of fork() that has not called exec binder does not work: calls fail with
 * INVALID_OPERATION, and there is no context object. Thread-safe.
 */
class ProcessState : public virtual RefBase {
public:
    /** The one object of the process; it is never destroyed. */
    static sp<ProcessState> self();
    ProcessState(const ProcessState&) = delete;
    ProcessState& operator=(const ProcessState&) = delete;

    /**
     * Starts the pool: threads that serve calls and tell of deaths, more of them as they are
     * needed. A process without it serves only the calls that come back to a thread which waits for
     * a reply.
     */
    void startThreadPool();
    /** Threads that the pool starts at most, 15 unless set; threads that join come on top. */
    status_t setThreadPoolMaxThreadCount(size_t maxThreads);

    /**
     * The context manager's object; null while no process is the context manager. It is believed of
     * root, the owner of the folder and the users in $SONOREL_TRUSTED_UIDS ("1000,1041" unless
     * built otherwise), by the kernel's word on the connection.
     */
    sp<IBinder> getContextObject(const sp<IBinder>& caller);
    /**
     * Makes `object` the one that getContextObject answers in every process of the folder, until
     * this process ends. ALREADY_EXISTS while another process is the context manager,
     * PERMISSION_DENIED for a user of whom it would not be believed.
     */
    [[nodiscard]] status_t becomeContextManager(const sp<BBinder>& object);

    /** Where the processes meet, as named above. */
    [[nodiscard]] const std::string& runtimeFolder() const;
    /**
     * The process that owns `remote`; 0 for a local object, and for one whose owner had ended as it
     * came. Asks nobody: a process that is stopped is named too.
     */
    [[nodiscard]] pid_t ownerPid(const sp<IBinder>& remote) const;

    /** One-way calls to the living process that owns `remote`; zeros for a local object. */
    [[nodiscard]] OneWayCounters oneWayCounters(const sp<IBinder>& remote) const;

    /**
     * How much of this process the processes of each user hold and may hold: connections, bytes,
     * descriptors, references, running calls. Lines of text.
     */
    [[nodiscard]] std::string limitsReport() const;

private:
    ProcessState() = default;
    ~ProcessState() override = default;
};

}  // namespace android
