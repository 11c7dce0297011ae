// A process of a test: it gives its node to the context manager's node under the name that it is
// told, and then serves until its standard input ends.
//
//     binder_test_peer NAME [--no-pool] [--manager] [--threads N] [--fork]
//                      [--send FIRST COUNT SIZE]
//
//   --no-pool    never starts a thread pool
//   --manager    becomes the context manager itself, under no name
//   --threads N  bounds its pool
//   --fork       has a child that does not exec, and lives until standard input ends
//   --send       instead sends so many numbered one-way calls of this size to what is kept under
//                NAME, and leaves; fails when not all of them were accepted

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
using sonorel::test::callGive;
using sonorel::test::callRound;
using sonorel::test::sendNotes;
using sonorel::test::TestNode;

namespace {

// A process without threads of its own can still be called while it calls: by the registry, or by
// the process "hop" that the registry calls.
void roundTrip(const sp<IBinder>& registry, const sp<IBinder>& node) {
    sonorel::test::Hops hops = {registry};
    if (const sp<IBinder> hop = callGive(registry, "hop"); hop != nullptr) hops.push_back(hop);
    hops.push_back(node);
    android::Parcel reply;
    const status_t status = callRound(hops, 4, &reply);
    (void)reply.readUint32();
    const int32_t caller = reply.readInt32();
    const char* const where = reply.readInt32() == gettid() ? "here" : "elsewhere";
    printf("called back: %d by %d %s\n", status, caller, where);
}

void awaitEnd() {
    char sink[64];
    while (read(STDIN_FILENO, sink, sizeof(sink)) > 0) {
    }
}

void haveChild() {
    const pid_t child = fork();
    if (child != 0) {
        printf("forked: %d\n", child);
        return;
    }
    // The test sees the end of the parent by these.
    close(STDOUT_FILENO);
    close(STDERR_FILENO);
    awaitEnd();
    _exit(0);
}

}  // namespace

int main(int argc, char** argv) {
    setlinebuf(stdout);
    bool pool = true;
    bool manager = false;
    char** send = nullptr;
    bool forks = false;
    for (int i = 2; i < argc; ++i) {
        if (strcmp(argv[i], "--no-pool") == 0) pool = false;
        if (strcmp(argv[i], "--manager") == 0) manager = true;
        if (strcmp(argv[i], "--fork") == 0) forks = true;
        if (strcmp(argv[i], "--threads") == 0 && i + 1 < argc) {
            ProcessState::self()->setThreadPoolMaxThreadCount(strtoul(argv[++i], nullptr, 10));
        }
        if (strcmp(argv[i], "--send") == 0 && i + 3 < argc) send = &argv[i + 1];
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
        if (send != nullptr && registry != nullptr) {
            const int32_t count = atoi(send[1]);
            const bool all = sendNotes(callGive(registry, argv[1]), atoi(send[0]), count,
                                       strtoul(send[2], nullptr, 10)) == count;
            printf("sent\n");
            return all ? 0 : 1;
        }
        if (registry == nullptr || sonorel::test::callKeep(registry, argv[1], node) != OK) {
            printf("no context manager\n");
            return 1;
        }
        if (!pool) roundTrip(registry, node);
    }
    if (forks) haveChild();
    printf("ready\n");
    awaitEnd();
    return 0;
}
