// The service manager with clients in other processes.

#include <limits>
#include <memory>

#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <binder/ServiceManager.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <string>

#include "support/ChildProcess.h"
#include "support/LogCapture.h"
#include "support/ScopedEnv.h"
#include "support/TempDir.h"
#include "support/Wait.h"

using namespace android;
using sonorel::test::ChildProcess;
using sonorel::test::eventually;
using sonorel::test::LogCapture;
using sonorel::test::ScopedEnv;
using sonorel::test::TempDir;

namespace {

// One manager for the whole program: a process can be the context manager once.
struct Host {
    TempDir root;
    TempDir runtime;
    ScopedEnv env{"SONOREL_RUNTIME_DIR", runtime.path()};
    sp<ServiceManager> manager = new ServiceManager(root.path());
};

Host& host() {
    static Host& sHost = *new Host();
    return sHost;
}

ChildProcess::Options peer(bool withThreads) {
    ChildProcess::Options options;
    options.program = std::string(SONOREL_BIN_DIR) + "/service_manager_peer";
    if (withThreads) options.args = {"pool"};
    options.env = {{"SONOREL_RUNTIME_DIR", host().runtime.path()}};
    return options;
}

class ServiceManagerProcess : public testing::Test {
protected:
    void SetUp() override {
        if (mPublished) return;
        {
            const LogCapture log;
            EXPECT_EQ(nullptr, defaultServiceManagerBeforeHost());
            EXPECT_FALSE(checkPermission(String16("p"), 1, 10001));
            EXPECT_TRUE(log.contains("no service manager"));
            EXPECT_TRUE(checkPermission(String16("p"), 1, 0));
        }
        ProcessState::self()->startThreadPool();
        ASSERT_EQ(OK, ProcessState::self()->becomeContextManager(host().manager));
        mPublished = true;
    }

    static sp<IServiceManager> defaultServiceManagerBeforeHost() {
        (void)host();  // sets the folder before the first use of binder
        return defaultServiceManager();
    }

    static inline bool mPublished = false;
};

TEST_F(ServiceManagerProcess, InItsOwnProcessIsTheObjectItself) {
    EXPECT_EQ(static_cast<IServiceManager*>(host().manager.get()), defaultServiceManager().get());
}

TEST_F(ServiceManagerProcess, ServiceOfAnotherProcessIsThereUntilItEnds) {
    ChildProcess child(peer(/*withThreads=*/true));
    child.write("add remote.service\n");
    ASSERT_TRUE(child.waitForOutput("added 0"));
    const sp<IBinder> service = defaultServiceManager()->getService(String16("remote.service"));
    ASSERT_NE(nullptr, service);
    EXPECT_EQ(OK, service->pingBinder());
    child.write("list\n");
    EXPECT_TRUE(child.waitForOutput("listed 1"));
    child.kill(SIGKILL);
    EXPECT_TRUE(eventually([] {
        return defaultServiceManager()->checkService(String16("remote.service")) == nullptr;
    }));
}

TEST_F(ServiceManagerProcess, ClientWaitsWithAndWithoutBinderThreads) {
    for (const bool withThreads : {true, false}) {
        SCOPED_TRACE(withThreads);
        const String16 name(withThreads ? "late.pool" : "late.alone");
        ChildProcess child(peer(withThreads));
        child.write(withThreads ? "await late.pool\n" : "await late.alone\n");
        ASSERT_TRUE(child.waitForError("Waiting for service"));
        ASSERT_EQ(OK, defaultServiceManager()->addService(name, new BBinder()));
        EXPECT_TRUE(child.waitForOutput("came 0"));
    }
}

TEST_F(ServiceManagerProcess, GrantsCountInEveryProcess) {
    ChildProcess child(peer(/*withThreads=*/false));
    child.write("permission p 10001\n");
    ASSERT_TRUE(child.waitForOutput("refused"));
    host().root.write("data/system/permission.grants", "p 10001\n");
    child.write("permission p 10001\n");
    EXPECT_TRUE(child.waitForOutput("granted"));
    EXPECT_TRUE(checkPermission(String16("p"), 1, 10001));
}

}  // namespace
