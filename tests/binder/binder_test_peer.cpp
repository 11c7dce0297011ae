// A process of a test: it gives its node to the context manager's node under the name that it is
// told, and then serves until its standard input ends.
//
//     binder_test_peer NAME [--no-pool] [--manager] [--threads N]
//
//   --no-pool    never starts a thread pool
//   --manager    becomes the context manager itself, under no name
//   --threads N  bounds its pool

#include <binder/IPCThreadState.h>
#include <binder/ProcessState.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "TestNode.h"

using android::IBinder;
using android::OK;
using android::ProcessState;
using android::sp;
using android::status_t;
using sonorel::test::TestNode;

int main(int argc, char** argv) {
    bool pool = true;
    bool manager = false;
    for (int i = 2; i < argc; ++i) {
        if (strcmp(argv[i], "--no-pool") == 0) pool = false;
        if (strcmp(argv[i], "--manager") == 0) manager = true;
        if (strcmp(argv[i], "--threads") == 0 && i + 1 < argc) {
            ProcessState::self()->setThreadPoolMaxThreadCount(strtoul(argv[++i], nullptr, 10));
        }
    }
    const sp<TestNode> node = new TestNode();
    if (pool) ProcessState::self()->startThreadPool();
    if (manager) {
        if (const status_t status = ProcessState::self()->becomeContextManager(node);
            status != OK) {
            printf("manager: %d\n", status);
            return 1;
        }
    } else {
        const sp<IBinder> registry = ProcessState::self()->getContextObject(nullptr);
        if (registry == nullptr || sonorel::test::callKeep(registry, argv[1], node) != OK) {
            printf("no context manager\n");
            return 1;
        }
        // A process without threads of its own can still be called while it calls.
        if (!pool) printf("called back: %d\n", sonorel::test::callBack(registry, node));
    }
    printf("ready\n");
    fflush(stdout);
    char sink[64];
    while (read(STDIN_FILENO, sink, sizeof(sink)) > 0) {
    }
    return 0;
}
