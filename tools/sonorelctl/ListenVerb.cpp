#include <binder/ProcessState.h>
#include <qelto/halvend/BnHalvendClient.h>
#include <signal.h>
#include <CLI/CLI.hpp>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
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

// How far listening has come. Any thread may tell, the main thread waits.
class Progress {
public:
    // Why listening ends; only the first call counts.
    void end(ExitCode code) {
        const std::lock_guard lock(mMutex);
        if (!mEnd) mEnd = code;
        mChanged.notify_all();
    }

    // A signal asks to leave; returns false when one has asked before.
    bool interrupt() {
        const std::lock_guard lock(mMutex);
        const bool first = !mInterrupted;
        mInterrupted = true;
        if (!mEnd) mEnd = kExitOk;
        mChanged.notify_all();
        return first;
    }

    // The call that registers has come back.
    void registered(int code) {
        const std::lock_guard lock(mMutex);
        mRegistered = code;
        mChanged.notify_all();
    }

    // Holds an event up until the end or for `delay`, whichever comes first.
    void holdUp(std::chrono::milliseconds delay) {
        std::unique_lock lock(mMutex);
        ++mHeldUp;
        mChanged.wait_for(lock, delay, [this] { return mEnd.has_value(); });
        --mHeldUp;
        mAnswered = Clock::now();
        mChanged.notify_all();
    }

    // The exit code of registering; nothing after a signal. While the service waits for this
    // program's delay the limit does not run, and it starts anew with each answer.
    std::optional<int> awaitRegistered(const Globals& globals) {
        const auto within = std::chrono::duration_cast<Clock::duration>(
                std::chrono::duration<double>(globals.timeoutSeconds));
        const auto isDone = [this] { return mRegistered || mInterrupted; };
        std::unique_lock lock(mMutex);
        mAnswered = Clock::now();
        while (!isDone()) {
            if (mHeldUp > 0 || globals.timeoutSeconds <= 0) {
                mChanged.wait(lock);
            } else if (Clock::now() >= mAnswered + within) {
                leaveTimedOut(globals);
            } else {
                (void)mChanged.wait_until(lock, mAnswered + within);
            }
        }
        return mInterrupted ? std::nullopt : mRegistered;
    }

    ExitCode awaitEnd() {
        std::unique_lock lock(mMutex);
        mChanged.wait(lock, [this] { return mEnd.has_value(); });
        return *mEnd;
    }

private:
    using Clock = std::chrono::steady_clock;

    std::mutex mMutex;
    std::condition_variable mChanged;
    std::optional<ExitCode> mEnd;
    std::optional<int> mRegistered;
    bool mInterrupted = false;
    int mHeldUp = 0;              // events that wait for the delay
    Clock::time_point mAnswered;  // the last of them, or the start
};

// The registered client. Called on binder threads, one line of output an event.
class Listener : public BnHalvendClient {
public:
    Listener(const ListenOptions& options, const std::shared_ptr<Progress>& progress)
            : mOptions(options), mProgress(progress) {}

    Status onClientEvent(int32_t event, const CallbackData& input,
                         CallbackData* outAnswer) override {
        print(event, "two-way", input);
        if (mOptions.delayMs > 0) mProgress->holdUp(std::chrono::milliseconds(mOptions.delayMs));
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
        if (++mPrinted == mOptions.count) mProgress->end(kExitOk);
    }

    const ListenOptions mOptions;
    const std::shared_ptr<Progress> mProgress;
    std::mutex mMutex;
    uint64_t mPrinted = 0;
};

class ServiceDeath : public IBinder::DeathRecipient {
public:
    explicit ServiceDeath(const std::shared_ptr<Progress>& progress) : mProgress(progress) {}
    void binderDied(const wp<IBinder>&) override { mProgress->end(kExitPeerDied); }

private:
    const std::shared_ptr<Progress> mProgress;
};

// Leaves without static destructors: a binder thread may still be inside a late event.
[[noreturn]] void leave(int code) {
    (void)fflush(stdout);
    std::quick_exit(code);
}

// Blocks the signals that end the listening for this thread and all that it starts; a thread of
// their own takes them. The first lets the program unregister, another one ends it at once.
void takeSignals(const std::shared_ptr<Progress>& progress) {
    sigset_t ending;
    sigemptyset(&ending);
    sigaddset(&ending, SIGTERM);
    sigaddset(&ending, SIGINT);
    pthread_sigmask(SIG_BLOCK, &ending, nullptr);
    std::thread([ending, progress] {
        int number = 0;
        for (;;) {
            if (sigwait(&ending, &number) == 0 && !progress->interrupt()) leave(kExitOk);
        }
    }).detach();
}

// Finds the service and registers `listener`; comes back when all its events are answered.
int registerListener(int id, const sp<Listener>& listener, const sp<ServiceDeath>& death,
                     sp<ISonorelService>* outService) {
    if (const int code = connect(outService); code != kExitOk) return code;
    if (android::IInterface::asBinder(*outService)->linkToDeath(death) != android::OK) {
        return fail(kExitPeerDied, "the service died");
    }
    return checkStatus((*outService)->registerClient(listener, static_cast<int8_t>(id)),
                       "registerClient");
}

int listenAs(const Globals& globals, const ListenOptions& options) {
    const auto progress = std::make_shared<Progress>();
    takeSignals(progress);
    android::ProcessState::self()->startThreadPool();
    const sp<Listener> listener = new Listener(options, progress);
    const sp<ServiceDeath> death = new ServiceDeath(progress);
    sp<ISonorelService> service;

    std::thread registering(
            [&] { progress->registered(registerListener(options.id, listener, death, &service)); });
    const std::optional<int> registered = progress->awaitRegistered(globals);
    // The service learns from the end of this process that the client is gone.
    if (!registered) leave(kExitOk);
    registering.join();
    if (*registered != kExitOk) {
        progress->end(kExitOk);
        return *registered;
    }
    (void)fprintf(stderr, "listening as client %d\n", options.id);

    if (progress->awaitEnd() == kExitPeerDied) return fail(kExitPeerDied, "the service died");
    return runWithin(globals, [&] {
        return checkStatus(service->unregisterClient(static_cast<int8_t>(options.id)),
                           "unregisterClient");
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
            "unregistering;\nits clock stands still while an event waits for the delay.");
    verb->callback([&globals, outAction, options] {
        *outAction = [&globals, options]() -> int { leave(runListen(globals, *options)); };
    });
}

}  // namespace sonorel::ctl
