#pragma once

#include <string>

namespace sonorel::host {

// The steps that bring the service up, in their order. Each returns false with the reason, which
// names the file or the service concerned, in outError.

// Publishes a service manager of this process unless one answers already. `root` is where its
// permission grants lie.
[[nodiscard]] bool ensureServiceManager(const std::string& root, std::string* outError);

// Loads the service library ("" for the one beside the program) and lets it create and register the
// service. The library stays loaded for the life of the process.
[[nodiscard]] bool instantiateService(const std::string& library, std::string* outError);

// True when clients that ask the service manager get this process's service.
[[nodiscard]] bool isServicePublished(std::string* outError);

}  // namespace sonorel::host
