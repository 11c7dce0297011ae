#include "OwnFd.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <set>
#include <utility>

namespace android::transport {

namespace {

std::atomic<bool> sForked{false};

/** All descriptors that a child must close. Never destroyed: threads use it until the end. */
struct Register {
    std::mutex mutex;
    std::set<int> descriptors;

    // The lock is held across fork(), so that the child finds the set whole.
    Register() {
        pthread_atfork([] { get().mutex.lock(); }, [] { get().mutex.unlock(); }, closeAll);
    }
    static Register& get() {
        static Register* const sRegister = new Register();
        return *sRegister;
    }
    static void closeAll() {
        sForked.store(true);
        for (int fd : get().descriptors)
            (void)close(fd);  // the parent's is another one
        get().mutex.unlock();
    }
};

}  // namespace

OwnFd::OwnFd(int fd) : mFd(fd) {
    if (fd < 0) return;
    Register& all = Register::get();
    const std::lock_guard lock(all.mutex);
    all.descriptors.insert(fd);
}

OwnFd::OwnFd(OwnFd&& other) noexcept : mFd(std::exchange(other.mFd, -1)) {}

OwnFd& OwnFd::operator=(OwnFd&& other) noexcept {
    std::swap(mFd, other.mFd);
    return *this;
}

void OwnFd::reset() {
    // In a child the number may belong to a file of the child's own by now.
    if (mFd < 0 || isForkedChild()) return;
    Register& all = Register::get();
    const std::lock_guard lock(all.mutex);
    all.descriptors.erase(mFd);
    (void)close(mFd);
    mFd = -1;
}

bool isForkedChild() {
    return sForked.load(std::memory_order_relaxed);
}

}  // namespace android::transport
