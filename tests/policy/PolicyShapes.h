// Files that would be dear to read for their size, for the tests of what is refused and the
// benchmark of what each costs.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace sonorel::test {

struct PolicyShape {
    const char* name;
    const char* refusal;  // part of the reader's error; null for a file that is read
    std::string head;
    std::function<std::string(size_t)> unit;  // repeated, with its number, to fill the file
    std::string tail;

    std::string make(size_t bytes) const;
};

const std::vector<PolicyShape>& policyShapes();

}  // namespace sonorel::test
