// Stands in for the service library: tells what a service sees while it loads and when it is asked
// to register, and registers nothing.
#include <cutils/properties.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

std::string property(const char* key) {
    std::array<char, PROPERTY_VALUE_MAX> value{};
    property_get(key, value.data(), "(unset)");
    return value.data();
}

// Read while the library loads, as the service's flags are.
const std::string kFromRoot = property("probe.root");
const std::string kFromFile = property("probe.file");
const std::string kFromOption = property("probe.option");

}  // namespace

namespace android {

class SonorelService {
public:
    static void instantiate();
};

void SonorelService::instantiate() {
    const char* root = getenv("SONOREL_DEVICE_ROOT");  // NOLINT(concurrency-mt-unsafe)
    printf("probe root=%s file=%s option=%s cwd=%s device=%s\n", kFromRoot.c_str(),
           kFromFile.c_str(), kFromOption.c_str(), std::filesystem::current_path().c_str(),
           root == nullptr ? "(unset)" : root);
    (void)fflush(stdout);
}

}  // namespace android
