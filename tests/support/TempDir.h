#pragma once

#include <string>

namespace sonorel::test {

// A fresh empty folder that is removed with all its contents when the object goes. Others may read
// and enter it, so that a child process under another uid can be given it. Failing to create it
// aborts the test program.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    // Absolute, without a trailing slash.
    const std::string& path() const { return mPath; }
    std::string path(const std::string& relative) const { return mPath + "/" + relative; }

    // Writes a file below the folder, making its folders, and returns its absolute path.
    std::string write(const std::string& relative, const std::string& content) const;

private:
    std::string mPath;
};

// The whole of a file, or "" when it cannot be read.
std::string readFile(const std::string& path);

}  // namespace sonorel::test
