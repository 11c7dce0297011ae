#define LOG_TAG "SonorelLists"

#include "ListFile.h"

#include <android-base/unique_fd.h>
#include <errno.h>
#include <fcntl.h>
#include <log/log.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <string_view>
#include <system_error>

namespace android {
namespace {

constexpr off_t kMaxFileBytes = off_t{4} * 1024 * 1024;
// Two edits closer together than a file system's clock tick can leave the same times. The coarsest
// tick in use is 2 s.
constexpr time_t kSettleSeconds = 3;

constexpr std::string_view kBlanks = " \t\r\v\f";

bool isSameTime(const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

std::string_view trimmed(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
    return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

bool readAll(int fd, off_t size, std::string* outContent) {
    outContent->resize(static_cast<size_t>(size));
    size_t done = 0;
    while (done < outContent->size()) {
        const ssize_t got = TEMP_FAILURE_RETRY(
                ::read(fd, outContent->data() + done, outContent->size() - done));
        if (got < 0) return false;
        if (got == 0) break;  // It was cut meanwhile; the next look-up sees that.
        done += static_cast<size_t>(got);
    }
    outContent->resize(done);
    return true;
}

}  // namespace

bool ListFile::isUnchanged(const struct stat& now) const {
    return mSettled && now.st_dev == mSeen.st_dev && now.st_ino == mSeen.st_ino &&
           now.st_size == mSeen.st_size && isSameTime(now.st_mtim, mSeen.st_mtim) &&
           isSameTime(now.st_ctim, mSeen.st_ctim);
}

bool ListFile::refresh(const std::string& path, const std::string& shownPath) {
    struct stat now = {};
    if (::stat(path.c_str(), &now) == 0 && isUnchanged(now)) return true;
    if (read(path, shownPath)) return true;
    mEntries.clear();
    mSettled = false;
    return false;
}

bool ListFile::read(const std::string& path, const std::string& shownPath) {
    // Not to hang where somebody has put a pipe.
    const base::unique_fd fd(
            TEMP_FAILURE_RETRY(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)));
    if (fd.get() < 0 || ::fstat(fd.get(), &mSeen) != 0) {
        ALOGW("list %s cannot be read: %s", shownPath.c_str(),
              std::system_category().message(errno).c_str());
        return false;
    }
    if (!S_ISREG(mSeen.st_mode) || mSeen.st_size > kMaxFileBytes) {
        ALOGW("list %s is no file of at most %lld bytes", shownPath.c_str(),
              static_cast<long long>(kMaxFileBytes));
        return false;
    }
    std::string content;
    if (!readAll(fd.get(), mSeen.st_size, &content)) {
        ALOGW("list %s cannot be read: %s", shownPath.c_str(),
              std::system_category().message(errno).c_str());
        return false;
    }
    mSettled =
            ::time(nullptr) - std::max(mSeen.st_mtim.tv_sec, mSeen.st_ctim.tv_sec) > kSettleSeconds;
    parse(content, shownPath);
    return true;
}

void ListFile::parse(const std::string& content, const std::string& shownPath) {
    mEntries.clear();
    std::string_view rest = content;
    while (!rest.empty()) {
        const size_t length = std::min(rest.find('\n'), rest.size());
        const std::string_view line = trimmed(rest.substr(0, length));
        rest.remove_prefix(std::min(length + 1, rest.size()));
        if (line.empty() || line.front() == '#') continue;
        const std::string_view key = line.substr(0, line.find_first_of(kBlanks));
        mEntries[std::string(key)] = trimmed(line.substr(key.size()));
    }
    ALOGD("list %s: %zu entries", shownPath.c_str(), mEntries.size());
}

const std::string* ListFile::find(const std::string& key) const {
    const auto found = mEntries.find(key);
    return found == mEntries.end() ? nullptr : &found->second;
}

}  // namespace android
