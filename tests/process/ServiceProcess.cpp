#include "process/ServiceProcess.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>

#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <utils/String16.h>

#include "support/ProjectFile.h"

namespace sonorel::test {

using android::sp;
using qelto::halvend::ISonorelService;

namespace {

ChildProcess::Options serviceOptions(const DeviceRoot& root, const std::vector<std::string>& args,
                                     const std::map<std::string, std::string>& environment) {
    ChildProcess::Options options;
    options.program = std::string(SONOREL_BIN_DIR) + "/sonoreld";
    options.args = {"--root", root.path()};
    options.args.insert(options.args.end(), args.begin(), args.end());
    options.env = environment;
    options.env["SONOREL_RUNTIME_DIR"] = runtimeFolder();
    return options;
}

long countEntries(const std::string& folder) {
    std::error_code error;
    long count = 0;
    for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        ++count;
    }
    return count;
}

}  // namespace

const std::string& runtimeFolder() {
    static const TempDir sFolder;
    static const std::string sPath = [] {
        // The binder library makes the folder itself, open to every uid.
        std::string path = sFolder.path("run");
        (void)::setenv("SONOREL_RUNTIME_DIR", path.c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
        return path;
    }();
    return sPath;
}

const std::vector<std::string>& speakerProduct() {
    static const std::vector<std::string> sArgs = {
            "--property", "ro.qelto.audio.support.meta_audio_speaker=true"};
    return sArgs;
}

DeviceRoot::DeviceRoot() {
    (void)mFolder.write("system_ext/etc/Meta_Audio_Policy.xml",
                        readFile(projectFile("tests/data/policy/two-scenes.xml")));
    grant({kGrantedUid});
}

void DeviceRoot::grant(const std::vector<uid_t>& uids) const {
    std::string text = "# who may change settings\n";
    for (const uid_t uid : uids)
        text += "com.qelto.permission.safe.MEDIA " + std::to_string(uid) + "\n";
    (void)mFolder.write("data/system/permission.grants", text);
}

size_t DeviceRoot::damagedDatabases() const {
    size_t count = 0;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(
                 std::filesystem::path(databasePath()).parent_path(), error)) {
        if (entry.path().filename().string().find(".damaged-") != std::string::npos) ++count;
    }
    return count;
}

ServiceProcess::ServiceProcess(const DeviceRoot& root, const std::vector<std::string>& args,
                               const std::map<std::string, std::string>& environment)
        : mProcess(serviceOptions(root, args, environment)) {}

sp<ISonorelService> connectToService() {
    android::ProcessState::self()->startThreadPool();
    sp<ISonorelService> service;
    // Right after a restart the old manager's end may not have been told yet.
    const bool found = eventually([&service] {
        const auto manager = android::defaultServiceManager();
        if (manager == nullptr) return false;
        const auto binder = manager->checkService(android::String16("SonorelService"));
        service = android::interface_cast<ISonorelService>(binder);
        return service != nullptr && binder->pingBinder() == android::OK;
    });
    return found ? service : nullptr;
}

ChildProcess::Options peer(const std::vector<std::string>& args) {
    ChildProcess::Options options;
    options.program = std::string(SONOREL_BIN_DIR) + "/process_peer";
    options.args = args;
    options.env["SONOREL_RUNTIME_DIR"] = runtimeFolder();
    return options;
}

ProcessFigures figuresOf(pid_t pid) {
    const std::string folder = "/proc/" + std::to_string(pid);
    ProcessFigures figures;
    std::ifstream status(folder + "/status");
    for (std::string word; status >> word;) {
        if (word == "VmRSS:") status >> figures.residentKb;
        if (word == "Threads:") status >> figures.threads;
        if (word == "ShdPnd:") status >> std::hex >> figures.pendingSignals >> std::dec;
    }
    figures.descriptors = countEntries(folder + "/fd");
    return figures;
}

}  // namespace sonorel::test
