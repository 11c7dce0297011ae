#include <memory>

#include "Roles.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iostream>
#include <map>

#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <binder/ServiceManager.h>
#include <qelto/halvend/BnHalvendClient.h>

#include "Timing.h"
#include "process/ServiceProcess.h"
#include "service/SonorelService.h"

namespace sonorel::bench {

namespace {

using android::sp;
using android::binder::Status;
using qelto::halvend::CallbackData;
using qelto::halvend::IHalvendClient;
using qelto::halvend::ISonorelService;
using Args = std::vector<std::string>;
using HeadData = std::array<float, 6>;

constexpr int kFailure = 1;

[[noreturn]] void die(const char* what) {
    std::perror(what);
    std::exit(kFailure);  // NOLINT(concurrency-mt-unsafe): ends a child that has nothing to lose
}

void say(const std::string& line) {
    std::cout << line << std::endl;
}

bool nextLine() {
    std::string line;
    return static_cast<bool>(std::getline(std::cin, line));
}

void waitForInputEnd() {
    while (nextLine()) {
    }
}

HeadData headData(uint32_t sample) {
    return {static_cast<float>(sample), 0.1f, 0.2f, 0.3f, 0.4f, 0.5f};
}

class Client : public qelto::halvend::BnHalvendClient {
public:
    Status onClientEvent(int32_t, const CallbackData&, CallbackData* answer) override {
        answer->status = 0;
        answer->isPlaying = true;
        return Status::ok();
    }
    Status onClientEventOneWay(int32_t, const CallbackData&) override { return Status::ok(); }
};

class Renderer : public Client {
public:
    explicit Renderer(const std::string& path) : mTimes(path) {}
    Status onClientEventOneWay(int32_t event, const CallbackData& data) override {
        if (event == CB_HEAD_TO_STAGE_DATA) {
            mTimes.received(SampleTimes::kService, static_cast<uint32_t>(data.data.at(0)));
        }
        return Status::ok();
    }

private:
    SampleTimes mTimes;
};

class Thinker : public Client {
public:
    explicit Thinker(int64_t think) : mThink(think) {}
    Status onClientEvent(int32_t event, const CallbackData& in, CallbackData* answer) override {
        if (event == CB_IS_META_TRACK_PLAYING) sleepUntil(now() + mThink);
        return Client::onClientEvent(event, in, answer);
    }

private:
    const int64_t mThink;
};

class Ticker : public Client {
public:
    Status onClientEventOneWay(int32_t event, const CallbackData&) override {
        const size_t count = mCount.load(std::memory_order_relaxed);
        if (event == CB_META_THREAD_TICK && count < mTimes.size()) {
            mTimes[count] = now();
            mCount.store(count + 1, std::memory_order_release);
        }
        return Status::ok();
    }
    void tell() {
        const size_t count = mCount.load(std::memory_order_acquire);
        for (size_t i = 0; i < count; ++i)
            std::cout << mTimes[i] << '\n';
        say("end");
    }

private:
    std::array<int64_t, 20000> mTimes{};
    std::atomic<size_t> mCount{0};
};

int serveAs(const sp<Client>& client, int8_t id) {
    const sp<ISonorelService> service = test::connectToService();
    if (service == nullptr || !service->registerClient(client, id).isOk()) return kFailure;
    say("ready");
    return 0;
}

int runRenderer(const Args& args) {
    if (serveAs(new Renderer(args.at(1)), IHalvendClient::CLIENT_ID_META_AUDIO) != 0) return 1;
    waitForInputEnd();
    return 0;
}

int runThinker(const Args& args) {
    const int64_t think = std::stol(args.at(2)) * kMillisecond;
    if (serveAs(new Thinker(think), static_cast<int8_t>(std::stoi(args.at(1)))) != 0) return 1;
    waitForInputEnd();
    return 0;
}

int runTicker(const Args&) {
    const sp<Ticker> ticker = new Ticker();
    if (serveAs(ticker, IHalvendClient::CLIENT_ID_META_THREAD) != 0) return 1;
    while (nextLine())
        ticker->tell();
    return 0;
}

sockaddr_un address(const std::string& path) {
    sockaddr_un result{};
    result.sun_family = AF_UNIX;
    strncpy(result.sun_path, path.c_str(), sizeof(result.sun_path) - 1);
    return result;
}

int acceptOne(const std::string& path) {
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un at = address(path);
    if (bind(listener, reinterpret_cast<const sockaddr*>(&at), sizeof(at)) != 0 ||
        listen(listener, 1) != 0) {
        die(path.c_str());
    }
    say("ready");
    const int connection = accept(listener, nullptr, nullptr);
    if (connection < 0) die("accept");
    return connection;
}

int connectTo(const std::string& path) {
    const int connection = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un at = address(path);
    if (connect(connection, reinterpret_cast<const sockaddr*>(&at), sizeof(at)) != 0) {
        die(path.c_str());
    }
    return connection;
}

void sendRaw(int to, const HeadData& data) {
    if (send(to, data.data(), sizeof(data), MSG_NOSIGNAL) != sizeof(data)) die("send");
}

bool receiveRaw(int from, HeadData* outData) {
    return recv(from, outData->data(), sizeof(*outData), MSG_WAITALL) == sizeof(*outData);
}

// As much as the head and the status of a reply.
using Answer = std::array<char, 56>;

void sendAnswer(int to) {
    const Answer answer{};
    if (send(to, answer.data(), sizeof(answer), MSG_NOSIGNAL) != sizeof(answer)) die("send");
}

void receiveAnswer(int from) {
    Answer answer{};
    if (recv(from, answer.data(), sizeof(answer), MSG_WAITALL) != sizeof(answer)) die("recv");
}

int runRawRenderer(const Args& args) {
    SampleTimes times(args.at(1));
    const auto way = static_cast<SampleTimes::Way>(std::stoi(args.at(2)));
    const int from = acceptOne(args.at(3));
    HeadData data{};
    while (receiveRaw(from, &data))
        times.received(way, static_cast<uint32_t>(data[0]));
    return 0;
}

int runRawRelay(const Args& args) {
    const int to = connectTo(args.at(2));
    const int from = acceptOne(args.at(1));
    const bool answers = args.size() > 3;
    HeadData data{};
    while (receiveRaw(from, &data)) {
        sendRaw(to, data);
        if (answers) sendAnswer(from);
    }
    return 0;
}

int runTracker(const Args& args) {
    SampleTimes times(args.at(1));
    const int plain = connectTo(args.at(2));
    const int answered = connectTo(args.at(3));
    const auto samples = static_cast<uint32_t>(std::stoul(args.at(4)));
    const int64_t period = std::stol(args.at(5)) * kMicrosecond;
    const sp<ISonorelService> service = test::connectToService();
    if (service == nullptr) return kFailure;
    const std::array<std::function<void(const HeadData&)>, SampleTimes::kWays> ways = {
            [&](const HeadData& data) { sendRaw(plain, data); },
            [&](const HeadData& data) {
                sendRaw(answered, data);
                receiveAnswer(answered);
            },
            [&](const HeadData& data) {
                const std::vector<float> floats(data.begin(), data.end());
                if (!service->sendHeadToStageData(floats).isOk()) die("sendHeadToStageData");
            }};
    // In turns, so that the ways meet the same neighbours; long ones, as each starts from rest.
    constexpr uint32_t kTurn = 500;
    int64_t next = now() + period;
    for (uint32_t turn = 0; turn < samples; turn += kTurn) {
        for (const auto way :
             {SampleTimes::kRaw, SampleTimes::kRawAnswered, SampleTimes::kService}) {
            for (uint32_t sample = turn; sample < turn + kTurn; ++sample) {
                sleepUntil(next);
                times.sent(way, sample);
                ways[way](headData(sample));
                // A late one is not made up for by a burst, which would be another measurement.
                next += period;
                if (next < now()) next = now() + period;
            }
        }
    }
    say("done");
    waitForInputEnd();
    return 0;
}

int runFlood(const Args& args) {
    const auto samples = static_cast<uint32_t>(std::stoul(args.at(1)));
    const sp<ISonorelService> service = test::connectToService();
    if (service == nullptr) return kFailure;
    const int64_t start = now();
    for (uint32_t sample = 0; sample < samples; ++sample) {
        const HeadData data = headData(sample);
        if (!service->sendHeadToStageData({data.begin(), data.end()}).isOk()) return kFailure;
    }
    say("done " + std::to_string(now() - start));
    return 0;
}

int runHost(const Args&) {
    const auto processState = android::ProcessState::self();
    processState->startThreadPool();
    const std::string root = getenv("SONOREL_DEVICE_ROOT");  // NOLINT(concurrency-mt-unsafe)
    if (chdir(root.c_str()) != 0) die(root.c_str());
    const sp<android::ServiceManager> manager = new android::ServiceManager(root);
    if (processState->becomeContextManager(manager) != android::OK) return kFailure;
    const sp<android::SonorelService> service = android::SonorelService::testInstantiate();
    if (manager->addService(android::String16("SonorelService"), service, false, 8) !=
        android::OK) {
        return kFailure;
    }
    say("ready");
    while (nextLine()) {
        const uint64_t allocations = mallocCount();
        const auto entry = service->findClient(IHalvendClient::CLIENT_ID_META_AUDIO);
        android::OneWayCounters counters{};
        if (entry != nullptr) {
            counters = processState->oneWayCounters(android::IInterface::asBinder(entry->mClient));
        }
        say("malloc " + std::to_string(allocations) + " sent " + std::to_string(counters.sent) +
            " delivered " + std::to_string(counters.delivered) + " failed " +
            std::to_string(counters.failed));
    }
    return 0;
}

}  // namespace

int runRole(const Args& args) {
    using Run = int (*)(const Args&);
    static const std::map<std::string, Run> kRoles = {
            {"host", runHost},       {"renderer", runRenderer},  {"thinker", runThinker},
            {"ticker", runTicker},   {"raw-relay", runRawRelay}, {"raw-renderer", runRawRenderer},
            {"tracker", runTracker}, {"flood", runFlood}};
    const auto found = kRoles.find(args.empty() ? "" : args.front());
    if (found == kRoles.end()) {
        std::cerr << "no such role\n";
        return 2;
    }
    const int code = found->second(args);
    // Binder threads may still run: static objects must stay.
    std::cout.flush();
    _exit(code);
}

test::ChildProcess::Options role(const Args& args) {
    test::ChildProcess::Options options;
    options.program = "/proc/self/exe";
    options.args = args;
    options.args.insert(options.args.begin(), "--role");
    options.env["SONOREL_RUNTIME_DIR"] = test::runtimeFolder();
    return options;
}

}  // namespace sonorel::bench
