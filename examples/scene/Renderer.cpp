// A client of the service, small and whole: registers under an id, says in words what it is told,
// answers as a renderer would, and unregisters on SIGTERM.
//
//   example_renderer [--id N] [--name NAME]

#include <signal.h>
#include <stdio.h>
#include <unistd.h>

#include <array>
#include <map>
#include <mutex>
#include <string>

#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <qelto/halvend/BnHalvendClient.h>
#include <qelto/halvend/ISonorelService.h>
#include <utils/String16.h>
#include <CLI/CLI.hpp>

namespace {

using android::sp;
using android::binder::Status;
using qelto::halvend::CallbackData;
using qelto::halvend::IHalvendClient;
using qelto::halvend::ISonorelService;

std::string xyz(const std::vector<float>& data) {
    if (data.size() < 3) return "(nowhere)";
    std::array<char, 64> text{};
    (void)snprintf(text.data(), text.size(), "(%.2f, %.2f, %.2f)", static_cast<double>(data[0]),
                   static_cast<double>(data[1]), static_cast<double>(data[2]));
    return text.data();
}

// Called on binder threads, two at once where a one-way event comes beside a two-way one.
class Renderer : public qelto::halvend::BnHalvendClient {
public:
    explicit Renderer(std::string name) : mName(std::move(name)) {}

    Status onClientEvent(int32_t event, const CallbackData& in, CallbackData* answer) override {
        const std::lock_guard<std::mutex> lock(mMutex);
        answer->status = 0;
        switch (event) {
            case IHalvendClient::CB_SET_META_AUDIO_ON:
                mOn = in.enable;
                tell(std::string("spatial audio ") + (in.enable ? "ON" : "OFF"));
                break;
            case IHalvendClient::CB_SET_META_AUDIO_MODE:
                mMode = in.mode;
                tell("mode " + std::to_string(in.mode));
                break;
            case IHalvendClient::CB_LOAD_XML_AND_SQLITE:
                tell("policy and settings are loaded");
                break;
            case IHalvendClient::CB_SET_FAST_GAME_EFFECT:
                tell("game effect of " + in.pkgName + ": " + std::to_string(in.renderMode));
                break;
            case IHalvendClient::CB_GET_META_AUDIO_ON:
                answer->enable = mOn;
                break;
            case IHalvendClient::CB_GET_META_AUDIO_MODE:
                answer->mode = mMode;
                break;
            case IHalvendClient::CB_GET_CURRENT_POS:
                answer->data = mPositions[in.scene];
                break;
            case IHalvendClient::CB_IS_SCENE_PLAYING:
                answer->isPlaying = mOn;
                break;
            default:
                break;  // the defaults are an answer
        }
        return Status::ok();
    }

    Status onClientEventOneWay(int32_t event, const CallbackData& in) override {
        const std::lock_guard<std::mutex> lock(mMutex);
        if (event != IHalvendClient::CB_SET_CURRENT_POS) tellPositions();
        if (event != IHalvendClient::CB_HEAD_TO_STAGE_DATA) tellHeadData();
        switch (event) {
            case IHalvendClient::CB_SET_CURRENT_POS:
                mPositions[in.scene] = in.data;
                ++mPositionsTold;
                mLastScene = in.scene;
                break;
            case IHalvendClient::CB_HEAD_TO_STAGE_DATA:
                ++mHeadData;
                if (in.data.size() >= 6) mTurnedMost = std::max(mTurnedMost, std::abs(in.data[1]));
                break;
            case IHalvendClient::CB_SET_SP_MODE:
                tell("spatializer state " + std::to_string(in.spMode));
                break;
            case IHalvendClient::CB_META_AUDIO_ON_TO_CLIENT:
                tell(std::string("spatial audio ") + (in.enable ? "ON" : "OFF") + ", mode " +
                     std::to_string(in.mode));
                break;
            case IHalvendClient::CB_SET_MSS_ENABLE:
                tell("sound separation of " + in.pkgName + (in.mssEnable ? " ON" : " OFF"));
                break;
            case IHalvendClient::CB_SET_MSS_TRACKS_GAIN:
                tell("track gains of " + in.pkgName + ": " + std::to_string(in.gains.size()));
                break;
            case IHalvendClient::CB_SET_MSS_RENDER_MODE:
                tell("sound widening mode " + std::to_string(in.renderMode));
                break;
            case IHalvendClient::CB_META_THREAD_TICK:
                ++mTicks;
                break;
            case IHalvendClient::CB_SET_META_THREAD_ENABLE:
                tell("check the sensor, ticks follow");
                break;
            default:
                tell("event " + std::to_string(event));
                break;
        }
        return Status::ok();
    }

