#include <android/log.h>
#include <CLI/CLI.hpp>

#include <iostream>
#include <sstream>
#include <utility>

#include "CommandLine.h"
#include "Verb.h"

namespace sonorel::ctl {
namespace {

constexpr double kMaxTimeoutSeconds = 1e6;

constexpr AddVerb kVerbs[] = {addCallVerb, addDumpVerb,   addListenVerb,
                              addListVerb, addPolicyVerb, addSettingsVerb};

int run(int argc, char** argv) {
    // What goes wrong is told in one line of our own.
    __android_log_set_minimum_priority(ANDROID_LOG_FATAL);
    Globals globals;
    CommandLine line = readCommandLine(argc, argv);
    globals.wordsBehindMark = line.behindMark;
    Action action;
    CLI::App app("Talks to the spatial-audio service.");
    app.name("sonorelctl");
    app.set_version_flag("--version", "sonorelctl " SONOREL_VERSION);
    app.require_subcommand(1);
    app.fallthrough();
    app.add_option("--timeout", globals.timeoutSeconds,
                   "How long the service may take to answer; 0 for ever. What was asked of it "
                   "is not taken back")
            ->type_name("SEC")
            ->check(CLI::Range(0.0, kMaxTimeoutSeconds))
            ->capture_default_str();
    app.footer(
            "Exit codes: 0 ok, 1 the service answered an error, 2 usage, 3 no service manager or "
            "no "
            "service,\n4 timed out, 5 permission denied, 6 the service died.\n"
            "$SONOREL_RUNTIME_DIR names the folder of the sockets; a client of another uid has to "
            "set it.");
    for (const AddVerb addVerb : kVerbs)
        addVerb(app, globals, &action);
    takeTextsAsTyped(app);
    try {
        app.parse(std::move(line.words));
    } catch (const CLI::ParseError& error) {
        std::ostringstream errors;
        const int code = app.exit(error, std::cout, errors);
        std::cerr << withoutMarks(errors.str());
        return code == 0 ? kExitOk : kExitUsage;
    }
    return action();
}

}  // namespace
}  // namespace sonorel::ctl

int main(int argc, char** argv) {
    return sonorel::ctl::run(argc, argv);
}
