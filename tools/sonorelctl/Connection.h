#pragma once

#include <binder/IServiceManager.h>
#include <binder/Status.h>
#include <qelto/halvend/ISonorelService.h>

#include <string>

#include "Verb.h"

namespace sonorel::ctl {

// Says in one line on stderr what went wrong, and returns the code.
int fail(ExitCode code, const std::string& text);

// kExitOk, or what failed, told on stderr.
int connect(android::sp<android::IServiceManager>* outManager);
int connect(const std::string& name, android::sp<android::IBinder>* outService);
int connect(android::sp<qelto::halvend::ISonorelService>* outService);

// The exit code for the outcome of a call; an error is told on stderr after `what`.
int checkStatus(const android::binder::Status& status, const std::string& what);

}  // namespace sonorel::ctl
