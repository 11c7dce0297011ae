// The project's own files, as tests read them.
#pragma once

#include <string>

namespace sonorel::test {

// The whole path of a file or folder that is named from the project's root on.
std::string projectFile(const std::string& path);

}  // namespace sonorel::test
