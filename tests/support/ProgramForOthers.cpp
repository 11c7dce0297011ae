#include "support/ProgramForOthers.h"

#include <sys/stat.h>

#include <filesystem>
#include <mutex>

#include "support/TempDir.h"

namespace sonorel::test {

namespace fs = std::filesystem;

namespace {

bool isOpenToAll(fs::path path) {
    for (; path != path.root_path(); path = path.parent_path()) {
        struct stat info {};
        if (stat(path.c_str(), &info) != 0 || (info.st_mode & S_IXOTH) == 0) return false;
    }
    return true;
}

}  // namespace

ProgramForOthers programForOthers(const std::string& program) {
    if (isOpenToAll(program)) return {program, ""};
    static const TempDir sCopies;
    static std::mutex sMutex;
    const std::lock_guard lock(sMutex);
    constexpr auto kOnce = fs::copy_options::skip_existing | fs::copy_options::recursive;
    const fs::path copy = fs::path(sCopies.path()) / fs::path(program).filename();
    fs::copy(program, copy, kOnce);
    const fs::path libraries = fs::path(program).parent_path().parent_path() / "lib";
    if (!fs::is_directory(libraries)) return {copy, ""};
    fs::copy(libraries, sCopies.path("lib"), kOnce);
    return {copy, sCopies.path("lib")};
}

}  // namespace sonorel::test
