#include <unistd.h>
#include <utils/String16.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Connection.h"
#include "Deadline.h"
#include "Verb.h"

namespace sonorel::ctl {
namespace {

using android::IBinder;
using android::sp;
using android::String16;
using Words = std::vector<std::string>;

struct DumpOptions {
    std::optional<std::string> name;
    Words texts;
};

int findDumped(const std::string& name, sp<IBinder>* outBinder) {
    if (!name.empty()) return connect(name, outBinder);
    sp<android::IServiceManager> manager;
    const int code = connect(&manager);
    if (code == kExitOk) *outBinder = android::IInterface::asBinder(manager);
    return code;
}

int dump(const std::string& name, const android::Vector<String16>& args) {
    sp<IBinder> binder;
    if (const int code = findDumped(name, &binder); code != kExitOk) return code;
    return checkStatus(android::binder::Status::fromStatusT(binder->dump(STDOUT_FILENO, args)),
                       name.empty() ? "dump" : name);
}

int runDump(const Globals& globals, const DumpOptions& options) {
    Words words = options.texts;
    if (options.name) words.insert(words.begin(), *options.name);
    // The parser gives NAME the first word, in front of the mark or behind it.
    const size_t args = std::min(globals.wordsBehindMark, words.size());
    const size_t names = words.size() - args;
    if (names > 1) return fail(kExitUsage, "dump takes one NAME; put -- before its arguments");
    android::Vector<String16> texts;
    for (size_t i = names; i < words.size(); ++i)
        texts.add(String16(words[i].c_str()));
    return runWithin(globals, [&] { return dump(names == 0 ? "" : words.front(), texts); });
}

}  // namespace

void addDumpVerb(CLI::App& app, const Globals& globals, Action* outAction) {
    CLI::App* verb = app.add_subcommand(
            "dump", "Have the service manager, or the service NAME, write its state as text");
    const auto options = std::make_shared<DumpOptions>();
    verb->add_option("NAME", options->name,
                     "One of the names that list prints; without it the manager");
    verb->add_option("ARG", options->texts, "Arguments for the dumped object, behind a --");
    verb->footer(
            "The manager answers callers with android.permission.DUMP, and those of its own user.");
    verb->callback([&globals, outAction, options] {
        *outAction = [&globals, options] { return runDump(globals, *options); };
    });
}

}  // namespace sonorel::ctl
