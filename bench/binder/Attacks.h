#pragma once

#include <string>
#include <vector>

namespace sonorel::bench {

// What a stranger that may not do anything can do without end to the process that listens at a
// socket. It speaks the frames itself, as no honest process would.
struct Attack {
    const char* name;
    const char* what;
};

// The first keeps off the socket: it costs a core and nothing else, which is what the others are
// compared to.
const std::vector<Attack>& attacks();

// As the uid of nobody, which needs root to become. Counts what it has done in the uint64_t that
// `tallyFd` shares. Ends when it is killed, or its parent is.
int runAttack(const std::string& name, const std::string& socketPath, int tallyFd);

}  // namespace sonorel::bench
