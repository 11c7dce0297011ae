// Programs of the build, for child processes of other users.
#pragma once

#include <string>

namespace sonorel::test {

struct ProgramForOthers {
    std::string path;
    std::string libraryPath;  // for LD_LIBRARY_PATH; "" when the program finds its libraries
};

// The program itself where every user may run it. Below a private folder, as a checkout in root's
// home is: a copy beside copies of the libraries in ../lib, kept as long as this process.
ProgramForOthers programForOthers(const std::string& program);

}  // namespace sonorel::test
