#define LOG_TAG "BinderTransport"

#include "OneWayFlow.h"

#include <errno.h>
#include <fcntl.h>
#include <inttypes.h>
#include <log/log.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "ErrorText.h"
#include "Wire.h"

namespace android::transport {

using base::unique_fd;

namespace {

constexpr size_t kPageSize = 4096;
// Without the seal a sender could cut the page off under the receiver, which would crash it.
constexpr int kSeals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL;

}  // namespace

std::unique_ptr<ProgressPage> ProgressPage::map(unique_fd fd) {
    void* const memory = mmap(nullptr, kPageSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd.get(), 0);
    if (memory == MAP_FAILED) return nullptr;
    // A fresh page is zero, which is what both counters start with.
    return std::unique_ptr<ProgressPage>(
            new ProgressPage(std::move(fd), static_cast<Shared*>(memory)));
}

std::unique_ptr<ProgressPage> ProgressPage::create() {
    unique_fd fd(memfd_create("binder-progress", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (fd.get() < 0 || ftruncate(fd.get(), kPageSize) != 0 ||
        fcntl(fd.get(), F_ADD_SEALS, kSeals) != 0) {
        ALOGE("Cannot make a page of memory: %s", errorText(errno).c_str());
        return nullptr;
    }
    return map(std::move(fd));
}

std::unique_ptr<ProgressPage> ProgressPage::adopt(unique_fd fd) {
    struct stat info = {};
    const int seals = fcntl(fd.get(), F_GET_SEALS);
    if (seals < 0 || (seals & F_SEAL_SHRINK) == 0 || fstat(fd.get(), &info) != 0 ||
        info.st_size < static_cast<off_t>(kPageSize)) {
        return nullptr;
    }
    return map(std::move(fd));
}

ProgressPage::~ProgressPage() {
    (void)munmap(mShared, kPageSize);
}

void OneWayFlow::setProgress(std::unique_ptr<ProgressPage> progress) {
    Mutex::Autolock lock(mLock);
    mProgress = std::move(progress);
}

bool OneWayFlow::reserve(size_t bytes) {
    Mutex::Autolock lock(mLock);
    // A receiver that claims more than it got gains nothing but an empty account.
    const uint64_t calls = mProgress == nullptr ? 0 : std::min(mProgress->calls(), mSent);
    const uint64_t done = mProgress == nullptr ? 0 : std::min(mProgress->bytes(), mSentBytes);
    const uint64_t pending = mSent - calls;
    if (pending >= kMaxPendingOneWays || mSentBytes - done + bytes > kMaxPendingOneWayBytes) {
        ++mFailed;
        logRefusalLocked(bytes, pending);
        return false;
    }
    ++mSent;
    mSentBytes += bytes;
    return true;
}

void OneWayFlow::cancel(size_t bytes) {
    Mutex::Autolock lock(mLock);
    --mSent;
    mSentBytes -= bytes;
    ++mFailed;
}

OneWayFlow::Counters OneWayFlow::counters() const {
    Mutex::Autolock lock(mLock);
    const uint64_t calls = mProgress == nullptr ? 0 : std::min(mProgress->calls(), mSent);
    return {mSent, calls, mFailed};
}

void OneWayFlow::logRefusalLocked(size_t bytes, uint64_t pending) {
    ++mUnlogged;
    const nsecs_t now = systemTime();
    if (mLastLog != 0 && now - mLastLog < s2ns(1)) return;
    ALOGE("One-way call of %zu bytes to process %u refused: %" PRIu64 " calls wait there; %" PRIu64
          " refused since the last line, %" PRIu64 " in all",
          bytes, mReceiverPid, pending, mUnlogged, mFailed);
    mLastLog = now;
    mUnlogged = 0;
}

}  // namespace android::transport
