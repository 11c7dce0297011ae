#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include <qelto/halvend/ISonorelService.h>

#include "support/ChildProcess.h"
#include "support/TempDir.h"

namespace sonorel::test {

// The folder in which this program's processes meet: its own, made on the first call and named in
// SONOREL_RUNTIME_DIR, which children inherit. Call it before anything of the binder library.
const std::string& runtimeFolder();

// A device root in a temporary folder: a policy with two scenes and two packages, and a grants
// file.
class DeviceRoot {
public:
    DeviceRoot();

    std::string path() const { return mFolder.path(); }
    std::string path(const std::string& relative) const { return mFolder.path(relative); }
    std::string databasePath() const { return path("data/qelto/multimedia/meta.db"); }
    // Replaces the grants: the uids that hold the service's permission.
    void grant(const std::vector<uid_t>& uids) const;
    // Databases that the service has moved aside as damaged.
    size_t damagedDatabases() const;

private:
    const TempDir mFolder;
};

constexpr uid_t kGrantedUid = 10042;

// Arguments that make the device one whose loudspeaker takes part.
const std::vector<std::string>& speakerProduct();

// sonoreld as a child process.
class ServiceProcess {
public:
    // `args` come after --root, `environment` beside the runtime folder.
    explicit ServiceProcess(const DeviceRoot& root, const std::vector<std::string>& args = {},
                            const std::map<std::string, std::string>& environment = {});

    // Waits until clients can call; false when the process ended or said nothing.
    [[nodiscard]] bool waitUntilReady() { return mProcess.waitForOutput("SonorelService ready\n"); }
    ChildProcess& process() { return mProcess; }
    const ChildProcess& process() const { return mProcess; }

private:
    ChildProcess mProcess;
};

// The service of the living manager in this process's runtime folder, null when none comes. Starts
// the thread pool.
android::sp<qelto::halvend::ISonorelService> connectToService();

// A program of this folder, as a child: tests/process/ProcessPeer.cpp.
ChildProcess::Options peer(const std::vector<std::string>& args);

// Figures of a process, from /proc.
struct ProcessFigures {
    long residentKb = 0;
    long threads = 0;
    long descriptors = 0;
    unsigned long pendingSignals = 0;  // a set: those sent to the process that no thread has taken
};
ProcessFigures figuresOf(pid_t pid);
// Of sonoreld: the bound of the pool, the service's own threads, the binder library's.
constexpr long kMostThreads = 16 + 7;

}  // namespace sonorel::test
