#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include <binder/IPCThreadState.h>
#include <gtest/gtest.h>
#include <qelto/halvend/BnHalvendClient.h>

#include "service/SonorelService.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace sonorel::test {

using android::SonorelService;
using android::sp;
using qelto::halvend::CallbackData;
using qelto::halvend::IHalvendClient;

// What a client was sent.
struct Event {
    int32_t number;
    bool oneWay;
    CallbackData data;
};

// A client in this process: records every event, in order over all clients of one log, and answers
// two-way events as told.
class EventLog {
public:
    struct Entry {
        int8_t clientId;
        Event event;
    };
    void add(int8_t clientId, const Event& event);
    // One line an event, e.g. "1:CB 0 two-way enable=1"; only the fields that differ from default.
    std::vector<std::string> lines() const;
    std::vector<std::string> takeLines();
    size_t count(int8_t clientId, int32_t number) const;
    void clear();

private:
    mutable std::mutex mMutex;
    std::vector<Entry> mEntries;
};

class FakeClient : public qelto::halvend::BnHalvendClient {
public:
    using Answer = std::function<void(int32_t event, const CallbackData& in, CallbackData* out)>;

    FakeClient(int8_t clientId, EventLog* log, Answer answer = nullptr)
            : mClientId(clientId), mLog(log), mAnswer(std::move(answer)) {}

    // The status of every later call; a failed call's record must not reach the sender.
    void failWith(android::status_t status) { mFailure = status; }

    android::binder::Status onClientEvent(int32_t event, const CallbackData& input,
                                          CallbackData* answer) override;
    android::binder::Status onClientEventOneWay(int32_t event, const CallbackData& input) override;

private:
    const int8_t mClientId;
    EventLog* const mLog;
    const Answer mAnswer;
    android::status_t mFailure = android::OK;
};

// The field names and values of a record that differ from a fresh one.
std::string describe(const CallbackData& data);

// Makes this thread's binder calls those of another caller while it lives.
class ScopedCaller {
public:
    explicit ScopedCaller(uid_t uid, pid_t pid = 4242);
    ~ScopedCaller();
    ScopedCaller(const ScopedCaller&) = delete;
    ScopedCaller& operator=(const ScopedCaller&) = delete;

private:
    const int64_t mToken;
};

constexpr uid_t kSystemUid = 1000;
constexpr uid_t kAudioServerUid = 1041;
constexpr uid_t kStrangerUid = 10099;

// A device root in a temporary folder with the service in it. Calls come from the system by
// default.
class ServiceTest : public ::testing::Test {
protected:
    ServiceTest();
    ~ServiceTest() override;
    ServiceTest(const ServiceTest&) = delete;
    ServiceTest& operator=(const ServiceTest&) = delete;

    // Properties last as long as the process: each test sets the ones that it depends on.
    void product(bool speaker, int mss = 0, const char* effectType = "none");
    void start();
    // Ends the service and starts another on the same device root, as after a reboot.
    void restart();

    sp<FakeClient> addClient(int8_t id, FakeClient::Answer answer = nullptr);
    std::vector<float> pos(float x, float y, float z) { return {x, y, z}; }

    LogCapture mCapture;
    TempDir mRoot;
    EventLog mEvents;
    sp<SonorelService> mService;

private:
    ScopedCaller mCaller{kSystemUid};
    std::string mOldFolder;
    std::vector<int8_t> mClientIds;
};

}  // namespace sonorel::test
