#pragma once

#include <sys/un.h>
#include <utils/Errors.h>

#include <functional>
#include <string>

#include "OwnFd.h"
#include "Wire.h"

namespace android::transport {

/**
 * The folder where the processes of one system find each other: $SONOREL_RUNTIME_DIR, else
 * $XDG_RUNTIME_DIR/sonorel, else /tmp/sonorel-UID. It is made on first need, open to every uid and
 * sticky, as the rights of a call are decided by the caller's uid and not by who may connect.
 *
 *     PID-RANDOM      the listening socket of a process; removed at its exit, swept after a crash
 *     manager         symbolic link to the socket of the context manager
 *     manager.lock    locked by the context manager while it lives
 *
 * Names here prove nothing: anybody can make some, so who is at the other end is told by the
 * kernel on the connection. Sockets appear under their names only once they listen, so a name that
 * refuses connections belongs to a process that has ended. Paths longer than a socket address are
 * reached through a descriptor of the folder. Thread-safe: nothing changes after construction.
 */
class RuntimeDir {
public:
    /**
     * Finds and if need be makes the folder, the one at `path` if that is not empty. A folder that
     * cannot be used is logged.
     */
    explicit RuntimeDir(const std::string& path = "");

    /** Makes this process's socket and sweeps what dead processes left. */
    [[nodiscard]] status_t listen(const ProcessName& self, OwnFd* outSocket) const;

    /**
     * Connects to a process. NAME_NOT_FOUND when it has ended, WOULD_BLOCK when it does not accept
     * connections fast enough: for two seconds if `wait`, else right now.
     */
    [[nodiscard]] status_t connect(const ProcessName& process, bool wait, OwnFd* outSocket) const;

    /** Removes the socket of a process that has ended; leaves one that still listens. */
    void sweep(const ProcessName& process) const;

    /**
     * Makes `self` the context manager, or ALREADY_EXISTS while another process is. A lock that
     * belongs to a user whom `trusts` denies is taken away.
     */
    [[nodiscard]] status_t publishManager(const ProcessName& self,
                                          const std::function<bool(uid_t)>& trusts,
                                          OwnFd* outLock) const;
    [[nodiscard]] status_t findManager(ProcessName* outName) const;

    /** Removes what this process made, at its exit. */
    void remove(const ProcessName& self, bool isManager) const;

    [[nodiscard]] const std::string& path() const { return mPath; }
    /** Of the folder, as it was found. */
    [[nodiscard]] uid_t ownerUid() const { return mOwnerUid; }

private:
    [[nodiscard]] status_t openLock(OwnFd* outLock) const;
    [[nodiscard]] bool fillAddress(const std::string& name, sockaddr_un* outAddress) const;
    void sweepAll() const;

    std::string mPath;
    OwnFd mFolder;
    uid_t mOwnerUid = 0;
};

}  // namespace android::transport
