#pragma once

#include <string>
#include <vector>

#include "sonorelctl/Json.h"

namespace sonorel::ctl {

// What a configuration file holds, each table under its name: "packages", "scenes", "processors",
// "detectors" and "unsupportedDevices" of a meta audio policy file, "mss" of a sound-separation
// file, which is every file without the root or the head of the other. Remarks tell of what was
// ignored. False with file and cause in outError when the service could not use the file.
[[nodiscard]] bool readPolicyFile(const std::string& path, Json* outTables,
                                  std::vector<std::string>* outRemarks, std::string* outError);

// One block a table: its name, then a line a record with a column a field. Ends with a newline.
std::string toTable(const Json& tables);

}  // namespace sonorel::ctl
