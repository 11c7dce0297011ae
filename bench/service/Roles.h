#pragma once

#include <string>
#include <vector>

#include "support/ChildProcess.h"

namespace sonorel::bench {

// What this program does as a child of itself. Each role says "ready" on stdout and ends with its
// stdin.
//
//   host                      the service, published by this very process; on a line of stdin it
//                             tells "malloc N" (its calls so far) and "sent N delivered N failed N"
//                             (one-way calls to client 1)
//   renderer TIMES            client 1: notes when head data comes; answers "playing"
//   thinker ID MS             a client that takes MS to answer a two-way event
//   ticker                    client 3: keeps the times of the ticks; a line of stdin prints them
//   raw-renderer TIMES WAY PATH  reads head data from the socket PATH
//   raw-relay FROM TO [answer]   passes head data on from one socket to another
//   tracker TIMES PLAIN ANSWERED N PERIOD   N samples each way, one each PERIOD microseconds, the
//                             ways in turns; the paths are those of two raw relays
//   flood N                   N samples through the service as fast as they go
//
// Returns the exit code.
int runRole(const std::vector<std::string>& args);

// This program in a role, of the runtime folder that the environment names.
test::ChildProcess::Options role(const std::vector<std::string>& args);

// How often this process has called malloc, calloc or realloc.
uint64_t mallocCount();

}  // namespace sonorel::bench
