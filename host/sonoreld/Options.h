#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace sonorel::host {

struct Options {
    // Absolute, without links; "" when device paths are taken as they stand.
    std::string root;
    // Absolute paths, in the order given.
    std::vector<std::string> propertyFiles;
    // Names and values, in the order given.
    std::vector<std::pair<std::string, std::string>> properties;
    // "" for the one beside the program.
    std::string serviceLibrary;
    // Serve although another process does.
    bool replace = false;
    bool verbose = false;
};

// The exit code for a command line that makes no sense.
constexpr int kExitUsage = 2;

// Fills `outOptions` from the command line and returns nothing, or returns the exit code with which
// the program has to leave: 0 after --help and --version, kExitUsage after an error, which has then
// been told on stderr.
std::optional<int> parseCommandLine(int argc, char** argv, Options* outOptions);

}  // namespace sonorel::host
