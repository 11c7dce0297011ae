#pragma once

#include <stdint.h>
#include <sys/types.h>

#include <string>
#include <vector>

namespace sonorel::bench {

// Nanoseconds of a clock that all processes share.
int64_t nowNs();
void sleepUntil(int64_t when);

// Latencies in nanoseconds.
using Samples = std::vector<int64_t>;

// What a part of the samples, as 0.99 for the 99th percentile, stays below. 0 without samples.
double microseconds(Samples& samples, double part);

// A process of this program in another role; its standard input ends with this one.
pid_t start(const std::vector<std::string>& args, int inputFd);

}  // namespace sonorel::bench
