// Policy files of any size, made up, the same for the same arguments.
#pragma once

#include <string>

namespace sonorel::test {

struct PolicySize {
    int packages = 0;
    int scenes = 0;
    int devices = 0;
    int processors = 0;
    int detectors = 0;
};

// A meta audio policy file with every field of every item. Packages stand in no order.
std::string generatePolicy(const PolicySize& size, const std::string& version);

}  // namespace sonorel::test
