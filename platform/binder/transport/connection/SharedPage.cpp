#define LOG_TAG "BinderTransport"

#include "SharedPage.h"

#include <errno.h>
#include <fcntl.h>
#include <log/log.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "ErrorText.h"
#include "OwnFd.h"

namespace android::transport {

using base::unique_fd;

namespace {

constexpr size_t kPageSize = 4096;
// Without the seal one side could cut the page off under the other, which would crash it.
constexpr int kSeals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL;

}  // namespace

std::shared_ptr<SharedPage> SharedPage::map(int fd) {
    static_assert(sizeof(Layout) <= kPageSize);
    void* const memory = mmap(nullptr, kPageSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (memory == MAP_FAILED) return nullptr;
    // A child that has become another user must not write a call with this process's rights here.
    (void)madvise(memory, kPageSize, MADV_DONTFORK);  // fails on no mapping of this kind
    // A fresh page is zero, which is what everything in it starts with.
    return std::shared_ptr<SharedPage>(new SharedPage(static_cast<Layout*>(memory)));
}

std::shared_ptr<SharedPage> SharedPage::create(unique_fd* outFd) {
    unique_fd fd(memfd_create("binder-page", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (fd.get() < 0 || ftruncate(fd.get(), kPageSize) != 0 ||
        fcntl(fd.get(), F_ADD_SEALS, kSeals) != 0) {
        ALOGE("Cannot make a page of memory: %s", errorText(errno).c_str());
        return nullptr;
    }
    std::shared_ptr<SharedPage> page = map(fd.get());
    *outFd = std::move(fd);
    return page;
}

std::shared_ptr<SharedPage> SharedPage::adopt(const unique_fd& fd) {
    struct stat info = {};
    const int seals = fcntl(fd.get(), F_GET_SEALS);
    if (seals < 0 || (seals & F_SEAL_SHRINK) == 0 || fstat(fd.get(), &info) != 0 ||
        info.st_size < static_cast<off_t>(kPageSize)) {
        return nullptr;
    }
    return map(fd.get());
}

SharedPage::~SharedPage() {
    // A child of fork() may have something else at that address.
    if (!isForkedChild()) (void)munmap(mLayout, kPageSize);
}

}  // namespace android::transport
