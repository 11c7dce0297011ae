// Binder calls between processes beside the same traffic over a raw AF_UNIX stream socket, both in
// one run and in turns.
//
//     binder_bench [one|free] [--calls N]
//     binder_bench strangers [--seconds N] [ATTACK...]
//
// "one" keeps all processes on one core, where an idle core's slow wake-up does not hide the
// differences; "free" leaves them to the scheduler; by default both, one after the other.
// "strangers" is another measurement, see Strangers.h.

#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <fcntl.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "Measure.h"
#include "Roles.h"
#include "Strangers.h"

using namespace sonorel::bench;
using android::IBinder;
using android::OK;
using android::Parcel;
using android::ProcessState;
using android::sp;

namespace {

constexpr int kRounds = 10;

// A stream socket pair whose first end stays here; the second is inherited by the next child only.
struct Pair {
    Pair() {
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) abort();
        fcntl(ends[0], F_SETFD, FD_CLOEXEC);
    }
    void given() { close(ends[1]); }
    int ends[2];
};

void printLine(const char* what, Samples raw, Samples binder) {
    const double raw50 = microseconds(raw, 0.5);
    const double raw99 = microseconds(raw, 0.99);
    const double binder50 = microseconds(binder, 0.5);
    const double binder99 = microseconds(binder, 0.99);
    printf("%-22s %9.2f %9.2f %9.2f %9.2f %8.2f %8.2f   (%zu, %zu samples)\n", what, raw50, raw99,
           binder50, binder99, binder50 / raw50, binder99 / raw99, raw.size(), binder.size());
}

void append(Samples* all, const Samples& more) {
    all->insert(all->end(), more.begin(), more.end());
}

void stamp(char (&payload)[kPayload]) {
    const int64_t now = nowNs();
    memcpy(payload, &now, sizeof(now));
}

Parcel& fill(Parcel* data) {
    char payload[kPayload] = {};
    stamp(payload);
    data->write(payload, sizeof(payload));
    return *data;
}

Samples takeSamples(const sp<IBinder>& sink, int64_t expected) {
    int64_t count = 0;
    do {
        Parcel data;
        Parcel reply;
        if (sink->transact(BenchNode::COUNT, data, &reply) != OK) abort();
        count = reply.readInt64();
    } while (count < expected);
    Parcel data;
    Parcel reply;
    Samples samples;
    if (sink->transact(BenchNode::SAMPLES, data, &reply) != OK) abort();
    if (reply.readInt64Vector(&samples) != OK) abort();
    return samples;
}

// Everything that a mode measures with.
struct Bench {
    int calls;
    int inputs[2];  // the write end keeps the children alive
    sp<BenchNode> manager;
    sp<IBinder> server;
    sp<IBinder> sink;
    int64_t sunk = 0;
};

void benchRoundTrip(Bench& bench) {
    Pair pair;
    start({"raw-echo", std::to_string(pair.ends[1])}, bench.inputs[0]);
    pair.given();
    Samples raw;
    Samples binder;
    char payload[kPayload] = {};
    for (int round = 0; round < kRounds; ++round) {
        for (int i = 0; i < bench.calls; ++i) {
            const int64_t begin = nowNs();
            if (!writeExactly(pair.ends[0], payload, sizeof(payload))) abort();
            if (!readExactly(pair.ends[0], payload, sizeof(payload))) abort();
            raw.push_back(nowNs() - begin);
        }
        for (int i = 0; i < bench.calls; ++i) {
            const int64_t begin = nowNs();
            Parcel data;
            Parcel reply;
            data.write(payload, sizeof(payload));
            if (bench.server->transact(BenchNode::ECHO, data, &reply) != OK) abort();
            binder.push_back(nowNs() - begin);
        }
    }
    close(pair.ends[0]);
    printLine("round trip", raw, binder);
}

