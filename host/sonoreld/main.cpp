#define LOG_TAG "sonoreld"

#include <binder/IPCThreadState.h>
#include <binder/ProcessState.h>
#include <cutils/properties.h>
#include <log/log.h>
#include <properties/PropertyFile.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <system_error>
#include <thread>

#include "HostService.h"
#include "Options.h"

namespace sonorel::host {
namespace {

constexpr int kExitFailure = 1;

// Leaves at once, without static destructors: binder threads may be inside calls for as long as a
// client pleases, and would lose what they use. Settings that the store has acknowledged are kept;
// what was only posted to the looper is dropped, as when the looper stops.
[[noreturn]] void leave(int code) {
    (void)fflush(stdout);
    (void)fflush(stderr);
    std::quick_exit(code);
}

// Started before every other thread, so that all of them inherit the blocked signals and only this
// one takes them: a signal ends the process also during start-up and under a stuck call.
void startSignalThread() {
    sigset_t ending;
    sigemptyset(&ending);
    sigaddset(&ending, SIGTERM);
    sigaddset(&ending, SIGINT);
    pthread_sigmask(SIG_BLOCK, &ending, nullptr);
    std::thread([ending] {
        int number = 0;
        while (sigwait(&ending, &number) != 0) {
        }
        ALOGI("leaving on signal %d", number);
        leave(EXIT_SUCCESS);
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

bool startService(const Options& options, std::string* outError) {
    if (!ensureServiceManager(options.root, outError)) return false;
    android::ProcessState::self()->startThreadPool();
    return instantiateService(options.serviceLibrary, outError) && isServicePublished(outError);
}

int run(int argc, char** argv) {
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
    startSignalThread();
    if (!setProperties(options, &error) || !startService(options, &error)) {
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
