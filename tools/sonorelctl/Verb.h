#pragma once

#include <cstddef>
#include <functional>

// Only the verbs themselves need the whole of it, and it is long.
namespace CLI {
class App;
}

namespace sonorel::ctl {

// What every run of sonorelctl can end with.
enum ExitCode {
    kExitOk = 0,
    kExitErrorStatus = 1,       // the service answered an error
    kExitUsage = 2,             // the command line makes no sense
    kExitNoService = 3,         // no service manager, or the service is not in it
    kExitTimedOut = 4,          // no answer within --timeout
    kExitPermissionDenied = 5,  // the caller may not do this
    kExitPeerDied = 6,          // the service ended during the call
};

// Options that stand before or behind any verb.
struct Globals {
    // How long the service may take to answer; 0 for as long as it likes.
    double timeoutSeconds = 10;
    // How many of the words at the command line's end stand behind the first "--".
    size_t wordsBehindMark = 0;
};

// What the chosen verb does once the whole command line has been understood; returns an ExitCode.
using Action = std::function<int()>;

// A verb is one function that adds its subcommand to `app`. When the subcommand was given, its
// callback sets *outAction. `globals` and `outAction` outlive the app. The functions are listed in
// main.cpp.
using AddVerb = void (*)(CLI::App& app, const Globals& globals, Action* outAction);

void addCallVerb(CLI::App& app, const Globals& globals, Action* outAction);
void addDumpVerb(CLI::App& app, const Globals& globals, Action* outAction);
void addListenVerb(CLI::App& app, const Globals& globals, Action* outAction);
void addListVerb(CLI::App& app, const Globals& globals, Action* outAction);
void addPolicyVerb(CLI::App& app, const Globals& globals, Action* outAction);
void addSettingsVerb(CLI::App& app, const Globals& globals, Action* outAction);

}  // namespace sonorel::ctl
