#include "DatabaseFile.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <mutex>
#include <system_error>
#include <thread>

#include "Sql.h"

namespace android {
namespace {

constexpr const char* kCompanions[] = {"-wal", "-shm", "-journal"};
constexpr std::chrono::milliseconds kFolderPatience{1000};
constexpr std::chrono::milliseconds kFolderPoll{2};

bool exists(const std::string& path) {
    struct stat info = {};
    return ::lstat(path.c_str(), &info) == 0;
}

bool hasContent(const std::string& path) {
    struct stat info = {};
    return ::stat(path.c_str(), &info) == 0 && info.st_size > 0;
}

std::string systemErrorText(const char* what) {
    return std::string(what) + ": " + std::system_category().message(errno);
}

std::string folderOf(const std::string& path) {
    const std::string folder = std::filesystem::path(path).parent_path().string();
    return folder.empty() ? "." : folder;
}

// Page by page, into an empty file that nobody else knows. By a connection of its own, as the one
// that holds the write lock cannot be read from.
int copyPages(const std::string& from, const std::string& to, std::string* outError) {
    sqlite3* source = nullptr;
    int result = sqlite3_open_v2(from.c_str(), &source, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX,
                                 nullptr);
    const OwnedConnection sourceOwner(source);
    sqlite3* copy = nullptr;
    if (result == SQLITE_OK) {
        result = sqlite3_open_v2(to.c_str(), &copy, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX,
                                 nullptr);
    }
    const OwnedConnection copyOwner(copy);
    // An incomplete copy is thrown away, so it needs no journal.
    if (result == SQLITE_OK) {
        result = execute(copy, "PRAGMA journal_mode = OFF; PRAGMA synchronous = OFF", outError);
    }
    if (result == SQLITE_OK) {
        sqlite3_backup* const backup = sqlite3_backup_init(copy, "main", source, "main");
        if (backup != nullptr) {
            (void)sqlite3_backup_step(backup, -1);  // finish() repeats its error
            (void)sqlite3_backup_finish(backup);
        }
        result = sqlite3_errcode(copy);
    }
    if (result != SQLITE_OK) *outError = "no copy of it can be made: " + errorText(copy, result);
    return result;
}

std::string damagedName(const std::string& path) {
    const time_t now = ::time(nullptr);
    struct tm parts = {};
    char when[32] = "";
    if (::gmtime_r(&now, &parts) != nullptr) {
        (void)::strftime(when, sizeof(when), "%Y%m%d-%H%M%S", &parts);
    }
    const std::string stem = path + ".damaged-" + when;
    std::string name = stem;
    const auto isTaken = [&name] {
        if (exists(name)) return true;
        for (const char* suffix : kCompanions) {
            if (exists(name + suffix)) return true;
        }
        return false;
    };
    for (int n = 2; isTaken(); ++n)
        name = stem + "-" + std::to_string(n);
    return name;
}

}  // namespace

std::shared_ptr<DatabaseFile> DatabaseFile::forPath(const std::string& path) {
    static std::mutex lock;
    // Never destroyed: a store may outlive the static objects.
    static auto& files = *new std::map<std::string, std::weak_ptr<DatabaseFile>>;
    const std::lock_guard<std::mutex> guard(lock);
    std::weak_ptr<DatabaseFile>& known = files[path];
    std::shared_ptr<DatabaseFile> file = known.lock();
    if (file == nullptr) {
        file = std::make_shared<DatabaseFile>(path);
        known = file;
    }
    return file;
}

bool DatabaseFile::identity(FileIdentity* outIdentity) const {
    struct stat info = {};
    if (::stat(mPath.c_str(), &info) != 0) return false;
    *outIdentity = {info.st_dev, info.st_ino};
    return true;
}

bool DatabaseFile::stamp(FileStamp* outStamp) const {
    struct stat info = {};
    if (::stat(mPath.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return false;
    *outStamp = {{info.st_dev, info.st_ino},
                 info.st_size,
                 info.st_mtim,
                 hasContent(mPath + "-wal") || hasContent(mPath + "-journal")};
    return true;
}

bool DatabaseFile::makeFolder(std::string* outError) const {
    std::error_code error;
    std::filesystem::create_directories(folderOf(mPath), error);
    if (error) *outError = "its folder cannot be made: " + error.message();
    return !error;
}

bool DatabaseFile::clearPath(std::string* outName, std::string* outError) const {
    outName->clear();
    struct stat info = {};
    const bool isThere = ::stat(mPath.c_str(), &info) == 0;
    if (!isThere && errno != ENOENT) {
        *outError = systemErrorText("stat");
        return false;
    }
    const bool isOther = isThere && !S_ISREG(info.st_mode);
    const bool isEmpty = !isThere || (S_ISREG(info.st_mode) && info.st_size == 0);
    if (isOther || (isEmpty && hasContent(mPath + "-wal"))) return moveAside(outName, outError);
    return true;
}

bool DatabaseFile::moveAside(std::string* outName, std::string* outError) const {
    const std::string target = damagedName(mPath);
    *outName = std::filesystem::path(target).filename().string();
    // The database first. Should the process end in between, the next opening finds a log without a
    // database and moves that too; the other order could lose the log of a database that stayed.
    if (::rename(mPath.c_str(), target.c_str()) != 0 && errno != ENOENT) {
        *outError = systemErrorText("it cannot be moved aside");
        return false;
    }
    for (const char* suffix : kCompanions) {
        if (::rename((mPath + suffix).c_str(), (target + suffix).c_str()) != 0 && errno != ENOENT) {
            *outError = systemErrorText("its companion files cannot be moved aside");
            return false;
        }
    }
    return true;
}

int DatabaseFile::copyAside(const std::string& suffix, std::string* outError) const {
    const std::string target = mPath + "." + suffix;
    const std::string part = target + ".part";
    struct stat info = {};
    (void)::stat(mPath.c_str(), &info);  // Without it the copy is for its owner alone.
    (void)::unlink(part.c_str());        // What an earlier try left.
    const base::unique_fd file(::open(part.c_str(),
                                      O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                                      (info.st_mode & 0666) | S_IRUSR | S_IWUSR));
    if (file.get() < 0) {
        *outError = systemErrorText("no copy of it can be made");
        return SQLITE_CANTOPEN;
    }
    int result = copyPages(mPath, part, outError);
    if (result == SQLITE_OK &&
        (::fsync(file.get()) != 0 || ::rename(part.c_str(), target.c_str()) != 0)) {
        *outError = systemErrorText("no copy of it can be made");
        result = SQLITE_IOERR;
    }
    if (result != SQLITE_OK) {
        (void)::unlink(part.c_str());
        return result;
    }
    const base::unique_fd folder(
            ::open(folderOf(mPath).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.get() >= 0) (void)::fsync(folder.get());  // A power failure may undo the rename.
    return SQLITE_OK;
}

FolderLock::FolderLock(const std::string& databasePath)
        : mFolder(::open(folderOf(databasePath).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (mFolder.get() < 0) return;
    const auto deadline = std::chrono::steady_clock::now() + kFolderPatience;
    while (::flock(mFolder.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) return;
        if (std::chrono::steady_clock::now() >= deadline) {
            mIsBusy = true;
            return;
        }
        std::this_thread::sleep_for(kFolderPoll);
    }
}

}  // namespace android
