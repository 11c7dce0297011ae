#define LOG_TAG "BinderTransport"

#include "RuntimeDir.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <log/log.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>

#include "ErrorText.h"
#include "FlakeDelay.h"

namespace android::transport {

namespace {

constexpr char kManagerLink[] = "manager";
constexpr char kManagerLock[] = "manager.lock";
/** Connections that may wait to be accepted: of strangers a few milliseconds' worth. */
constexpr int kBacklog = 128;

/** True when the folder was named by the environment; else its owner must be checked. */
bool choosePath(std::string* outPath) {
    // NOLINTBEGIN(concurrency-mt-unsafe): read once, under the lock of a static's construction
    if (const char* named = getenv("SONOREL_RUNTIME_DIR"); named != nullptr && *named != '\0') {
        *outPath = named;
        return true;
    }
    if (const char* runtime = getenv("XDG_RUNTIME_DIR"); runtime != nullptr && *runtime != '\0') {
        *outPath = std::string(runtime) + "/sonorel";
        return true;
    }
    // NOLINTEND(concurrency-mt-unsafe)
    *outPath = "/tmp/sonorel-" + std::to_string(geteuid());
    return false;
}

OwnFd newSocket(int flags) {
    return OwnFd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0));
}

void setSendTimeout(int socket, timeval within) {
    (void)setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &within, sizeof(within));  // knows the option
}

}  // namespace

RuntimeDir::RuntimeDir(const std::string& path) : mPath(path) {
    const bool named = !path.empty() || choosePath(&mPath);
    if (mkdir(mPath.c_str(), 0700) == 0) {
        // Apart from mkdir, whose mode the umask cuts.
        if (chmod(mPath.c_str(), 01777) != 0) {
            ALOGE("Cannot open %s to every uid: %s", mPath.c_str(), errorText(errno).c_str());
        }
    } else if (errno != EEXIST) {
        ALOGE("Cannot make the runtime folder %s: %s", mPath.c_str(), errorText(errno).c_str());
        return;
    }
    const int follow = named ? 0 : O_NOFOLLOW;
    OwnFd folder(open(mPath.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC | follow));
    struct stat info = {};
    if (folder.get() < 0 || fstat(folder.get(), &info) != 0) {
        ALOGE("Cannot open the runtime folder %s: %s", mPath.c_str(), errorText(errno).c_str());
        return;
    }
    if (!named && info.st_uid != geteuid()) {
        // Anyone can create this path in /tmp first; a folder of another user would let that user
        // receive our calls.
        ALOGE("The runtime folder %s belongs to uid %u; name another one in SONOREL_RUNTIME_DIR",
              mPath.c_str(), info.st_uid);
        return;
    }
    mFolder = std::move(folder);
    mOwnerUid = info.st_uid;
}

bool RuntimeDir::fillAddress(const std::string& name, sockaddr_un* outAddress) const {
    if (mFolder.get() < 0) return false;
    *outAddress = {};
    outAddress->sun_family = AF_UNIX;
    std::string path = mPath + "/" + name;
    if (path.size() >= sizeof(outAddress->sun_path)) {
        path = "/proc/self/fd/" + std::to_string(mFolder.get()) + "/" + name;
    }
    memcpy(outAddress->sun_path, path.c_str(), path.size() + 1);
    return true;
}

status_t RuntimeDir::listen(const ProcessName& self, OwnFd* outSocket) const {
    sweepAll();
    const std::string name = self.toString();
    const std::string draft = ".new-" + name;
    sockaddr_un address;
    if (!fillAddress(draft, &address)) return NO_INIT;
    OwnFd socket = newSocket(SOCK_NONBLOCK);
    if (socket.get() < 0) return -errno;
    flakeDelay();
    const bool listening =
            bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 &&
            fchmodat(mFolder.get(), draft.c_str(), 0666, 0) == 0 &&
            ::listen(socket.get(), kBacklog) == 0 &&
            renameat(mFolder.get(), draft.c_str(), mFolder.get(), name.c_str()) == 0;
    if (!listening) {
        const int error = errno;
        ALOGE("Cannot listen in %s: %s", mPath.c_str(), errorText(error).c_str());
        (void)unlinkat(mFolder.get(), draft.c_str(), 0);  // it may not have come to exist
        return -error;
    }
    *outSocket = std::move(socket);
    return OK;
}

