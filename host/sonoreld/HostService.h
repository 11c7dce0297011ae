#pragma once

#include <binder/IBinder.h>
#include <sys/types.h>

#include <chrono>
#include <string>

namespace sonorel::host {

// The steps that bring the service up, in their order. Those that can fail return false with the
// reason, which names the file or the service concerned, in outError.

// Publishes a service manager of this process unless one answers already. `root` is where its
// permission grants lie.
[[nodiscard]] bool ensureServiceManager(const std::string& root, std::string* outError);

// Which process serves beside this one. `answered` is false when the service manager did not say in
// time: `process` is then the manager's. Without another server it is 0.
struct OtherServer {
    bool answered;
    pid_t process;
};
OtherServer findOtherServer(std::chrono::milliseconds within);

// Loads the service library ("" for the one beside the program) and lets it create and register the
// service. The library stays loaded for the life of the process; outLibrary is dlopen's handle.
[[nodiscard]] bool instantiateService(const std::string& library, void** outLibrary,
                                      std::string* outError);

// True when clients that ask the service manager get this process's service, which is then in
// outService.
[[nodiscard]] bool isServicePublished(android::sp<android::IBinder>* outService,
                                      std::string* outError);

}  // namespace sonorel::host
