#include "HostService.h"

#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <binder/ServiceManager.h>
#include <dlfcn.h>
#include <log/log.h>
#include <utils/String16.h>

#include <filesystem>
#include <future>
#include <memory>
#include <system_error>
#include <thread>

namespace sonorel::host {
namespace {

using android::IBinder;
using android::sp;
using android::String16;

constexpr char kServiceName[] = "SonorelService";
constexpr char kLibraryName[] = "libsonorelservice.so";
// static void android::SonorelService::instantiate()
constexpr char kInstantiate[] = "_ZN7android14SonorelService11instantiateEv";

// Beside the program, as installed and as built; else left to the loader's search path.
std::string defaultLibrary() {
    std::error_code error;
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
    const std::filesystem::path beside = program.parent_path().parent_path() / "lib" / kLibraryName;
    return !error && std::filesystem::exists(beside, error) ? beside.string() : kLibraryName;
}

// dlerror's text names the file.
std::string loaderError() {
    // The only thread that loads anything.
    const char* text = dlerror();  // NOLINT(concurrency-mt-unsafe)
    return text == nullptr ? "unknown loader error" : text;
}

sp<IBinder> registeredService() {
    const sp<android::IServiceManager> manager = android::defaultServiceManager();
    return manager == nullptr ? nullptr : manager->checkService(String16(kServiceName));
}

// 0 when none lives.
pid_t askForOtherServer() {
    const sp<IBinder> service = registeredService();
    // The manager may not have noticed yet that the owner has ended.
    if (service == nullptr || !service->isBinderAlive()) return 0;
    return android::ProcessState::self()->ownerPid(service);
}

}  // namespace

bool ensureServiceManager(const std::string& root, std::string* outError) {
    if (android::defaultServiceManager() != nullptr) return true;
    const sp<android::ServiceManager> manager =
            new android::ServiceManager(root.empty() ? "/" : root);
    const android::status_t status = android::ProcessState::self()->becomeContextManager(manager);
    // Another process may have published one meanwhile, which is as good.
    if (status == android::OK || android::defaultServiceManager() != nullptr) return true;
    *outError = "cannot publish a service manager: " + std::generic_category().message(-status);
    return false;
}

OtherServer findOtherServer(std::chrono::milliseconds within) {
    // The manager may be another process, and stopped: a call to it cannot be ended.
    const auto asked = std::make_shared<std::promise<pid_t>>();
    std::future<pid_t> server = asked->get_future();
    std::thread([asked] { asked->set_value(askForOtherServer()); }).detach();
    if (server.wait_for(within) == std::future_status::ready) return {true, server.get()};
    const sp<android::ProcessState> self = android::ProcessState::self();
    return {false, self->ownerPid(self->getContextObject(nullptr))};
}

bool instantiateService(const std::string& library, void** outLibrary, std::string* outError) {
    const std::string file = library.empty() ? defaultLibrary() : library;
    void* handle = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        *outError = "cannot load the service library: " + loaderError();
        return false;
    }
    void* symbol = dlsym(handle, kInstantiate);
    if (symbol == nullptr) {
        *outError = "the library holds no SonorelService: " + loaderError();
        return false;
    }
    ALOGI("service library %s", file.c_str());
    reinterpret_cast<void (*)()>(symbol)();
    *outLibrary = handle;
    return true;
}

bool isServicePublished(sp<IBinder>* outService, std::string* outError) {
    const sp<IBinder> service = registeredService();
    if (service == nullptr) {
        *outError = std::string("the service manager did not accept ") + kServiceName;
        return false;
    }
    if (service->localBinder() == nullptr) {
        *outError =
                std::string("the service manager kept the ") + kServiceName + " of another process";
        return false;
    }
    *outService = service;
    return true;
}

}  // namespace sonorel::host
