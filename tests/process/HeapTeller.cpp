// Preloaded into a process, tells on SIGRTMIN how many bytes of its heap are in use: the figure
// that shows a loss where resident memory, with its stacks and holes, does not.

#include <malloc.h>
#include <pthread.h>
#include <signal.h>

#include <cstdio>
#include <thread>

namespace {

// Before main: every thread of the program inherits the blocked signal.
[[gnu::constructor]] void startTelling() {
    sigset_t ask;
    sigemptyset(&ask);
    sigaddset(&ask, SIGRTMIN);
    pthread_sigmask(SIG_BLOCK, &ask, nullptr);
    std::thread([ask] {
        // The program's own signals are for its own threads.
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, nullptr);
        int number = 0;
        while (sigwait(&ask, &number) == 0)
            fprintf(stderr, "heap in use: %zu\n", mallinfo2().uordblks);
    }).detach();
}

}  // namespace
