#include "Options.h"

#include <CLI/CLI.hpp>
#include <filesystem>

namespace sonorel::host {
namespace {

namespace fs = std::filesystem;

// Paths on the command line are meant from where the program was started, not from the root.
std::string absolute(const std::string& path) {
    if (path.empty()) return path;
    std::error_code error;
    const fs::path whole = fs::absolute(path, error);
    return error ? path : whole.lexically_normal().string();
}

std::string realDirectory(const std::string& path) {
    std::error_code error;
    const fs::path real = fs::canonical(path, error);
    if (error) throw CLI::ValidationError("--root", path + ": " + error.message());
    if (!fs::is_directory(real)) throw CLI::ValidationError("--root", path + ": not a directory");
    return real.string();
}

std::pair<std::string, std::string> keyAndValue(const std::string& text) {
    const size_t equals = text.find('=');
    if (equals == std::string::npos || equals == 0) {
        throw CLI::ValidationError("--property", "'" + text + "' is not KEY=VALUE");
    }
    return {text.substr(0, equals), text.substr(equals + 1)};
}

}  // namespace

std::optional<int> parseCommandLine(int argc, char** argv, Options* outOptions) {
    Options options;
    std::vector<std::string> properties;
    CLI::App app(
            "Hosts the spatial-audio service and, where none answers yet, the service manager.");
    app.name("sonoreld");
    app.set_version_flag("--version", "sonoreld " SONOREL_VERSION);
    app.add_option("--root", options.root,
                   "Folder that stands for the device's /: becomes the working directory, absolute "
                   "device paths are mapped below it, and its build.prop is read")
            ->envname("SONOREL_DEVICE_ROOT")
            ->type_name("DIR");
    app.add_option("--property", properties,
                   "Set a property before the service loads; wins over every file")
            ->type_name("KEY=VALUE")
            ->allow_extra_args(false);
    app.add_option("--properties", options.propertyFiles,
                   "Read properties from a file of key=value lines; later files win")
            ->type_name("FILE")
            ->allow_extra_args(false);
    app.add_option("--library", options.serviceLibrary,
                   "The service library [libsonorelservice.so in ../lib of this program]")
            ->type_name("FILE");
    app.add_flag("--replace", options.replace,
                 "Take the service's name from the process that serves, which then serves only "
                 "those who know it already; without this sonoreld does not start beside it");
    app.add_flag("--verbose", options.verbose, "Log at debug level instead of info");
    app.footer(
            "Prints 'SonorelService ready' once clients can call, and serves until SIGTERM or "
            "SIGINT;\nthe store writes that the service has posted then have a second to be "
            "carried out.\n"
            "SIGUSR1 plays the death of the audio server, SIGUSR2 its return, after which every "
            "client gets the\nsettings again.\n"
            "Sockets lie under $SONOREL_RUNTIME_DIR, by default $XDG_RUNTIME_DIR/sonorel or "
            "/tmp/sonorel-UID.\n"
            "Exit codes: 0 stopped by a signal, 1 could not start, 2 usage.");
    try {
        app.parse(argc, argv);
        if (!options.root.empty()) options.root = realDirectory(options.root);
        for (std::string& file : options.propertyFiles)
            file = absolute(file);
        for (const std::string& text : properties)
            options.properties.push_back(keyAndValue(text));
        options.serviceLibrary = absolute(options.serviceLibrary);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kExitUsage;
    }
    *outOptions = std::move(options);
    return std::nullopt;
}

}  // namespace sonorel::host
