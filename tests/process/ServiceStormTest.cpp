// Eight threads call every method of one service object at once, with headset changes, user
// switches and the tick among them, so that a thread sanitizer sees caller, service and client
// together.

#include <memory>

#include <thread>
#include <vector>

#include "process/AllMethods.h"
#include "process/RecordingClient.h"
#include "service/ServiceHarness.h"

namespace sonorel::test {
namespace {

constexpr uint32_t kCallers = 8;
constexpr int kCallsEach = 1500;

class ServiceStorm : public ServiceTest {
protected:
    static void call(const sp<SonorelService>& service, uint32_t seed) {
        const ScopedCaller system(kSystemUid);
        Draw draw(seed);
        const sp<RecordingClient> client = new RecordingClient();
        const auto last = static_cast<int32_t>(allMethods().size()) - 1;
        for (int i = 0; i < kCallsEach; ++i) {
            const Method& method = allMethods()[static_cast<size_t>(draw.number(0, last))];
            EXPECT_TRUE(method.call(*service, draw, client).isOk()) << method.name;
            if (i % 100 == 99) (void)service->onAudioServerRestarted();
        }
    }

    void storm() {
        std::vector<std::thread> callers;
        for (uint32_t i = 0; i < kCallers; ++i)
            callers.emplace_back([this, i] { call(mService, 7 * i + 1); });
        for (std::thread& caller : callers)
            caller.join();
        // A registration holds the service.
        for (int id = 20; id <= 27; ++id)
            EXPECT_TRUE(mService->unregisterClient(static_cast<int8_t>(id)).isOk());
        mCapture.clear();
    }
};

TEST_F(ServiceStorm, SpeakerProduct) {
    product(true, 1);
    start();
    for (const int8_t id : {0, 1, 3, 4, 5})
        addClient(id);
    storm();
    // The last setting wins, in the cache as in the store, for either device.
    ASSERT_TRUE(mService->setCurrentUserID(5).isOk());
    for (const int8_t device : {0, 1}) {
        ASSERT_TRUE(mService->notitySpHeadsetConnectionState(device == 1).isOk());
        int32_t status = 0;
        ASSERT_TRUE(mService->setMetaAudioMode(static_cast<int8_t>(3 + device), &status).isOk());
        ASSERT_TRUE(mService->javaCallSetCurrentPos(2, {1, 2, static_cast<float>(device)}).isOk());
    }
    restart();
    ASSERT_TRUE(mService->setCurrentUserID(5).isOk());
    for (const int8_t device : {0, 1}) {
        ASSERT_TRUE(mService->notitySpHeadsetConnectionState(device == 0).isOk());
        int8_t mode = 0;
        std::vector<float> stored(3);
        ASSERT_TRUE(mService->getMetaAudioModeWithDev(device, &mode).isOk());
        ASSERT_TRUE(mService->getCurrentPosWithDev(2, &stored, device).isOk());
        EXPECT_EQ(3 + device, mode);
        EXPECT_EQ(pos(1, 2, device), stored);
    }
}

TEST_F(ServiceStorm, HeadsetProductWithoutClients) {
    product(false, 1);
    start();
    storm();
    ASSERT_TRUE(mService->notitySpHeadsetConnectionState(false).isOk());
    int32_t status = 0;
    int8_t mode = 0;
    ASSERT_TRUE(mService->setMetaAudioMode(9, &status).isOk());
    ASSERT_TRUE(mService->getMetaAudioMode(&mode).isOk());
    EXPECT_EQ(9, mode);
}

}  // namespace
}  // namespace sonorel::test
