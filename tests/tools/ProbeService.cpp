// Stands in for the service library: tells what a service sees while it loads, when it is asked to
// register, and what the host tells it. It registers itself only where the property probe.serve is
// true. Of the members that the host looks for, it has no onAudioServerDied.
#include <binder/Binder.h>
#include <binder/IServiceManager.h>
#include <cutils/properties.h>
#include <unistd.h>
#include <utils/String16.h>
#include <utils/String8.h>

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

void say(const std::string& text) {
    (void)puts(text.c_str());
    (void)fflush(stdout);
}

}  // namespace

namespace android {

class SonorelService : public BBinder {
public:
    static void instantiate();
    int onAudioServerRestarted();
    int finishStoreWrites(int timeoutMs);
    status_t dump(int fd, const Vector<String16>& args) override;

private:
    const std::string mName = "probe";  // shows that the members get the object whole
};

void SonorelService::instantiate() {
    const char* root = getenv("SONOREL_DEVICE_ROOT");  // NOLINT(concurrency-mt-unsafe)
    say("probe root=" + kFromRoot + " file=" + kFromFile + " option=" + kFromOption +
        " cwd=" + std::filesystem::current_path().string() +
        " device=" + (root == nullptr ? "(unset)" : root));
    if (property("probe.serve") != "true") return;
    (void)defaultServiceManager()->addService(String16("SonorelService"), new SonorelService());
}

int SonorelService::onAudioServerRestarted() {
    say(mName + " restarted");
    return 0;
}

int SonorelService::finishStoreWrites(int timeoutMs) {
    say(mName + " finishes " + std::to_string(timeoutMs));
    while (property("probe.stuck") == "true")
        (void)pause();
    return 0;
}

status_t SonorelService::dump(int fd, const Vector<String16>& args) {
    for (const String16& arg : args)
        (void)dprintf(fd, "<%s>", String8(arg).c_str());
    return OK;
}

}  // namespace android
