#pragma once

#include <sys/stat.h>
#include <sys/types.h>
#include <utils/Mutex.h>

#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>

namespace android {

/**
 * Who holds which permission, from a text file of lines `PERMISSION UID` with `#` comments. An edit
 * of the file is seen at the next check. A line that is neither is logged with its place, once an
 * edit, and skipped. Without the file nobody is granted anything. Any thread may ask.
 */
class PermissionGrants {
public:
    explicit PermissionGrants(std::string path);

    /** Root and system hold every permission. */
    [[nodiscard]] bool holds(const std::string& permission, uid_t uid) EXCLUDES(mLock);

private:
    /** What tells one state of the file from the next. */
    struct FileState {
        dev_t device = 0;
        ino_t inode = 0;
        off_t size = -1;
        timespec modified = {};
        int error = 0;

        bool operator==(const FileState& other) const;
    };
    static FileState stateOf(int statResult, const struct stat& info);

    void reloadIfChanged() REQUIRES(mLock);
    void load() REQUIRES(mLock);
    void parse() REQUIRES(mLock);
    void parseLine(std::string_view line, int number) REQUIRES(mLock);

    const std::string mPath;
    Mutex mLock;
    std::string mText GUARDED_BY(mLock);
    std::set<std::pair<std::string, uid_t>> mGrants GUARDED_BY(mLock);
    std::optional<FileState> mLoaded GUARDED_BY(mLock);
    // The file was read so soon after its last change that a further one could look the same.
    bool mLoadedYoung GUARDED_BY(mLock) = false;
};

}  // namespace android
