#include "service/ServiceHarness.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include <cutils/properties.h>
#include <utils/Errors.h>

#include "support/ProjectFile.h"

namespace sonorel::test {

using android::IPCThreadState;
using android::binder::Status;

namespace {

std::string join(const std::vector<float>& values) {
    std::string text;
    for (const float value : values) {
        char number[32];
        (void)std::snprintf(number, sizeof(number), "%g", static_cast<double>(value));
        text += (text.empty() ? "" : ",") + std::string(number);
    }
    return text;
}

}  // namespace

std::string describe(const CallbackData& data) {
    const CallbackData fresh;
    std::string text;
    const auto number = [&text](const char* name, int64_t value, int64_t normal) {
        if (value != normal) text += std::string(" ") + name + "=" + std::to_string(value);
    };
    const auto word = [&text](const char* name, const std::string& value) {
        if (!value.empty()) text += std::string(" ") + name + "=" + value;
    };
    number("status", data.status, fresh.status);
    number("enable", data.enable, fresh.enable);
    number("mode", data.mode, fresh.mode);
    word("pkgName", data.pkgName);
    number("scene", data.scene, fresh.scene);
    number("intValue", data.intValue, fresh.intValue);
    number("spMode", data.spMode, fresh.spMode);
    number("isPlaying", data.isPlaying, fresh.isPlaying);
    number("playState", data.playState, fresh.playState);
    word("data", join(data.data));
    number("intValue2", data.intValue2, fresh.intValue2);
    word("strValue", data.strValue);
    number("splitScreenEnabled", data.splitScreenEnabled, fresh.splitScreenEnabled);
    number("splitScreenParam1", data.splitScreenParam1, fresh.splitScreenParam1);
    number("splitScreenParam2", data.splitScreenParam2, fresh.splitScreenParam2);
    word("strValue2", data.strValue2);
    number("mssEnable", data.mssEnable, fresh.mssEnable);
    number("renderMode", data.renderMode, fresh.renderMode);
    word("gains", join(data.gains));
    return text;
}

void EventLog::add(int8_t clientId, const Event& event) {
    const std::lock_guard<std::mutex> lock(mMutex);
    mEntries.push_back({clientId, event});
}

std::vector<std::string> EventLog::lines() const {
    const std::lock_guard<std::mutex> lock(mMutex);
    std::vector<std::string> lines;
    for (const Entry& entry : mEntries) {
        lines.push_back("client " + std::to_string(entry.clientId) + " event " +
                        std::to_string(entry.event.number) +
                        (entry.event.oneWay ? " one-way" : " two-way") +
                        describe(entry.event.data));
    }
    return lines;
}

std::vector<std::string> EventLog::takeLines() {
    std::vector<std::string> taken = lines();
    clear();
    return taken;
}

size_t EventLog::count(int8_t clientId, int32_t number) const {
    const std::lock_guard<std::mutex> lock(mMutex);
    size_t count = 0;
    for (const Entry& entry : mEntries) {
        if (entry.clientId == clientId && entry.event.number == number) ++count;
    }
    return count;
}

void EventLog::clear() {
    const std::lock_guard<std::mutex> lock(mMutex);
    mEntries.clear();
}

Status FakeClient::onClientEvent(int32_t event, const CallbackData& input, CallbackData* answer) {
    mLog->add(mClientId, {event, false, input});
    if (mAnswer != nullptr) mAnswer(event, input, answer);
    return Status::fromStatusT(mFailure);
}

Status FakeClient::onClientEventOneWay(int32_t event, const CallbackData& input) {
    mLog->add(mClientId, {event, true, input});
    return Status::fromStatusT(mFailure);
}

ScopedCaller::ScopedCaller(uid_t uid, pid_t pid)
        : mToken(IPCThreadState::self()->clearCallingIdentity()) {
    IPCThreadState::self()->restoreCallingIdentity(
            static_cast<int64_t>((static_cast<uint64_t>(uid) << 32) | static_cast<uint32_t>(pid)));
}

ScopedCaller::~ScopedCaller() {
    IPCThreadState::self()->restoreCallingIdentity(mToken);
}

ServiceTest::ServiceTest() {
    char* folder = ::getcwd(nullptr, 0);
    mOldFolder = folder;
    std::free(folder);
    (void)mRoot.write("system_ext/etc/Meta_Audio_Policy.xml",
                      readFile(projectFile("tests/data/policy/two-scenes.xml")));
    EXPECT_EQ(0, ::setenv("SONOREL_DEVICE_ROOT", mRoot.path().c_str(), 1));
    EXPECT_EQ(0, ::chdir(mRoot.path().c_str()));
    product(false);
}

ServiceTest::~ServiceTest() {
    if (mService != nullptr) {
        // A registration holds the service: without this it would outlive the test.
        for (const int8_t id : mClientIds)
            (void)mService->unregisterClient(id);
        (void)mService->stopMetaAudioThread();
        const android::wp<SonorelService> ended = mService;
        mService.clear();
        // Its worker thread may hold it for a last period.
        EXPECT_TRUE(eventually([&ended] { return ended.promote() == nullptr; }));
    }
    EXPECT_EQ(0, ::chdir(mOldFolder.c_str()));
}

void ServiceTest::product(bool speaker, int mss, const char* effectType) {
    EXPECT_EQ(0, property_set("ro.qelto.audio.support.meta_audio_speaker",
                              speaker ? "true" : "false"));
    EXPECT_EQ(0, property_set("ro.qelto.audio.support.mss", std::to_string(mss).c_str()));
    EXPECT_EQ(0, property_set("ro.qelto.audio.effect.type", effectType));
}

void ServiceTest::start() {
    mService = SonorelService::testInstantiate();
}

void ServiceTest::restart() {
    for (const int8_t id : mClientIds)
        (void)mService->unregisterClient(id);
    mClientIds.clear();
    mService.clear();
    start();
}

sp<FakeClient> ServiceTest::addClient(int8_t id, FakeClient::Answer answer) {
    sp<FakeClient> client = new FakeClient(id, &mEvents, std::move(answer));
    EXPECT_TRUE(mService->registerClient(client, id).isOk());
    mClientIds.push_back(id);
    return client;
}

}  // namespace sonorel::test
