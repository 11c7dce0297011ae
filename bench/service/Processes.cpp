#include <memory>

#include "Processes.h"

#include <signal.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>

namespace sonorel::bench {

using android::sp;
using qelto::halvend::ISonorelService;
using test::ChildProcess;

namespace {

ChildProcess::Options hostOptions(const test::DeviceRoot& root) {
    ChildProcess::Options options = role({"host"});
    options.env["SONOREL_DEVICE_ROOT"] = root.path();
    return options;
}

}  // namespace

void require(bool ok, const std::string& what) {
    if (ok) return;
    fprintf(stderr, "%s\n", what.c_str());
    std::abort();
}

std::unique_ptr<ChildProcess> startRole(const std::vector<std::string>& args) {
    auto child = std::make_unique<ChildProcess>(role(args));
    require(child->waitForLine("ready"), args.front() + ": " + child->errors());
    return child;
}

ServiceRun::ServiceRun(const std::vector<std::string>& args) : mDaemon(mRoot, args) {
    require(mDaemon.waitUntilReady(), mDaemon.process().errors());
    mService = test::connectToService();
    require(mService != nullptr, "no service");
    require(mService->setSpatializerState(2).isOk(), "head tracking");
}

ServiceRun::~ServiceRun() {
    mService.clear();
    mDaemon.process().kill(SIGTERM);
    const auto end = mDaemon.process().wait();
    require(end && end->exited && end->code == 0, "sonoreld: " + mDaemon.process().errors());
}

HostRun::HostRun() : mHost(std::make_unique<ChildProcess>(hostOptions(mRoot))) {
    require(mHost->waitForLine("ready"), mHost->errors());
    mService = test::connectToService();
    require(mService != nullptr, "no service");
    require(mService->setSpatializerState(2).isOk(), "head tracking");
}

HostRun::Figures HostRun::ask() {
    // Numbered lines would need a protocol; the answers come in order.
    require(mHost->write("tell\n"), "the host reads no more");
    ++mAnswered;
    std::string text;
    const auto answered = [&] {
        text = mHost->output();
        size_t lines = 0;
        size_t at = 0;
        for (at = text.find("malloc "); at != std::string::npos;
             at = text.find("malloc ", at + 1)) {
            if (++lines == mAnswered && text.find('\n', at) != std::string::npos) break;
        }
        if (at == std::string::npos) return false;
        text = text.substr(at);
        return true;
    };
    require(test::eventually(answered), "the host does not answer: " + mHost->errors());
    Figures figures{};
    const int found =
            sscanf(text.c_str(),
                   "malloc %" SCNu64 " sent %" SCNu64 " delivered %" SCNu64 " failed %" SCNu64,
                   &figures.mallocs, &figures.sent, &figures.delivered, &figures.failed);
    require(found == 4, text);
    return figures;
}

}  // namespace sonorel::bench
