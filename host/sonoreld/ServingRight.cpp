#define LOG_TAG "sonoreld"

#include "ServingRight.h"

#include <fcntl.h>
#include <log/log.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace sonorel::host {
namespace {

// What the bytes of the file mean when they are locked.
constexpr off_t kServing = 0;
constexpr off_t kLeaving = 1;

// A process leaves within about a second of its signal.
constexpr int kLeavingMs = 3000;
// How often the lock may change hands while this process looks for its holder.
constexpr int kMaxLooks = 16;

struct flock byteOf(off_t byte) {
    struct flock range = {};
    range.l_type = F_WRLCK;
    range.l_whence = SEEK_SET;
    range.l_start = byte;
    range.l_len = 1;
    return range;
}

bool lock(int file, off_t byte) {
    struct flock range = byteOf(byte);
    return fcntl(file, F_SETLK, &range) == 0;
}

// 0 when nobody else has it.
pid_t holderOf(int file, off_t byte) {
    struct flock range = byteOf(byte);
    if (fcntl(file, F_GETLK, &range) != 0 || range.l_type == F_UNLCK) return 0;
    return range.l_pid;
}

// False when the process still runs after `withinMs`.
bool awaitEnd(pid_t process, int withinMs) {
    const auto descriptor = static_cast<int>(syscall(SYS_pidfd_open, process, 0));
    if (descriptor < 0) return errno == ESRCH;
    pollfd polled{descriptor, POLLIN, 0};
    int result = 0;
    while ((result = poll(&polled, 1, withinMs)) < 0 && errno == EINTR) {
    }
    (void)close(descriptor);
    return result == 1;
}

bool isOwnFile(const struct stat& info) {
    return S_ISREG(info.st_mode) && info.st_uid == geteuid();
}

// The user's own file. One of another user, who could keep everybody out by it, is removed, which
// root and the owner of the folder may do. -1 with errno.
int openOwn(const std::string& path) {
    constexpr int kFlags = O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
    for (int attempt = 0; attempt < 2; ++attempt) {
        // An existing file first: in a sticky folder O_CREAT refuses even root another uid's file.
        int file = open(path.c_str(), kFlags);
        if (file < 0 && errno == ENOENT) file = open(path.c_str(), kFlags | O_CREAT, 0600);
        const int error = errno;
        struct stat info = {};
        if (file >= 0) {
            if (fstat(file, &info) == 0 && isOwnFile(info)) return file;
            (void)close(file);
        } else if (lstat(path.c_str(), &info) != 0 || isOwnFile(info)) {
            errno = error;
            return -1;
        }
        if (unlink(path.c_str()) != 0) return -1;
    }
    errno = EEXIST;
    return -1;
}

}  // namespace

ServingRight::ServingRight(const std::string& folder)
        : mFile(openOwn(folder + "/sonoreld-" + std::to_string(geteuid()) + ".lock")) {
    if (mFile < 0) {
        ALOGW("no lock in %s, two at once are not noticed: %s", folder.c_str(),
              std::generic_category().message(errno).c_str());
    }
}

pid_t ServingRight::take() {
    for (int look = 0; mFile >= 0 && look < kMaxLooks; ++look) {
        if (lock(mFile, kServing)) return 0;
        if (errno != EACCES && errno != EAGAIN) break;
        const pid_t holder = holderOf(mFile, kServing);
        if (holder == 0) continue;  // it has ended meanwhile
        if (holderOf(mFile, kLeaving) != holder || !awaitEnd(holder, kLeavingMs)) return holder;
    }
    return 0;
}

void ServingRight::announceLeaving() {
    if (mFile >= 0) (void)lock(mFile, kLeaving);  // nobody else locks it
}

}  // namespace sonorel::host