status_t RuntimeDir::connect(const ProcessName& process, bool wait, OwnFd* outSocket) const {
    sockaddr_un address;
    if (!fillAddress(process.toString(), &address)) return NO_INIT;
    OwnFd socket = newSocket(wait ? 0 : SOCK_NONBLOCK);
    if (socket.get() < 0) return -errno;
    flakeDelay();
    // Waits for its turn behind others who connect, but not for good: a process that has stopped
    // accepting must not hold its callers.
    setSendTimeout(socket.get(), {2, 0});
    if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) !=
        0) {
        const int error = errno;
        if (error == ECONNREFUSED) {
            (void)unlinkat(mFolder.get(), process.toString().c_str(), 0);  // ours or not
            return NAME_NOT_FOUND;
        }
        // Not of names that others have sent: strangers may send any number of them.
        if (error != ENOENT && wait) {
            ALOGE("Cannot connect to process %u: %s", process.pid, errorText(error).c_str());
        }
        return error == ENOENT ? status_t{NAME_NOT_FOUND} : -error;
    }
    setSendTimeout(socket.get(), {0, 0});        // none
    (void)fcntl(socket.get(), F_SETFL, O_RDWR);  // blocking from here on
    *outSocket = std::move(socket);
    return OK;
}

void RuntimeDir::sweep(const ProcessName& process) const {
    sockaddr_un address;
    if (!fillAddress(process.toString(), &address)) return;
    const OwnFd socket = newSocket(SOCK_NONBLOCK);
    if (socket.get() < 0) return;
    if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) !=
                0 &&
        errno == ECONNREFUSED) {
        (void)unlinkat(mFolder.get(), process.toString().c_str(), 0);  // another uid's file stays
    }
}

void RuntimeDir::sweepAll() const {
    if (mFolder.get() < 0) return;
    const int fd = openat(mFolder.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(fdopendir(fd), closedir);
    if (folder == nullptr) {
        close(fd);
        return;
    }
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the stream is this function's own
    while (const dirent* entry = readdir(folder.get())) {
        ProcessName name;
        if (!ProcessName::parse(entry->d_name, &name)) continue;
        // A quick look first, so that living processes are not bothered with a connection.
        if (kill(static_cast<pid_t>(name.pid), 0) != 0 && errno == ESRCH) sweep(name);
    }
}

status_t RuntimeDir::openLock(OwnFd* outLock) const {
    if (mFolder.get() < 0) return NO_INIT;
    // An existing file first: in a sticky folder O_CREAT refuses even root another uid's file.
    constexpr int kFlags = O_RDWR | O_CLOEXEC | O_NOFOLLOW;
    OwnFd lock(openat(mFolder.get(), kManagerLock, kFlags));
    if (lock.get() < 0 && errno == ENOENT) {
        // No rights for others: who can open the file could lock the manager out.
        lock = OwnFd(openat(mFolder.get(), kManagerLock, kFlags | O_CREAT, 0600));
    }
    if (lock.get() < 0) {
        const int error = errno;
        ALOGE("Cannot open %s/%s: %s", mPath.c_str(), kManagerLock, errorText(error).c_str());
        return -error;
    }
    *outLock = std::move(lock);
    return OK;
}

status_t RuntimeDir::publishManager(const ProcessName& self,
                                    const std::function<bool(uid_t)>& trusts,
                                    OwnFd* outLock) const {
    OwnFd lock;
    if (const status_t status = openLock(&lock); status != OK) return status;
    struct stat info = {};
    if (fstat(lock.get(), &info) != 0) return -errno;
    if (!trusts(info.st_uid)) {
        ALOGW("%s/%s belonged to uid %u", mPath.c_str(), kManagerLock, info.st_uid);
        (void)unlinkat(mFolder.get(), kManagerLock, 0);  // or the same file is opened again
        if (const status_t status = openLock(&lock); status != OK) return status;
    }
    if (flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
        return errno == EWOULDBLOCK ? status_t{ALREADY_EXISTS} : -errno;
    }
    const std::string name = self.toString();
    const std::string draft = ".manager-" + name;
    if (symlinkat(name.c_str(), mFolder.get(), draft.c_str()) != 0 ||
        renameat(mFolder.get(), draft.c_str(), mFolder.get(), kManagerLink) != 0) {
        const int error = errno;
        ALOGE("Cannot become context manager in %s: %s", mPath.c_str(), errorText(error).c_str());
        (void)unlinkat(mFolder.get(), draft.c_str(), 0);  // it may not have come to exist
        return -error;
    }
    *outLock = std::move(lock);
    return OK;
}

status_t RuntimeDir::findManager(ProcessName* outName) const {
    if (mFolder.get() < 0) return NO_INIT;
    char target[64];
    const ssize_t length = readlinkat(mFolder.get(), kManagerLink, target, sizeof(target));
    if (length < 0) return NAME_NOT_FOUND;
    return ProcessName::parse(std::string(target, length), outName) ? OK : BAD_VALUE;
}

void RuntimeDir::remove(const ProcessName& self, bool isManager) const {
    ProcessName manager;
    if (isManager && findManager(&manager) == OK && manager == self) {
        (void)unlinkat(mFolder.get(), kManagerLink, 0);  // nothing to be done at exit
    }
    (void)unlinkat(mFolder.get(), self.toString().c_str(), 0);
}

}  // namespace android::transport
