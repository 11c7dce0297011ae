#include <binder/ProcessState.h>
#include <poll.h>
#include <qelto/halvend/BnHalvendClient.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>
#include <CLI/CLI.hpp>

#include <array>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Connection.h"
#include "Deadline.h"
#include "Verb.h"
#include "sonorelctl/Events.h"
#include "sonorelctl/Json.h"

namespace sonorel::ctl {
namespace {

using android::IBinder;
using android::sp;
using android::wp;
using android::binder::Status;
using qelto::halvend::BnHalvendClient;
using qelto::halvend::CallbackData;
using qelto::halvend::ISonorelService;

constexpr int64_t kMaxDelayMs = int64_t{24} * 3600 * 1000;

struct ListenOptions {
    int id = 0;
    std::vector<std::string> fields;
    int64_t delayMs = 0;
    uint64_t count = 0;  // 0 for no end
    CallbackData answer;
};

// Why listening ends. Set once, from any thread; the descriptor becomes readable then.
class Ending {
public:
    Ending() : mFd(eventfd(0, EFD_CLOEXEC)) {}
    ~Ending() { close(mFd); }
    Ending(const Ending&) = delete;
    Ending& operator=(const Ending&) = delete;

    int fd() const { return mFd; }

    void set(ExitCode code) {
        std::lock_guard lock(mMutex);
        if (mSet) return;
        mSet = true;
        mCode = code;
        mChanged.notify_all();
        const uint64_t one = 1;
        (void)!write(mFd, &one, sizeof(one));
    }

    ExitCode code() const {
        std::lock_guard lock(mMutex);
        return mCode;
    }

    // Waits until the end or for `delay`, whichever comes first.
    void waitAtMost(std::chrono::milliseconds delay) {
        std::unique_lock lock(mMutex);
        mChanged.wait_for(lock, delay, [this] { return mSet; });
    }

private:
    const int mFd;
    mutable std::mutex mMutex;
    std::condition_variable mChanged;
    bool mSet = false;
    ExitCode mCode = kExitOk;
};

// The registered client. Called on binder threads, one line of output an event.
class Listener : public BnHalvendClient {
public:
    Listener(const ListenOptions& options, const std::shared_ptr<Ending>& ending)
            : mOptions(options), mEnding(ending) {}

    Status onClientEvent(int32_t event, const CallbackData& input,
                         CallbackData* outAnswer) override {
        print(event, "two-way", input);
        if (mOptions.delayMs > 0) mEnding->waitAtMost(std::chrono::milliseconds(mOptions.delayMs));
        *outAnswer = mOptions.answer;
        return Status::ok();
    }

    Status onClientEventOneWay(int32_t event, const CallbackData& input) override {
        print(event, "one-way", input);
        return Status::ok();
    }

private:
    void print(int32_t event, const char* way, const CallbackData& input) {
        const char* name = eventName(event);
        const Json line{{"event", event},
                        {"name", name == nullptr ? Json(nullptr) : Json(name)},
                        {"way", way},
                        {"data", toJson(input)}};
        std::lock_guard lock(mMutex);
        // More may come in before the end is noticed.
        if (mOptions.count != 0 && mPrinted == mOptions.count) return;
        (void)puts(toLine(line).c_str());
        (void)fflush(stdout);
        if (++mPrinted == mOptions.count) mEnding->set(kExitOk);
    }

