#pragma once

#include <sys/types.h>

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

    // The calls below need lock() held exclusively.

    [[nodiscard]] bool makeFolder(std::string* outError) const;

    // Moves aside what SQLite must not find at the path: something that is no regular file, or a
    // write-ahead log without its database. True when nothing is in the way any more; outName is
    // the new file name of what was, else empty.
    [[nodiscard]] bool clearPath(std::string* outName, std::string* outError) const;

    // Renames the file and its companions to PATH.damaged-YYYYMMDD-HHMMSS (UTC), with -2, -3, ...
    // behind it when that is taken. Nothing is deleted. outName is the new name without folder.
    [[nodiscard]] bool moveAside(std::string* outName, std::string* outError) const;

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
