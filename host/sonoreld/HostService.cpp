#include "HostService.h"

#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <binder/ServiceManager.h>
#include <dlfcn.h>
#include <log/log.h>
#include <utils/String16.h>

#include <filesystem>
#include <system_error>

namespace sonorel::host {
namespace {

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

bool instantiateService(const std::string& library, std::string* outError) {
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
    return true;
}

bool isServicePublished(std::string* outError) {
    const sp<android::IServiceManager> manager = android::defaultServiceManager();
    const sp<android::IBinder> service =
            manager == nullptr ? nullptr : manager->checkService(String16(kServiceName));
    if (service == nullptr) {
        *outError = std::string("the service manager did not accept ") + kServiceName;
        return false;
    }
    if (service->localBinder() == nullptr) {
        *outError =
                std::string("the service manager kept the ") + kServiceName + " of another process";
        return false;
    }
    return true;
}

}  // namespace sonorel::host
