#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Connection.h"
#include "Deadline.h"
#include "Verb.h"
#include "sonorelctl/Methods.h"

namespace sonorel::ctl {
namespace {

// Of all methods together the largest vector is a few dozen values; one transaction holds fewer
// than this.
constexpr size_t kMaxSize = size_t{1} << 18;

struct CallOptions {
    bool list = false;
    std::string method;
    std::vector<std::string> texts;
    std::optional<size_t> size;
};

int listMethods() {
    for (const Method& method : methods())
        (void)puts(method.signature.c_str());
    return kExitOk;
}

int callService(const std::string& name, const Call& call) {
    android::sp<qelto::halvend::ISonorelService> service;
    if (const int code = connect(&service); code != kExitOk) return code;
    Json result;
    const int code = checkStatus(call(*service, &result), name);
    if (code == kExitOk) (void)puts(toLine(result).c_str());
    return code;
}

int runCall(const Globals& globals, const CallOptions& options) {
    if (options.list) return listMethods();
    const Method* method = findMethod(options.method);
    if (method == nullptr) {
        return fail(kExitUsage,
                    options.method.empty()
                            ? "call needs a METHOD; call --list prints them"
                            : "no method '" + options.method + "'; call --list prints them");
    }
    std::string error;
    const Call call = method->prepare(options.texts, options.size, &error);
    if (call == nullptr) return fail(kExitUsage, method->signature + ": " + error);
    return runWithin(globals, [&] { return callService(options.method, call); });
}

}  // namespace

void addCallVerb(CLI::App& app, const Globals& globals, Action* outAction) {
    CLI::App* verb = app.add_subcommand(
            "call", "Call one method and print what it returned as one JSON object");
    // Shared with the callbacks, which run when this function is long over.
    const auto options = std::make_shared<CallOptions>();
    verb->add_flag("--list", options->list, "Print the methods with their parameters instead");
    verb->add_option("--size", options->size,
                     "Give every out-vector this many zeros instead of an argument")
            ->check(CLI::Range(size_t{0}, kMaxSize));
    verb->add_option("METHOD", options->method, "Name of the method");
    verb->add_option("ARG", options->texts,
                     "One for each parameter: true or false; an integer; floats or integers "
                     "separated by commas, '' for none; text");
    verb->footer(
            "The object holds the return value under 'return' and every out-vector under its name. "
            "Floats\nread back to the same bits; NaN and infinities are the texts nan, inf and "
            "-inf.\nPut -- before arguments when one of them begins with a minus sign.\n"
            "A client cannot be passed here: registerClient and registerClientOneWay take only "
            "null, which the\nservice refuses in its log and which registers nothing. Use listen.\n"
            "A caller without permission gets an ok answer with nothing in it, as every client "
            "does.");
    verb->callback([&globals, outAction, options] {
        *outAction = [&globals, options] { return runCall(globals, *options); };
    });
}

}  // namespace sonorel::ctl
