#pragma once

#include <sys/types.h>
#include <time.h>

#include <android-base/unique_fd.h>

#include <memory>
#include <shared_mutex>
#include <string>

namespace android {

// Which file a path names, as opposed to what the path is called.
struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;

    bool operator==(const FileIdentity& other) const {
        return device == other.device && inode == other.inode;
    }
    bool operator!=(const FileIdentity& other) const { return !(*this == other); }
};

// What shows that somebody has written to a file: for a reader that takes no locks.
struct FileStamp {
    FileIdentity identity;
    off_t size = 0;
    struct timespec modified = {};
    // A write-ahead log or a rollback journal with something in it lies beside the file.
    bool hasLog = false;

    bool operator==(const FileStamp& other) const {
        return identity == other.identity && size == other.size &&
               modified.tv_sec == other.modified.tv_sec &&
               modified.tv_nsec == other.modified.tv_nsec && hasLog == other.hasLog;
    }
};

// What the stores of one process share about one database file. A store that works on the file
// holds lock() shared; one that opens, checks or replaces the file holds it exclusively, so that no
// store ever writes into a file that is just being moved away. Nothing here opens the file itself:
// closing a second descriptor would drop the locks that SQLite holds through its own.
class DatabaseFile {
public:
    // The one object for `path`, which lives while somebody holds it.
    static std::shared_ptr<DatabaseFile> forPath(const std::string& path);

    explicit DatabaseFile(std::string path) : mPath(std::move(path)) {}

    const std::string& path() const { return mPath; }
    std::shared_mutex& lock() { return mLock; }

    // False when the path names nothing. Costs one system call.
    [[nodiscard]] bool identity(FileIdentity* outIdentity) const;
    // The same with what changes when the file is written. False also for what is no regular file.
    [[nodiscard]] bool stamp(FileStamp* outStamp) const;

    // The calls below need lock() held exclusively.

    [[nodiscard]] bool makeFolder(std::string* outError) const;

    // Moves aside what SQLite must not find at the path: something that is no regular file, or a
    // write-ahead log without its database. True when nothing is in the way any more; outName is
    // the new file name of what was, else empty.
    [[nodiscard]] bool clearPath(std::string* outName, std::string* outError) const;

    // Renames the file and its companions to PATH.damaged-YYYYMMDD-HHMMSS (UTC), with -2, -3, ...
    // behind it when that is taken. Nothing is deleted. outName is the new name without folder.
    [[nodiscard]] bool moveAside(std::string* outName, std::string* outError) const;

    // Copies the database, its log included, to PATH.SUFFIX, in place of what is there. The copy is
    // whole or absent, whenever the process ends: it is written as PATH.SUFFIX.part, synced and
    // renamed. The caller holds the database's write lock, so that only one makes a copy at a time.
    // Returns SQLITE_OK or an error code.
    [[nodiscard]] int copyAside(const std::string& suffix, std::string* outError) const;

    // Whether this process has checked the content of that file; each file is checked once, unless
    // a store then meets damage in it.
    bool isChecked(const FileIdentity& file) const { return mIsChecked && file == mChecked; }
    void setChecked(const FileIdentity& file, bool checked) {
        mChecked = file;
        mIsChecked = checked;
    }

private:
    const std::string mPath;
    std::shared_mutex mLock;
    FileIdentity mChecked;
    bool mIsChecked = false;
};

// Keeps other processes from opening or replacing a database in the folder, while it lives. It
// locks the folder itself, so it leaves no file behind. Where folders cannot be locked it does
// nothing: on a device one process owns the file.
class FolderLock {
public:
    // Waits for at most a second.
    explicit FolderLock(const std::string& databasePath);

    // Whether another process has it still.
    bool isBusy() const { return mIsBusy; }

private:
    base::unique_fd mFolder;
    bool mIsBusy = false;
};

}  // namespace android
