#include "support/ProjectFile.h"

namespace sonorel::test {

std::string projectFile(const std::string& path) {
    return std::string(SONOREL_SOURCE_DIR) + "/" + path;
}

}  // namespace sonorel::test
