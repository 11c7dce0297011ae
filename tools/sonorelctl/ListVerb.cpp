#include <utils/String8.h>
#include <CLI/CLI.hpp>

#include <cstdio>

#include "Connection.h"
#include "Deadline.h"
#include "Verb.h"

namespace sonorel::ctl {
namespace {

int listServices() {
    android::sp<android::IServiceManager> manager;
    if (const int code = connect(&manager); code != kExitOk) return code;
    for (const android::String16& name : manager->listServices()) {
        (void)puts(android::String8(name).c_str());
    }
    return kExitOk;
}

}  // namespace

void addListVerb(CLI::App& app, const Globals& globals, Action* outAction) {
    CLI::App* verb = app.add_subcommand("list", "Print the names of the services, one a line");
    verb->callback([&globals, outAction] {
        *outAction = [&globals] { return runWithin(globals, listServices); };
    });
}

}  // namespace sonorel::ctl
