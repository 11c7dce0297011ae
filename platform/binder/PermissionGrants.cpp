#include "PermissionGrants.h"

#define LOG_TAG "ServiceManager"

#include "ServiceManagerWire.h"

#include <android-base/file.h>
#include <android-base/parseint.h>
#include <android-base/strings.h>
#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <log/log.h>

#include <cerrno>
#include <ctime>
#include <tuple>

namespace android {

namespace {

constexpr off_t kMaxFileBytes = 1 << 20;
// File systems stamp changes with the coarse clock, whose tick is at most this long.
constexpr int64_t kClockTickNanos = 20'000'000;

int64_t nanos(const timespec& time) {
    return time.tv_sec * INT64_C(1'000'000'000) + time.tv_nsec;
}

}  // namespace

PermissionGrants::PermissionGrants(std::string path) : mPath(std::move(path)) {}

bool PermissionGrants::FileState::operator==(const FileState& other) const {
    const auto key = [](const FileState& state) {
        return std::tuple(state.device, state.inode, state.size, nanos(state.modified),
                          state.error);
    };
    return key(*this) == key(other);
}

PermissionGrants::FileState PermissionGrants::stateOf(int statResult, const struct stat& info) {
    FileState state;
    if (statResult != 0) {
        state.error = errno;
        return state;
    }
    state.device = info.st_dev;
    state.inode = info.st_ino;
    state.size = info.st_size;
    state.modified = info.st_mtim;
    return state;
}

bool PermissionGrants::holds(const std::string& permission, uid_t uid) {
    if (uid == service_manager::kRootUid || uid == service_manager::kSystemUid) return true;
    Mutex::Autolock lock(mLock);
    reloadIfChanged();
    return mGrants.count({permission, uid}) != 0;
}

void PermissionGrants::reloadIfChanged() {
    struct stat info = {};
    const int result = ::stat(mPath.c_str(), &info);
    const FileState seen = stateOf(result, info);
    if (mLoaded == seen && !mLoadedYoung) return;
    load();
}

void PermissionGrants::load() {
    timespec now = {};
    ::clock_gettime(CLOCK_REALTIME, &now);
    // Not to hang on what is no file.
    const base::unique_fd fd(::open(mPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat info = {};
    const int result = fd.get() < 0 ? -1 : ::fstat(fd.get(), &info);
    const FileState state = stateOf(result, info);
    const bool repeated = mLoaded == state;
    mLoaded = state;
    mLoadedYoung = result == 0 && nanos(now) - nanos(state.modified) < 2 * kClockTickNanos;

    std::string text;
    if (result != 0) {
        if (state.error != ENOENT && !repeated) {
            ALOGE("%s: %s; no grants", mPath.c_str(), statusToString(-state.error).c_str());
        }
    } else if (!S_ISREG(info.st_mode) || info.st_size > kMaxFileBytes ||
               !base::ReadFdToString(fd.get(), &text)) {
        if (!repeated) ALOGE("%s: no readable text file; no grants", mPath.c_str());
        text.clear();
    }
    // The same text again has been parsed, and its faults logged.
    if (text == mText) return;
    mText = std::move(text);
    parse();
}

void PermissionGrants::parse() {
    mGrants.clear();
    int number = 0;
    for (const std::string& line : base::Split(mText, "\n"))
        parseLine(line, ++number);
}

void PermissionGrants::parseLine(std::string_view line, int number) {
    const std::string content = base::Trim(std::string(line.substr(0, line.find('#'))));
    if (content.empty()) return;
    const size_t end = content.find_first_of(" \t");
    uid_t uid = 0;
    if (end == std::string::npos || !base::ParseUint(base::Trim(content.substr(end)), &uid)) {
        ALOGW("%s:%d: not \"PERMISSION UID\": %s", mPath.c_str(), number, content.c_str());
        return;
    }
    mGrants.emplace(content.substr(0, end), uid);
}

}  // namespace android
