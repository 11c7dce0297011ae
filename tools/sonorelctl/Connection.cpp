#include "Connection.h"

#include <binder/IInterface.h>
#include <utils/String16.h>

#include <cstdio>

namespace sonorel::ctl {
namespace {

using android::IBinder;
using android::IServiceManager;
using android::sp;
using android::binder::Status;
using qelto::halvend::ISonorelService;

constexpr char kServiceName[] = "SonorelService";

ExitCode codeOf(const Status& status) {
    if (status.exceptionCode() == Status::EX_SECURITY) return kExitPermissionDenied;
    switch (status.transactionError()) {
        case android::DEAD_OBJECT:
            return kExitPeerDied;
        case android::PERMISSION_DENIED:
            return kExitPermissionDenied;
        case android::TIMED_OUT:
            return kExitTimedOut;
        default:
            return kExitErrorStatus;
    }
}

}  // namespace

int fail(ExitCode code, const std::string& text) {
    (void)fprintf(stderr, "sonorelctl: %s\n", text.c_str());
    return code;
}

int connect(sp<IServiceManager>* outManager) {
    *outManager = android::defaultServiceManager();
    return *outManager == nullptr ? fail(kExitNoService, "no service manager answers") : kExitOk;
}

int connect(const std::string& name, sp<IBinder>* outService) {
    sp<IServiceManager> manager;
    if (const int code = connect(&manager); code != kExitOk) return code;
    *outService = manager->checkService(android::String16(name.c_str()));
    return *outService == nullptr ? fail(kExitNoService, "the service manager has no " + name)
                                  : static_cast<int>(kExitOk);
}

int connect(sp<ISonorelService>* outService) {
    sp<IBinder> binder;
    if (const int code = connect(kServiceName, &binder); code != kExitOk) return code;
    *outService = android::interface_cast<ISonorelService>(binder);
    return *outService == nullptr
                   ? fail(kExitNoService, std::string(kServiceName) + " has another interface")
                   : static_cast<int>(kExitOk);
}

int checkStatus(const Status& status, const std::string& what) {
    if (status.isOk()) return kExitOk;
    const ExitCode code = codeOf(status);
    if (code == kExitPeerDied) return fail(code, what + ": the service died");
    return fail(code, what + ": " + status.toString8().c_str());
}

}  // namespace sonorel::ctl