    const ListenOptions mOptions;
    const std::shared_ptr<Ending> mEnding;
    std::mutex mMutex;
    uint64_t mPrinted = 0;
};

class ServiceDeath : public IBinder::DeathRecipient {
public:
    explicit ServiceDeath(const std::shared_ptr<Ending>& ending) : mEnding(ending) {}
    void binderDied(const wp<IBinder>&) override { mEnding->set(kExitPeerDied); }

private:
    const std::shared_ptr<Ending> mEnding;
};

// Blocks the signals that end the listening for this thread and all that it starts, and returns a
// descriptor that becomes readable with the first of them.
int takeSignals() {
    sigset_t ending;
    sigemptyset(&ending);
    sigaddset(&ending, SIGTERM);
    sigaddset(&ending, SIGINT);
    pthread_sigmask(SIG_BLOCK, &ending, nullptr);
    return signalfd(-1, &ending, SFD_CLOEXEC);
}

void waitForEnd(int signalFd, const Ending& ending) {
    std::array<pollfd, 2> polled{pollfd{signalFd, POLLIN, 0}, pollfd{ending.fd(), POLLIN, 0}};
    while (poll(polled.data(), polled.size(), -1) < 0 && errno == EINTR) {
    }
}

int listenAs(const Globals& globals, const ListenOptions& options) {
    const int signalFd = takeSignals();
    android::ProcessState::self()->startThreadPool();
    const auto ending = std::make_shared<Ending>();
    const sp<Listener> listener = new Listener(options, ending);
    const sp<ServiceDeath> death = new ServiceDeath(ending);
    const auto id = static_cast<int8_t>(options.id);
    sp<ISonorelService> service;

    const int registered = runWithin(globals, [&]() -> int {
        if (const int code = connect(&service); code != kExitOk) return code;
        if (android::IInterface::asBinder(service)->linkToDeath(death) != android::OK) {
            return fail(kExitPeerDied, "the service died");
        }
        return checkStatus(service->registerClient(listener, id), "registerClient");
    });
    if (registered != kExitOk) {
        ending->set(kExitOk);
        return registered;
    }
    (void)fprintf(stderr, "listening as client %d\n", options.id);

    waitForEnd(signalFd, *ending);
    ending->set(kExitOk);  // after a signal: nothing waits for a delay any more
    close(signalFd);
    if (ending->code() == kExitPeerDied) return fail(kExitPeerDied, "the service died");
    return runWithin(globals, [&] {
        return checkStatus(service->unregisterClient(id), "unregisterClient");
    });
}

int runListen(const Globals& globals, ListenOptions options) {
    std::string error;
    for (const std::string& field : options.fields) {
        if (!setField(field, &options.answer, &error)) {
            return fail(kExitUsage, "--answer: " + error);
        }
    }
    return listenAs(globals, options);
}

}  // namespace

void addListenVerb(CLI::App& app, const Globals& globals, Action* outAction) {
    CLI::App* verb = app.add_subcommand(
            "listen", "Register as a client and print every event as one JSON line");
    const auto options = std::make_shared<ListenOptions>();
    verb->add_option("--id", options->id,
                     "Client id: 0 playback, 1 renderer, 3 worker tick, 4 effect centre, 5 sound "
                     "separation app")
            ->required()
            ->check(CLI::Range(-128, 127));
    verb->add_option(
                "--answer", options->fields,
                "Set a field of the answer to two-way events; without any, the defaults go out")
            ->type_name("FIELD=VALUE")
            ->allow_extra_args(false);
    verb->add_option("--delay", options->delayMs, "Wait before each answer")
            ->type_name("MS")
            ->check(CLI::Range(int64_t{0}, kMaxDelayMs));
    verb->add_option("--count", options->count, "Leave after this many events")->type_name("N");
    verb->footer(
            "Says 'listening as client ID' on stderr once it is registered. Leaves, and "
            "unregisters, "
            "at\nSIGINT, SIGTERM or the count. An id that is taken stays with its first client: "
            "the "
            "service does\nnot say so, and no events come. --timeout bounds registering and "
            "unregistering.");
    verb->callback([&globals, outAction, options] {
        *outAction = [&globals, options]() -> int {
            const int code = runListen(globals, *options);
            // Without static destructors: a binder thread may still be inside a late event.
            (void)fflush(stdout);
            std::quick_exit(code);
        };
    });
}

}  // namespace sonorel::ctl
