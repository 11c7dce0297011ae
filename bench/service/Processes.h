#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Roles.h"
#include "process/ServiceProcess.h"

namespace sonorel::bench {

// Ends the program with the reason: a measurement whose processes did not come up is none.
void require(bool ok, const std::string& what);

// A child in a role, up and ready.
std::unique_ptr<test::ChildProcess> startRole(const std::vector<std::string>& args);

// sonoreld on a device root of its own, and this process as its caller. Head tracking is on.
class ServiceRun {
public:
    explicit ServiceRun(const std::vector<std::string>& args = test::speakerProduct());
    ServiceRun(const ServiceRun&) = delete;
    ServiceRun& operator=(const ServiceRun&) = delete;
    ~ServiceRun();

    const android::sp<qelto::halvend::ISonorelService>& service() const { return mService; }
    const std::string& path() const { return mPath; }
    pid_t pid() const { return mDaemon.process().pid(); }

private:
    const test::DeviceRoot mRoot;
    const std::string mPath = mRoot.path();
    test::ServiceProcess mDaemon;
    android::sp<qelto::halvend::ISonorelService> mService;
};

// The service in a child of this program instead, where its inside can be asked.
class HostRun {
public:
    HostRun();
    ~HostRun() = default;
    HostRun(const HostRun&) = delete;
    HostRun& operator=(const HostRun&) = delete;

    struct Figures {
        uint64_t mallocs;
        uint64_t sent;
        uint64_t delivered;
        uint64_t failed;
    };
    Figures ask();
    const android::sp<qelto::halvend::ISonorelService>& service() const { return mService; }
    std::string path(const std::string& name) const { return mRoot.path(name); }

private:
    const test::DeviceRoot mRoot;
    std::unique_ptr<test::ChildProcess> mHost;
    android::sp<qelto::halvend::ISonorelService> mService;
    size_t mAnswered = 0;
};

}  // namespace sonorel::bench
