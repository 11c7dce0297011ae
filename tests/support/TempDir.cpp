#include "support/TempDir.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

namespace sonorel::test {

TempDir::TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "sonorel-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr || chmod(pattern.c_str(), 0755) != 0) {
        std::perror(("cannot create a temporary folder at " + pattern).c_str());
        std::abort();
    }
    mPath = pattern;
}

TempDir::~TempDir() {
    std::error_code error;
    std::filesystem::remove_all(mPath, error);
    if (error) {
        (void)fprintf(stderr, "cannot remove %s: %s\n", mPath.c_str(), error.message().c_str());
    }
}

std::string TempDir::write(const std::string& relative, const std::string& content) const {
    const std::filesystem::path file = path(relative);
    std::filesystem::create_directories(file.parent_path());
    std::ofstream stream(file, std::ios::binary | std::ios::trunc);
    stream << content;
    stream.close();
    if (!stream) {
        (void)fprintf(stderr, "cannot write %s\n", file.c_str());
        std::abort();
    }
    return file.string();
}

std::string readFile(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

}  // namespace sonorel::test
