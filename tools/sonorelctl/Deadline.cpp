#include "Deadline.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <future>
#include <thread>

namespace sonorel::ctl {

int runWithin(const Globals& globals, const Action& action) {
    if (globals.timeoutSeconds <= 0) return action();
    std::packaged_task<int()> task(action);
    std::future<int> result = task.get_future();
    std::thread worker(std::move(task));
    const auto within = std::chrono::duration<double>(globals.timeoutSeconds);
    if (result.wait_for(within) == std::future_status::timeout) leaveTimedOut(globals);
    worker.join();
    return result.get();
}

void leaveTimedOut(const Globals& globals) {
    (void)fprintf(stderr, "sonorelctl: no answer within %g s\n", globals.timeoutSeconds);
    (void)fflush(stdout);
    _exit(kExitTimedOut);
}

}  // namespace sonorel::ctl
