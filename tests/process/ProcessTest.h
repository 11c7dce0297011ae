#pragma once

#include <signal.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "process/RecordingClient.h"
#include "process/ServiceProcess.h"

namespace sonorel::test {

constexpr uid_t kStrangerUid = 10099;
constexpr int32_t kRendererStatus = 7;  // shows that the renderer was asked

// A thread that is waited for at the end of its scope, also when the test has failed before.
class JoinedThread {
public:
    explicit JoinedThread(std::function<void()> work) : mThread(std::move(work)) {}
    ~JoinedThread() { join(); }
    JoinedThread(const JoinedThread&) = delete;
    JoinedThread& operator=(const JoinedThread&) = delete;
    void join() {
        if (mThread.joinable()) mThread.join();
    }

private:
    std::thread mThread;
};

// sonoreld on a device root of its own, and this process as its client.
class ProcessTest : public ::testing::Test {
protected:
    ProcessTest() { (void)runtimeFolder(); }
    ~ProcessTest() override {
        if (mDaemon != nullptr) stop();
    }

    void start(const std::vector<std::string>& args = {},
               const std::map<std::string, std::string>& environment = {}) {
        mDaemon = std::make_unique<ServiceProcess>(mRoot, args, environment);
        ASSERT_TRUE(mDaemon->waitUntilReady()) << mDaemon->process().errors();
        mService = connectToService();
        ASSERT_NE(nullptr, mService);
    }

    // Ends sonoreld as an init system would, and expects it to follow.
    void stop() {
        mService.clear();
        mDaemon->process().kill(SIGTERM);
        const auto end = mDaemon->process().wait();
        ASSERT_TRUE(end.has_value());
        EXPECT_TRUE(end->exited && end->code == 0)
                << "code " << end->code << " signal " << end->signal << "\n"
                << mDaemon->process().errors();
        mDaemon.reset();
    }

    android::sp<RecordingClient> addClient(int8_t id, int32_t status = kRendererStatus) {
        const android::sp<RecordingClient> client = new RecordingClient(status);
        EXPECT_TRUE(mService->registerClient(client, id).isOk());
        return client;
    }

    // The service answers, and a setting goes through it to the store and back.
    void expectServes() {
        ASSERT_TRUE(mService->testSonorelService().isOk());
        for (const float x : {1.5f, 2.5f}) {
            std::vector<float> stored(3);
            EXPECT_TRUE(mService->javaCallSetCurrentPos(7, {x, -x, 0}).isOk());
            EXPECT_TRUE(mService->javaCallGetCurrentPos(7, &stored).isOk());
            EXPECT_EQ((std::vector<float>{x, -x, 0}), stored);
        }
    }

    const DeviceRoot mRoot;
    std::unique_ptr<ServiceProcess> mDaemon;
    android::sp<qelto::halvend::ISonorelService> mService;
};

}  // namespace sonorel::test
