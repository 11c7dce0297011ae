// A client process for the tests, in one of several roles. It finds the service in
// $SONOREL_RUNTIME_DIR and says on stdout what it has done, a line each.
//
//   process_peer identity [UID]    calls what only some may call; with UID it first claims to be it
//   process_peer register ID       registers, prints "event N" for each callback, until stdin ends
//   process_peer visit ID          on a line of stdin: gets a callback as client 4, then holds ID
//   process_peer call              calls setMetaAudioOn and prints the status
//   process_peer reload            on each line of stdin: calls checkAndUpdatePolicy, and prints
//                                  the line and the answer
//   process_peer storm SEED COUNT  COUNT calls of all methods in random order

#include <memory>

#include <charconv>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>

#include <binder/IPCThreadState.h>
#include <unistd.h>

#include "process/AllMethods.h"
#include "process/RecordingClient.h"
#include "process/ServiceProcess.h"

namespace sonorel::test {
namespace {

using android::IPCThreadState;
using android::sp;
using android::binder::Status;
using qelto::halvend::CallbackData;
using qelto::halvend::IHalvendClient;
using qelto::halvend::ISonorelService;

constexpr int kFailure = 1;
constexpr int kUsage = 2;

bool parse(const char* text, int64_t* outNumber) {
    return std::from_chars(text, text + strlen(text), *outNumber).ec == std::errc();
}

void say(const std::string& line) {
    printf("%s\n", line.c_str());
    fflush(stdout);
}

std::string show(const std::vector<float>& values) {
    std::string text;
    for (const float value : values)
        text += (text.empty() ? "" : ",") + std::to_string(static_cast<int>(value));
    return text;
}

void claimToBe(int64_t uid) {
    IPCThreadState* const thread = IPCThreadState::self();
    (void)thread->clearCallingIdentity();
    thread->restoreCallingIdentity((uid << 32) | 1);
}

// One line a method: whether its status was ok, and its outputs.
int callChecked(const sp<ISonorelService>& service) {
    int32_t number = -77;
    Status status = service->setMetaAudioOn(true, &number);
    say("setMetaAudioOn " + std::to_string(status.isOk()) + " " + std::to_string(number));
    number = -77;
    status = service->setMetaAudioMode(3, &number);
    say("setMetaAudioMode " + std::to_string(status.isOk()) + " " + std::to_string(number));
    std::string text = "untouched";
    status = service->getParameters("mss_get_spatializer_enable", &text);
    say("getParameters " + std::to_string(status.isOk()) + " '" + text + "'");
    std::vector<float> gains(5, 9.0f);
    number = -77;
    status = service->getMssTracksGain("com.example.player", &gains, &number);
    say("getMssTracksGain " + std::to_string(status.isOk()) + " [" + show(gains) + "] " +
        std::to_string(number));
    return 0;
}

class TellingClient : public qelto::halvend::BnHalvendClient {
public:
    Status onClientEvent(int32_t event, const CallbackData&, CallbackData* answer) override {
        say("event " + std::to_string(event));
        answer->status = 0;
        return Status::ok();
    }
    Status onClientEventOneWay(int32_t event, const CallbackData&) override {
        say("event " + std::to_string(event));
        return Status::ok();
    }
};

void waitForInputEnd() {
    while (getchar() != EOF) {
    }
}

int registerAndListen(const sp<ISonorelService>& service, int8_t id) {
    const sp<TellingClient> client = new TellingClient();
    if (!service->registerClient(client, id).isOk()) return kFailure;
    say("registered");
    waitForInputEnd();
    return 0;
}

int visit(const sp<ISonorelService>& service, int8_t id) {
    const sp<RecordingClient> client = new RecordingClient();
    say("connected");
    (void)getchar();
    int32_t status = 0;
    const bool told =
            service->registerClient(client, IHalvendClient::CLIENT_ID_EFFECT_CENTER).isOk() &&
            service->setMetaAudioOn(true, &status).isOk() &&
            client->waitFor(IHalvendClient::CB_META_AUDIO_ON_TO_CLIENT) &&
            service->unregisterClient(IHalvendClient::CLIENT_ID_EFFECT_CENTER).isOk() &&
            service->registerClient(client, id).isOk();
    if (!told) return kFailure;
    say("held");
    waitForInputEnd();
    return 0;
}

int callAndTell(const sp<ISonorelService>& service) {
    say("calling");
    int32_t number = 0;
    const Status status = service->setMetaAudioOn(true, &number);
    say("answered " + std::to_string(status.isOk()) + " " + std::to_string(number));
    return 0;
}

int reload(const sp<ISonorelService>& service) {
    say("connected");
    char line[32];
    while (fgets(line, sizeof(line), stdin) != nullptr) {
        line[strcspn(line, "\n")] = '\0';
        bool reloaded = false;
        if (!service->checkAndUpdatePolicy(&reloaded).isOk()) return kFailure;
        say("reloaded " + std::string(line) + " " + std::to_string(reloaded));
    }
    return 0;
}

int storm(const sp<ISonorelService>& service, uint32_t seed, int64_t count) {
    Draw draw(seed);
    const sp<RecordingClient> client = new RecordingClient();
    const auto& methods = allMethods();
    for (int64_t i = 0; i < count; ++i) {
        const Method& method = methods[static_cast<size_t>(
                draw.number(0, static_cast<int32_t>(methods.size()) - 1))];
        if (const Status status = method.call(*service, draw, client); !status.isOk()) {
            fprintf(stderr, "%s: %s\n", method.name, status.toString8().c_str());
            return kFailure;
        }
        if (i % 256 == 255) client->clear();
    }
    say("done");
    return 0;
}

int run(const std::string& role, int64_t first, int64_t second) {
    const sp<ISonorelService> service = connectToService();
    if (service == nullptr) {
        fprintf(stderr, "no service\n");
        return kFailure;
    }
    if (role == "identity") {
        if (first >= 0) claimToBe(first);
        return callChecked(service);
    }
    if (role == "register") return registerAndListen(service, static_cast<int8_t>(first));
    if (role == "visit") return visit(service, static_cast<int8_t>(first));
    if (role == "call") return callAndTell(service);
    if (role == "reload") return reload(service);
    if (role == "storm") return storm(service, static_cast<uint32_t>(first), second);
    fprintf(stderr, "no role %s\n", role.c_str());
    return kUsage;
}

}  // namespace
}  // namespace sonorel::test

int main(int argc, char** argv) {
    int64_t numbers[2] = {-1, -1};
    for (int i = 2; i < argc && i < 4; ++i) {
        if (!sonorel::test::parse(argv[i], &numbers[i - 2])) {
            fprintf(stderr, "not a number: %s\n", argv[i]);
            return sonorel::test::kUsage;
        }
    }
    const int code = sonorel::test::run(argc > 1 ? argv[1] : "", numbers[0], numbers[1]);
    fflush(stdout);
    // Binder threads may still serve: static objects must stay.
    _exit(code);
}
