#include "DumpText.h"

#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <linux/major.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace android {

namespace {

// What is written between two looks at the clock.
constexpr size_t kPieceBytes = 4096;

/** Keeps a SIGPIPE of this thread's own making from the process. */
class NoSigpipe {
public:
    NoSigpipe() {
        sigset_t pending;
        ::sigemptyset(&mPipe);
        ::sigaddset(&mPipe, SIGPIPE);
        ::sigpending(&pending);
        mPendingBefore = ::sigismember(&pending, SIGPIPE) == 1;
        ::pthread_sigmask(SIG_BLOCK, &mPipe, &mEarlier);
    }
    ~NoSigpipe() {
        constexpr timespec kNoWait = {0, 0};
        while (!mPendingBefore && ::sigtimedwait(&mPipe, nullptr, &kNoWait) < 0 && errno == EINTR) {
        }
        ::pthread_sigmask(SIG_SETMASK, &mEarlier, nullptr);
    }
    NoSigpipe(const NoSigpipe&) = delete;
    NoSigpipe& operator=(const NoSigpipe&) = delete;

private:
    sigset_t mPipe = {};
    sigset_t mEarlier = {};
    bool mPendingBefore = false;
};

bool isReady(int fd, int timeoutMs) {
    pollfd entry = {fd, POLLOUT, 0};
    return ::poll(&entry, 1, timeoutMs) > 0;
}

/** One descriptor to write to, in the way of its kind that never waits. */
class Target {
public:
    explicit Target(int fd) : mFd(fd) {}

    [[nodiscard]] status_t open();
    /** As write() on a descriptor that does not block. */
    ssize_t put(const char* data, size_t size);
    [[nodiscard]] int fd() const { return mReopened.ok() ? mReopened.get() : mFd; }

private:
    enum class Kind { PIPE, SOCKET, OTHER };

    [[nodiscard]] status_t reopen();
    ssize_t splicePiece(const char* data, size_t size);

    const int mFd;
    Kind mKind = Kind::OTHER;
    // A pipe of our own in front of somebody's pipe, and how much of the text is in it.
    base::unique_fd mOwnOut;
    base::unique_fd mOwnIn;
    size_t mHeld = 0;
    // The terminal once more, with flags of our own.
    base::unique_fd mReopened;
};

status_t Target::open() {
    struct stat info = {};
    const int flags = ::fcntl(mFd, F_GETFL);
    if (flags < 0 || ::fstat(mFd, &info) != 0) return -errno;
    // Opening it once more must give no right that the descriptor has not.
    if ((flags & O_ACCMODE) == O_RDONLY) return -EBADF;
    if (S_ISFIFO(info.st_mode)) {
        mKind = Kind::PIPE;
        return base::Pipe(&mOwnOut, &mOwnIn, O_CLOEXEC | O_NONBLOCK) ? OK : -errno;
    }
    if (S_ISSOCK(info.st_mode)) {
        mKind = Kind::SOCKET;
        return OK;
    }
    // One that has been hung up is told by the error of its opening.
    if (::isatty(mFd) == 1 || errno == EIO) return reopen();
    // A device of any other kind may wait in ways of its own.
    const bool memory = S_ISCHR(info.st_mode) && major(info.st_rdev) == MEM_MAJOR;
    return S_ISREG(info.st_mode) || memory ? OK : BAD_VALUE;
}

// A terminal waits as its open file says, so it takes one of our own, which only the terminal's
// user may have.
status_t Target::reopen() {
    // The end that knows a number is the owner's; opened once more it is the owner's of another.
    if (unsigned number = 0; ::ioctl(mFd, TIOCGPTN, &number) == 0) return BAD_VALUE;
    const std::string path = "/proc/self/fd/" + std::to_string(mFd);
    mReopened.reset(::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    return mReopened.ok() ? OK : -errno;
}

// Only splice can be told for one call alone not to wait for room in a pipe.
ssize_t Target::splicePiece(const char* data, size_t size) {
    if (mHeld == 0) {
        const ssize_t taken = ::write(mOwnIn.get(), data, size);
        if (taken <= 0) return taken;
        mHeld = static_cast<size_t>(taken);
    }
    const ssize_t moved = ::splice(mOwnOut.get(), nullptr, mFd, nullptr, mHeld, SPLICE_F_NONBLOCK);
    if (moved > 0) mHeld -= static_cast<size_t>(moved);
    return moved;
}

ssize_t Target::put(const char* data, size_t size) {
    const size_t piece = std::min(size, kPieceBytes);
    if (mKind == Kind::PIPE) return splicePiece(data, piece);
    if (mKind == Kind::SOCKET) return ::send(mFd, data, piece, MSG_DONTWAIT | MSG_NOSIGNAL);
    return ::write(fd(), data, piece);
}

}  // namespace

status_t writeText(int fd, const std::string& text, nsecs_t within) {
    const nsecs_t deadline = systemTime(SYSTEM_TIME_MONOTONIC) + within;
    const NoSigpipe noSigpipe;
    Target target(fd);
    if (const status_t status = target.open(); status != OK) return status;
    for (size_t done = 0; done < text.size();) {
        const ssize_t put = target.put(text.data() + done, text.size() - done);
        if (put < 0 && errno == EPIPE) return -ECONNRESET;
        if (put < 0 && errno != EAGAIN && errno != EINTR) return -errno;
        done += static_cast<size_t>(std::max<ssize_t>(put, 0));
        const nsecs_t now = systemTime(SYSTEM_TIME_MONOTONIC);
        if (now >= deadline && done < text.size()) return TIMED_OUT;
        // Whether it is ready is for the next attempt to see.
        if (put <= 0) (void)isReady(target.fd(), toMillisecondTimeoutDelay(now, deadline));
    }
    return OK;
}

}  // namespace android