    // What was counted and not told yet.
    void tellRest() {
        const std::lock_guard<std::mutex> lock(mMutex);
        tellPositions();
        tellHeadData();
        if (mTicks > 0) tell(std::to_string(mTicks) + " ticks came");
    }

private:
    void tell(const std::string& what) const {
        (void)printf("    service -> %-13s %s\n", mName.c_str(), what.c_str());
        (void)fflush(stdout);
    }
    void tellPositions() {
        if (mPositionsTold == 1) {
            tell("scene " + std::to_string(mLastScene) + " stands at " +
                 xyz(mPositions[mLastScene]));
        } else if (mPositionsTold > 1) {
            tell(std::to_string(mPositionsTold) + " scene positions, scene 1 at " +
                 xyz(mPositions[1]));
        }
        mPositionsTold = 0;
    }
    void tellHeadData() {
        if (mHeadData == 0) return;
        std::array<char, 96> text{};
        (void)snprintf(text.data(), text.size(), "%d head movements, turned %.0f degrees at most",
                       mHeadData, static_cast<double>(mTurnedMost) * 57.2958);
        tell(text.data());
        mHeadData = 0;
        mTurnedMost = 0;
    }

    const std::string mName;
    std::mutex mMutex;
    bool mOn = false;
    int8_t mMode = 0;
    std::map<int32_t, std::vector<float>> mPositions;
    int mPositionsTold = 0;
    int32_t mLastScene = 0;
    int mHeadData = 0;
    float mTurnedMost = 0;
    int mTicks = 0;
};

}  // namespace

int main(int argc, char** argv) {
    int id = IHalvendClient::CLIENT_ID_META_AUDIO;
    std::string name = "renderer";
    CLI::App app("An example client: registers with the service and tells what it is sent");
    app.add_option("--id", id, "Client id")->check(CLI::Range(-128, 127))->capture_default_str();
    app.add_option("--name", name, "Name to show")->capture_default_str();
    CLI11_PARSE(app, argc, argv);

    // Before any thread starts: the end comes as a signal to this thread alone.
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGTERM);
    sigaddset(&ends, SIGINT);
    (void)pthread_sigmask(SIG_BLOCK, &ends, nullptr);

    const auto service = android::interface_cast<ISonorelService>(
            android::defaultServiceManager() == nullptr
                    ? nullptr
                    : android::defaultServiceManager()->getService(
                              android::String16("SonorelService")));
    if (service == nullptr) {
        (void)fprintf(stderr, "%s: the service is not there\n", argv[0]);
        return 3;
    }
    android::ProcessState::self()->startThreadPool();
    const sp<Renderer> renderer = new Renderer(name);
    if (!service->registerClient(renderer, static_cast<int8_t>(id)).isOk()) {
        (void)fprintf(stderr, "%s: cannot register as client %d\n", argv[0], id);
        return 1;
    }
    (void)printf("    %s registered as client %d\n", name.c_str(), id);
    (void)fflush(stdout);
    int received = 0;
    (void)sigwait(&ends, &received);
    (void)service->unregisterClient(static_cast<int8_t>(id));
    renderer->tellRest();
    (void)fflush(stdout);
    // Without static destructors: a binder thread may still be inside a late event.
    std::quick_exit(0);
}
