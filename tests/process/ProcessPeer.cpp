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
//   process_peer tick SEED COUNT   COUNT times, or for -COUNT seconds, switches the tick or head
//                                  tracking on or off
//   process_peer user|plug         on each line of stdin: switches the user, or the headset
//   process_peer flood SEED COUNT  COUNT deferred settings, most of which do not exist
//   process_peer renderer          on a line of stdin: registers as client 1, says when it has got
//                                  everything
//   process_peer choose ROW        on a line of stdin with a seed: sets one setting several times,
//   each
//                                  time reads it, and says what it set last

#include <memory>

#include <algorithm>
#include <charconv>
#include <chrono>
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

int tick(const sp<ISonorelService>& service, uint32_t seed, int64_t count) {
    using std::chrono::steady_clock;
    const auto end = steady_clock::now() + std::chrono::seconds(std::max<int64_t>(-count, 0));
    Draw draw(seed);
    for (int64_t i = 0; i < count || (count < 0 && steady_clock::now() < end); ++i) {
        const bool on = draw.flag();
        const Status status = draw.chance(4) ? service->setHeadTrackerEnable(on)
                                             : service->setMetaAudioThreadEnable(on);
        if (!status.isOk()) return kFailure;
    }
    say("done");
    return 0;
}

int switchOnDemand(const sp<ISonorelService>& service, bool isUser) {
    say("connected");
    for (int32_t count = 1; getchar() == '\n'; ++count) {
        const Status status = isUser ? service->setCurrentUserID(count)
                                     : service->notitySpHeadsetConnectionState(count % 2 == 1);
        if (!status.isOk()) return kFailure;
        say("switched " + std::to_string(count) + ".");
    }
    return 0;
}

int flood(const sp<ISonorelService>& service, uint32_t seed, int64_t count) {
    Draw draw(seed);
    for (int64_t i = 0; i < count; ++i) {
        const auto device = static_cast<int8_t>(draw.number(-128, 127));
        if (!service->setCurrentPosWithDev(draw.anyInt(), {1, 2, 3}, device).isOk()) {
            return kFailure;
        }
        if (!service->setCurrentPosWithDev(draw.number(1, 13), {1, 2, 3}, 1).isOk()) {
            return kFailure;
        }
    }
    say("done");
    return 0;
}

int render(const sp<ISonorelService>& service) {
    const sp<RecordingClient> client = new RecordingClient();
    say("connected");
    (void)getchar();
    if (!service->registerClient(client, IHalvendClient::CLIENT_ID_META_AUDIO).isOk()) {
        return kFailure;
    }
    // The push ends with the spatializer's state; the positions before it are as many as scenes.
    const struct {
        int32_t event;
        size_t count;
    } push[] = {{IHalvendClient::CB_LOAD_XML_AND_SQLITE, 1},
                {IHalvendClient::CB_SET_META_AUDIO_ON, 1},
                {IHalvendClient::CB_SET_META_AUDIO_MODE, 1},
                {IHalvendClient::CB_SET_CURRENT_POS, 13},
                {IHalvendClient::CB_SET_SP_MODE, 1}};
    for (const auto& part : push) {
        if (client->waitFor(part.event, part.count)) continue;
        fprintf(stderr, "no event %d among %zu\n", part.event, client->events().size());
        return kFailure;
    }
    say("whole");
    waitForInputEnd();
    return 0;
}

// One setting, set at once or deferred; reads it back. Row 0 is the mode, 1 on/off, 2 a game's
// switch, from 3 on the position of scene ROW.
bool choose(ISonorelService& service, int64_t row, bool isDeferred, int32_t value) {
    constexpr int8_t kNoDevice = -1;
    int32_t status = 0;
    if (row == 0) {
        const auto mode = static_cast<int8_t>(value);
        int8_t read = -1;
        return (isDeferred ? service.setMetaAudioModeWithDev(mode, kNoDevice, &status)
                           : service.setMetaAudioMode(mode, &status))
                       .isOk() &&
               service.getMetaAudioModeWithDev(kNoDevice, &read).isOk() && read == mode;
    }
    if (row == 1) {
        const bool on = value % 2 != 0;
        bool read = !on;
        return (isDeferred ? service.setMetaAudioOnWithDev(on, kNoDevice, &status)
                           : service.setMetaAudioOn(on, &status))
                       .isOk() &&
               service.getMetaAudioOnWithDev(kNoDevice, &read).isOk() && read == on;
    }
    if (row == 2) {
        std::string text;
        int32_t read = -1;
        return service.setFastGameEffectOn("a", value, &status).isOk() &&
               (isDeferred ? service.loadPkgSwitchInFastSql(&text)
                           : service.syncGameListInfo("a 1\n"))
                       .isOk() &&
               service.getFastGameEffectOn("a", &read).isOk() && read == value;
    }
    const auto scene = static_cast<int32_t>(row);
    const std::vector<float> pos = {static_cast<float>(value), 0, 0};
    std::vector<float> read(3);
    return (isDeferred ? service.setCurrentPosWithDev(scene, pos, kNoDevice)
                       : service.javaCallSetCurrentPos(scene, pos))
                   .isOk() &&
           service.getCurrentPosWithDev(scene, &read, kNoDevice).isOk() && read == pos;
}

int chooseOnDemand(const sp<ISonorelService>& service, int64_t row) {
    say("connected");
    unsigned seed = 0;
    while (scanf("%u", &seed) == 1) {  // NOLINT(cert-err34-c): from the test that started it
        Draw draw(seed);
        int32_t value = 0;
        for (int32_t left = draw.number(2, 6); left > 0; --left) {
            value = draw.number(0, 100);
            if (!choose(*service, row, draw.flag(), value)) {
                say("lost " + std::to_string(value));
                return kFailure;
            }
        }
        say("seed " + std::to_string(seed) + " last " + std::to_string(value));
    }
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
    if (role == "tick") return tick(service, static_cast<uint32_t>(first), second);
    if (role == "user" || role == "plug") return switchOnDemand(service, role == "user");
    if (role == "flood") return flood(service, static_cast<uint32_t>(first), second);
    if (role == "renderer") return render(service);
    if (role == "choose") return chooseOnDemand(service, first);
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
