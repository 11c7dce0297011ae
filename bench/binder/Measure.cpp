#include "Measure.h"

#include <time.h>
#include <unistd.h>

#include <algorithm>

namespace sonorel::bench {

int64_t nowNs() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000000000 + now.tv_nsec;
}

void sleepUntil(int64_t when) {
    const timespec time = {static_cast<time_t>(when / 1000000000),
                           static_cast<long>(when % 1000000000)};
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr);
}

double microseconds(Samples& samples, double part) {
    if (samples.empty()) return 0;
    const size_t index = std::min(samples.size() - 1, static_cast<size_t>(part * samples.size()));
    std::nth_element(samples.begin(), samples.begin() + index, samples.end());
    return samples[index] / 1000.0;
}

pid_t start(const std::vector<std::string>& args, int inputFd) {
    const pid_t pid = fork();
    if (pid != 0) return pid;
    dup2(inputFd, STDIN_FILENO);
    std::vector<char*> argv = {const_cast<char*>("/proc/self/exe")};
    for (const std::string& arg : args)
        argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);
    execv("/proc/self/exe", argv.data());
    _exit(127);
}

}  // namespace sonorel::bench