// Runs `rawSend` and `binderSend` once a millisecond in turns of a round.
template <typename RawSend, typename BinderSend>
void paced(int count, RawSend rawSend, BinderSend binderSend, Bench& bench, Samples* outBinder) {
    for (int round = 0; round < 4; ++round) {
        int64_t next = nowNs();
        for (int i = 0; i < count; ++i) {
            sleepUntil(next += 1000000);
            rawSend();
        }
        for (int i = 0; i < count; ++i) {
            sleepUntil(next += 1000000);
            binderSend();
            ++bench.sunk;
        }
        append(outBinder, takeSamples(bench.sink, bench.sunk));
    }
}

Samples readSamples(int fd) {
    Samples samples;
    int64_t value;
    while (readExactly(fd, &value, sizeof(value)))
        samples.push_back(value);
    return samples;
}

void benchOneWay(Bench& bench) {
    Pair pair;
    Pair result;
    start({"raw-sink", std::to_string(pair.ends[1]), std::to_string(result.ends[1])},
          bench.inputs[0]);
    pair.given();
    result.given();
    Samples binder;
    paced(
            500,
            [&] {
                char payload[kPayload] = {};
                stamp(payload);
                if (!writeExactly(pair.ends[0], payload, sizeof(payload))) abort();
            },
            [&] {
                Parcel data;
                fill(&data);
                if (bench.sink->transact(BenchNode::SINK, data, nullptr, IBinder::FLAG_ONEWAY) !=
                    OK) {
                    abort();
                }
            },
            bench, &binder);
    close(pair.ends[0]);
    printLine("one-way, 1 kHz", readSamples(result.ends[0]), binder);
    close(result.ends[0]);
}

void benchRelay(Bench& bench) {
    Pair toMiddle;
    Pair toSink;  // both ends go to children
    Pair result;
    start({"raw-sink", std::to_string(toSink.ends[1]), std::to_string(result.ends[1])},
          bench.inputs[0]);
    toSink.given();
    result.given();
    fcntl(toSink.ends[0], F_SETFD, 0);  // for the middle one
    start({"raw-middle", std::to_string(toMiddle.ends[1]), std::to_string(toSink.ends[0])},
          bench.inputs[0]);
    toMiddle.given();
    close(toSink.ends[0]);
    Samples binder;
    paced(
            1000,
            [&] {
                char payload[kPayload] = {};
                stamp(payload);
                if (!writeExactly(toMiddle.ends[0], payload, sizeof(payload))) abort();
                if (!readExactly(toMiddle.ends[0], payload, sizeof(payload))) abort();
            },
            [&] {
                Parcel data;
                Parcel reply;
                fill(&data);
                if (bench.server->transact(BenchNode::RELAY, data, &reply) != OK) abort();
            },
            bench, &binder);
    close(toMiddle.ends[0]);
    printLine("two-hop relay, 1 kHz", readSamples(result.ends[0]), binder);
    close(result.ends[0]);
}

void benchFlatOut(Bench& bench) {
    const int count = 20 * bench.calls;
    Pair pair;
    Pair result;
    start({"raw-sink", std::to_string(pair.ends[1]), std::to_string(result.ends[1])},
          bench.inputs[0]);
    pair.given();
    result.given();
    char payload[kPayload] = {};
    int64_t begin = nowNs();
    for (int i = 0; i < count; ++i) {
        if (!writeExactly(pair.ends[0], payload, sizeof(payload))) abort();
    }
    close(pair.ends[0]);
    int64_t unused;
    if (!readExactly(result.ends[0], &unused, sizeof(unused))) abort();
    const double raw = count * 1e3 / (nowNs() - begin);
    close(result.ends[0]);

    int64_t refused = 0;
    begin = nowNs();
    for (int i = 0; i < count; ++i) {
        Parcel data;
        fill(&data);
        // As many as the receiver takes: a refusal is answered with a pause, as a real sender
        // would.
        while (bench.sink->transact(BenchNode::SINK, data, nullptr, IBinder::FLAG_ONEWAY) != OK) {
            ++refused;
            sleepUntil(nowNs() + 50000);
        }
    }
    bench.sunk += count;
    int64_t done = 0;
    do {
        Parcel data;
        Parcel reply;
        if (bench.sink->transact(BenchNode::COUNT, data, &reply) != OK) abort();
        done = reply.readInt64();
    } while (done < bench.sunk);
    const double binder = count * 1e3 / (nowNs() - begin);
    printf("%-22s raw %.3f, binder %.3f million a second (%.2f); refused and sent again: %lld\n",
           "one-way, flat out", raw, binder, binder / raw, static_cast<long long>(refused));
}

