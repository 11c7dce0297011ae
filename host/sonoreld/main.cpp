#define LOG_TAG "sonoreld"

#include <binder/IPCThreadState.h>
#include <binder/ProcessState.h>
#include <cutils/properties.h>
#include <log/log.h>
#include <properties/PropertyFile.h>
#include <qelto/StoreWrites.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <system_error>
#include <thread>

#include "HostService.h"
#include "Options.h"
#include "ServiceHooks.h"
#include "ServingRight.h"

namespace sonorel::host {
namespace {

constexpr int kExitFailure = 1;

constexpr std::chrono::seconds kManagerAnswers{5};
constexpr nsecs_t kStoreWritesLimit = s2ns(1);

// What the signals act on. Both are made once and never destroyed: threads use them until the
// process ends.
struct Serving {
    ServiceHooks hooks;
    std::atomic<ServingRight*> right{nullptr};  // null before it was asked for
};

// Leaves at once, without static destructors: binder threads may be inside calls for as long as a
// client pleases, and would lose what they use. Settings that the store has acknowledged are kept.
[[noreturn]] void leave(int code) {
    (void)fflush(stdout);
    (void)fflush(stderr);
    std::quick_exit(code);
}

[[noreturn]] void endServing(int signal, Serving& serving) {
    ALOGI("leaving on signal %d", signal);
    if (ServingRight* const right = serving.right; right != nullptr) right->announceLeaving();
    const nsecs_t deadline = systemTime(SYSTEM_TIME_MONOTONIC) + kStoreWritesLimit;
    serving.hooks.finishStoreWrites(kStoreWritesLimit);
    // And what met a locked file, once at least. It logs what it cannot store.
    const nsecs_t left = deadline - systemTime(SYSTEM_TIME_MONOTONIC);
    (void)android::finishStoreWrites(std::chrono::milliseconds(std::max<nsecs_t>(ns2ms(left), 0)));
    leave(EXIT_SUCCESS);
}

sigset_t handledSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGTERM, SIGINT, SIGUSR1, SIGUSR2})
        sigaddset(&signals, signal);
    return signals;
}

// Started before every other thread, so that all of them inherit the blocked signals and only this
// one takes them: a signal ends the process also during start-up and under a stuck call.
void startSignalThread(Serving& serving) {
    std::thread([&serving] {
        const sigset_t signals = handledSignals();
        for (;;) {
            int number = 0;
            if (sigwait(&signals, &number) != 0) continue;
            if (number == SIGUSR1) {
                serving.hooks.audioServerDied();
            } else if (number == SIGUSR2) {
                serving.hooks.audioServerRestarted();
            } else {
                endServing(number, serving);
            }
        }
    }).detach();
}

bool enterRoot(const std::string& root, std::string* outError) {
    if (root.empty()) return true;
    if (chdir(root.c_str()) != 0) {
        *outError = "cannot enter " + root + ": " + std::generic_category().message(errno);
        return false;
    }
    // Before any thread that could read the environment.
    setenv("SONOREL_DEVICE_ROOT", root.c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
    return true;
}

// The root's build.prop is read by the first of these.
bool setProperties(const Options& options, std::string* outError) {
    for (const std::string& file : options.propertyFiles) {
        if (!loadPropertyFile(file, outError)) return false;
    }
    for (const auto& [key, value] : options.properties) {
        if (property_set(key.c_str(), value.c_str()) != 0) {
            *outError = "cannot set the property " + key;
            return false;
        }
    }
    return true;
}

std::string servedBy(pid_t process) {
    return "process " + std::to_string(process) + " serves SonorelService in " +
           android::ProcessState::self()->runtimeFolder() +
           " already; --replace takes the name from it";
}

// Two that start at once both find no service, so first there is a lock that one of them gets.
bool takeRight(Serving& serving, bool replace, std::string* outError) {
    auto* const right = new ServingRight(android::ProcessState::self()->runtimeFolder());
    serving.right = right;
    const pid_t holder = right->take();
    if (holder == 0 || replace) return true;
    // Where one has replaced another, the manager knows which of them serves.
    const OtherServer other = findOtherServer(std::chrono::seconds(1));
    *outError = servedBy(other.answered && other.process != 0 ? other.process : holder);
    return false;
}

// The service may be another program's or another user's, who had no part in the lock.
bool isNameFree(bool replace, std::string* outError) {
    const OtherServer other = findOtherServer(kManagerAnswers);
    if (!other.answered) {
        *outError = "the service manager, process " + std::to_string(other.process) +
                    ", does not answer";
        return false;
    }
    if (other.process == 0 || replace) return true;
    *outError = servedBy(other.process);
    return false;
}

bool startService(const Options& options, Serving& serving, std::string* outError) {
    if (!takeRight(serving, options.replace, outError)) return false;
    if (!ensureServiceManager(options.root, outError)) return false;
    if (!isNameFree(options.replace, outError)) return false;
    android::ProcessState::self()->startThreadPool();
    void* library = nullptr;
    android::sp<android::IBinder> service;
    if (!instantiateService(options.serviceLibrary, &library, outError) ||
        !isServicePublished(&service, outError)) {
        return false;
    }
    serving.hooks.attach(library, service);
    return true;
}

int run(int argc, char** argv) {
    // First of all: a signal that comes during start-up waits for its thread.
    const sigset_t signals = handledSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    Options options;
    if (const std::optional<int> code = parseCommandLine(argc, argv, &options)) return *code;
    __android_log_set_minimum_priority(options.verbose ? ANDROID_LOG_DEBUG : ANDROID_LOG_INFO);
    std::string error;
    if (!enterRoot(options.root, &error)) {
        (void)fprintf(stderr, "sonoreld: %s\n", error.c_str());
        return kExitFailure;
    }
    // Whoever read our output may go; the service stays.
    signal(SIGPIPE, SIG_IGN);
    auto& serving = *new Serving;
    startSignalThread(serving);
    if (!setProperties(options, &error) || !startService(options, serving, &error)) {
        (void)fprintf(stderr, "sonoreld: %s\n", error.c_str());
        leave(kExitFailure);
    }
    (void)puts("SonorelService ready");
    (void)fflush(stdout);
    android::IPCThreadState::self()->joinThreadPool();
    // The pool never lets its main thread go.
    leave(kExitFailure);
}

}  // namespace
}  // namespace sonorel::host

int main(int argc, char** argv) {
    return sonorel::host::run(argc, argv);
}
