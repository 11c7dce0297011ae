#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Connection.h"
#include "Deadline.h"
#include "Verb.h"
#include "sonorelctl/PolicyFile.h"

namespace sonorel::ctl {
namespace {

using android::binder::Status;
using qelto::halvend::ISonorelService;

struct ShowOptions {
    std::string path;
    bool json = false;
    std::vector<std::string> packages;
    std::vector<std::string> devices;
};

void print(const Json& tables, const ShowOptions& options) {
    (void)fputs((options.json ? toLine(tables) + "\n" : toTable(tables)).c_str(), stdout);
}

int showFile(const ShowOptions& options) {
    Json tables = Json::object();
    std::vector<std::string> remarks;
    std::string error;
    if (!readPolicyFile(options.path, &tables, &remarks, &error)) return fail(kExitUsage, error);
    for (const std::string& remark : remarks) {
        (void)fprintf(stderr, "sonorelctl: %s: %s\n", options.path.c_str(), remark.c_str());
    }
    print(tables, options);
    return kExitOk;
}

// The service's text as JSON; "" before the service has loaded the file. What is no JSON, from a
// service with other converters, is shown as it is.
Json parseText(const std::string& text) {
    if (text.empty()) return Json::object();
    Json json = Json::parse(text, nullptr, false);
    return json.is_discarded() ? Json(text) : json;
}

// A table that the service cannot give, as one that is too long for a transaction, is told of and
// left out; the others are still asked for.
int askTables(ISonorelService& service, Json* outTables) {
    const struct {
        const char* table;
        Status (ISonorelService::*query)(std::string*);
    } queries[] = {
            {"scenes", &ISonorelService::getMetaAudioSceMap},
            {"processors", &ISonorelService::getDynamicProcessorInfMap},
            {"detectors", &ISonorelService::getAudioDetectorInfMap},
            {"mss", &ISonorelService::getMssParamInfoMap},
    };
    int worst = kExitOk;
    for (const auto& [table, query] : queries) {
        std::string text;
        const Status status = (service.*query)(&text);
        const bool isTooLong = status.transactionError() == android::FAILED_TRANSACTION;
        const int code = isTooLong
                                 ? fail(kExitErrorStatus,
                                        std::string(table) + ": too long for a binder transaction")
                                 : checkStatus(status, table);
        if (code == kExitErrorStatus) {
            worst = code;
            continue;
        }
        if (code != kExitOk) return code;
        (*outTables)[table] = parseText(text);
    }
    return worst;
}

int askNames(ISonorelService& service, const ShowOptions& options, Json* outTables) {
    for (const std::string& package : options.packages) {
        std::string text;
        const Status status = service.getMetaInfoByPkgName(package, &text);
        if (const int code = checkStatus(status, package); code != kExitOk) return code;
        (*outTables)["packages"][package] = parseText(text);
    }
    for (const std::string& device : options.devices) {
        bool unsupported = false;
        const Status status = service.isUnsupportDevice(device, &unsupported);
        if (const int code = checkStatus(status, device); code != kExitOk) return code;
        (*outTables)["unsupportedDevices"][device] = unsupported;
    }
    return kExitOk;
}

int showService(const ShowOptions& options) {
    android::sp<ISonorelService> service;
    if (const int code = connect(&service); code != kExitOk) return code;
    Json tables = Json::object();
    const int missing = askTables(*service, &tables);
    if (missing != kExitOk && missing != kExitErrorStatus) return missing;
    if (const int code = askNames(*service, options, &tables); code != kExitOk) return code;
    print(tables, options);
    return missing;
}

}  // namespace

void addPolicyVerb(CLI::App& app, const Globals& globals, Action* outAction) {
    CLI::App* verb = app.add_subcommand("policy", "Look at the configuration files");
    verb->require_subcommand(1);
    CLI::App* show = verb->add_subcommand(
            "show", "Print what a file holds or, without one, what the service has loaded");
    // Shared with the callbacks, which run when this function is long over.
    const auto options = std::make_shared<ShowOptions>();
    CLI::Option* path = show->add_option("PATH", options->path,
                                         "A meta audio policy file or a sound-separation file");
    show->add_flag("--json", options->json, "Print one JSON object instead of tables");
    show->add_option("--package", options->packages, "Ask the service for this package as well")
            ->excludes(path);
    show->add_option("--device", options->devices,
                     "Ask the service whether this device is unsupported as well")
            ->excludes(path);
    show->footer(
            "A file that the service could not use ends in exit code 2 with file and cause, a "
            "table\n"
            "that the service cannot give in exit code 1 behind the others.\n"
            "The service lists neither packages nor devices: name those to ask for.");
    show->callback([&globals, outAction, options] {
        if (!options->path.empty()) {
            *outAction = [options] { return showFile(*options); };
        } else {
            *outAction = [&globals, options] {
                return runWithin(globals, [&] { return showService(*options); });
            };
        }
    });
}

}  // namespace sonorel::ctl
