#pragma once

#include <string>
#include <vector>

namespace sonorel::bench {

// What a stranger, a process of another uid that keeps one core busy, costs the others:
//
//     binder_bench strangers [--seconds N] [ATTACK...]
//
// For each attack (see Attacks.h) a caller and its server, both of root, exchange a call a
// millisecond, N seconds in all beside a stranger that only spins and N beside one that attacks the
// server, in turns. A line then tells both latencies and what the server holds: memory beyond that
// before the stranger came, and descriptors. "After" is once the stranger has ended, and two
// seconds later if descriptors are left. "Newcomer" is how long a new process needs for its first
// call beside the attack; 1000 ms: it did not get through. An attack named "control" tells how much
// of a ratio is chance. Without root it exits with status 77.
bool isStrangersRole(const std::string& role);
int runStrangersRole(const std::vector<std::string>& args);

}  // namespace sonorel::bench