int runMode(const char* mode, int calls) {
    if (strcmp(mode, "one") == 0) {
        cpu_set_t set;
        CPU_ZERO(&set);
        CPU_SET(1 % sysconf(_SC_NPROCESSORS_ONLN), &set);
        if (sched_setaffinity(0, sizeof(set), &set) != 0) perror("sched_setaffinity");
    }
    char folder[] = "/tmp/binder_bench.XXXXXX";
    if (mkdtemp(folder) == nullptr) return 1;
    setenv("SONOREL_RUNTIME_DIR", (std::string(folder) + "/run").c_str(), 1);
    Bench bench;
    bench.calls = calls;
    if (pipe2(bench.inputs, O_CLOEXEC) != 0) return 1;
    bench.manager = new BenchNode();
    ProcessState::self()->startThreadPool();
    if (ProcessState::self()->becomeContextManager(bench.manager) != OK) return 1;
    start({"binder", "server"}, bench.inputs[0]);
    start({"binder", "sink"}, bench.inputs[0]);
    bench.server = bench.manager->waitFor("server");
    bench.sink = bench.manager->waitFor("sink");
    Parcel data;
    Parcel reply;
    data.writeStrongBinder(bench.sink);
    if (bench.server->transact(BenchNode::SET_SINK, data, &reply) != OK) return 1;

    setlinebuf(stdout);
    printf("%s: %zu bytes, microseconds\n", strcmp(mode, "one") == 0 ? "One core" : "Free cores",
           kPayload);
    printf("%-22s %9s %9s %9s %9s %8s %8s\n", "", "raw p50", "raw p99", "p50", "p99", "p50 x",
           "p99 x");
    benchRoundTrip(bench);
    benchOneWay(bench);
    benchRelay(bench);
    benchFlatOut(bench);
    fflush(stdout);
    close(bench.inputs[1]);
    while (wait(nullptr) > 0) {
    }
    std::error_code ignored;  // a folder that stays behind harms nobody
    (void)std::filesystem::remove_all(folder, ignored);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string role = argc > 1 ? argv[1] : "";
    if (role == "raw-echo") return runRawEcho(atoi(argv[2]));
    if (role == "raw-middle") return runRawMiddle(atoi(argv[2]), atoi(argv[3]));
    if (role == "raw-sink") return runRawSink(atoi(argv[2]), atoi(argv[3]));
    if (role == "binder") return runBinder(argv[2]);
    if (isStrangersRole(role)) return runStrangersRole({argv + 1, argv + argc});
    int calls = 2000;
    std::vector<std::string> modes;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--calls") == 0 && i + 1 < argc) {
            calls = std::max(1, atoi(argv[++i]));
        } else {
            modes.emplace_back(argv[i]);
        }
    }
    if (modes.size() == 1 && (modes[0] == "one" || modes[0] == "free")) {
        return runMode(modes[0].c_str(), calls);
    }
    // A process has one binder: each mode gets its own.
    for (const char* mode : {"one", "free"}) {
        const pid_t pid = start({mode, "--calls", std::to_string(calls)}, STDIN_FILENO);
        int status = 0;
        waitpid(pid, &status, 0);
    }
    return 0;
}
