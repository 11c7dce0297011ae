#include "Strangers.h"

#include <android/log.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>

#include "Attacks.h"
#include "Roles.h"

namespace sonorel::bench {

using android::IBinder;
using android::OK;
using android::Parcel;
using android::ProcessState;
using android::sp;

namespace {

constexpr int kNeedsRoot = 77;  // the status of what cannot run here
constexpr int kTurns = 4;       // of a stranger that spins and one that attacks
constexpr int kWarmUpCalls = 500;
constexpr int64_t kBeat = 1000000;
constexpr int64_t kSecond = 1000000000;
constexpr int64_t kNewcomerPatience = kSecond;
// Of the server: what a process usually gets, and fewer than a stranger may open.
constexpr rlim_t kServerDescriptors = 1024;

// A process that calls the server for the first time.
int runNewcomer() {
    __android_log_set_minimum_priority(ANDROID_LOG_FATAL);  // a refusal is measured, not shown
    const sp<IBinder> node = ProcessState::self()->getContextObject(nullptr);
    Parcel data;
    Parcel reply;
    return node != nullptr && node->transact(BenchNode::ECHO, data, &reply) == OK ? 0 : 1;
}

// The server is the context manager, as that has an object that everybody knows the number of.
int runServer(const std::string& logPath) {
    const rlimit limit = {kServerDescriptors, kServerDescriptors};
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0) return 1;
    if (freopen(logPath.c_str(), "a", stderr) == nullptr) return 1;
    ProcessState::self()->startThreadPool();
    const sp<BenchNode> node = new BenchNode();
    if (ProcessState::self()->becomeContextManager(node) != OK) return 1;
    char sink;
    while (read(STDIN_FILENO, &sink, 1) > 0) {
    }
    return 0;
}

struct Holdings {
    long kilobytes = 0;
    long descriptors = 0;
};

Holdings holdingsOf(pid_t pid) {
    const std::string folder = "/proc/" + std::to_string(pid);
    Holdings holdings;
    std::ifstream statm(folder + "/statm");
    long pages = 0;
    statm >> pages >> pages;  // the second one is what is resident
    holdings.kilobytes = pages * (sysconf(_SC_PAGESIZE) / 1024);
    std::error_code ignored;
    for (std::filesystem::directory_iterator entry(folder + "/fd", ignored), end; entry != end;
         entry.increment(ignored)) {
        ++holdings.descriptors;
    }
    return holdings;
}

// A server and one caller, which is this process.
class Scene {
public:
    explicit Scene(std::string folder) : mFolder(std::move(folder)) {
        const std::string runtime = mFolder + "/run";
        setenv("SONOREL_RUNTIME_DIR", runtime.c_str(), 1);
        if (chmod(mFolder.c_str(), 0711) != 0) abort();  // a stranger must find the socket
        if (pipe2(mInputs, O_CLOEXEC) != 0) abort();
        mServer = start({"strangers-server", logPath()}, mInputs[0]);
        const std::string link = runtime + "/manager";
        char target[64] = {};
        while (readlink(link.c_str(), target, sizeof(target) - 1) <= 0) {
            if (waitpid(mServer, nullptr, WNOHANG) != 0) abort();  // it has failed
            sleepUntil(nowNs() + kBeat);
        }
        mSocketPath = runtime + "/" + target;
        ProcessState::self()->startThreadPool();
        mNode = ProcessState::self()->getContextObject(nullptr);
        if (mNode == nullptr) abort();
        mTallyFd = memfd_create("tally", 0);  // inherited by the strangers
        if (mTallyFd < 0 || ftruncate(mTallyFd, sizeof(uint64_t)) != 0) abort();
        mTally = static_cast<std::atomic<uint64_t>*>(
                mmap(nullptr, sizeof(uint64_t), PROT_READ, MAP_SHARED, mTallyFd, 0));
        if (mTally == MAP_FAILED) abort();
        for (int i = 0; i < kWarmUpCalls; ++i) {
            if (!call()) abort();
        }
    }

    ~Scene() {
        close(mInputs[1]);
        waitpid(mServer, nullptr, 0);
        std::error_code ignored;  // a folder that stays behind harms nobody
        (void)std::filesystem::remove_all(mFolder, ignored);
    }

    Scene(const Scene&) = delete;
    Scene& operator=(const Scene&) = delete;

    // One latency a beat, beside a stranger. Returns what the server holds at the end of that time.
    Holdings callBeside(const char* attack, int64_t duration, Samples* samples) {
        const pid_t stranger = start(
                {"strangers-attack", attack, mSocketPath, std::to_string(mTallyFd)}, mInputs[0]);
        // Not its start, which costs every kind the same.
        const uint64_t before = *mTally;
        for (int i = 0; i < 1000 && *mTally == before; ++i)
            sleepUntil(nowNs() + kBeat);
        const int64_t end = nowNs() + duration;
        for (int64_t next = nowNs() + kBeat; next < end; next = std::max(next + kBeat, nowNs())) {
            sleepUntil(next);
            const int64_t begin = nowNs();
            if (call()) {
                samples->push_back(nowNs() - begin);
            } else {
                ++failures;
            }
        }
        const Holdings holdings = holdingsOf(mServer);
        steps = *mTally - before;
        newcomer = std::max(newcomer, timeOfNewcomer());
        kill(stranger, SIGKILL);
        waitpid(stranger, nullptr, 0);
        return holdings;
    }

    // What the server holds once it has noticed a stranger's end, for which it has two seconds.
    Holdings settle(const Holdings& before) {
        const int64_t end = nowNs() + 2 * kSecond;
        Holdings now = holdingsOf(mServer);
        while (now.descriptors > before.descriptors && nowNs() < end) {
            sleepUntil(nowNs() + 10 * kBeat);
            now = holdingsOf(mServer);
        }
        return now;
    }

    [[nodiscard]] pid_t server() const { return mServer; }
    [[nodiscard]] std::string logPath() const { return mFolder + "/log"; }

    uint64_t steps = 0;    // of the latest stranger
    int failures = 0;      // calls
    int64_t newcomer = 0;  // the longest that a new process needed for its first call

private:
    // From its start to its end. All its patience when it does not get through.
    int64_t timeOfNewcomer() {
        const int64_t begin = nowNs();
        const pid_t pid = start({"strangers-newcomer"}, mInputs[0]);
        int status = 0;
        while (waitpid(pid, &status, WNOHANG) == 0) {
            if (nowNs() - begin >= kNewcomerPatience) {
                kill(pid, SIGKILL);
                waitpid(pid, &status, 0);
                break;
            }
            sleepUntil(nowNs() + kBeat / 10);
        }
        return status == 0 ? nowNs() - begin : kNewcomerPatience;
    }

    bool call() {
        const char payload[kPayload] = {};
        Parcel data;
        Parcel reply;
        data.write(payload, sizeof(payload));
        return mNode->transact(BenchNode::ECHO, data, &reply) == OK;
    }

    const std::string mFolder;
    int mInputs[2];  // the write end keeps the others alive
    pid_t mServer = -1;
    std::string mSocketPath;
    sp<IBinder> mNode;
    int mTallyFd = -1;
    std::atomic<uint64_t>* mTally = nullptr;
};

int runOne(const char* attack, double seconds) {
    // A call that never ends must not keep the others from being measured.
    alarm(static_cast<unsigned>(4 * seconds) + 60);
    char folder[] = "/tmp/binder_bench.XXXXXX";
    if (mkdtemp(folder) == nullptr) return 1;
    Scene scene(folder);
    const auto turn = static_cast<int64_t>(seconds * kSecond / kTurns);
    const char* const control = attacks().front().name;
    const Holdings before = holdingsOf(scene.server());
    Holdings most;
    Holdings after;
    Samples calm;
    Samples attacked;
    uint64_t steps = 0;
    int64_t newcomer = 0;
    for (int i = 0; i < kTurns; ++i) {
        scene.callBeside(control, turn, &calm);
        scene.newcomer = 0;
        const Holdings now = scene.callBeside(attack, turn, &attacked);
        newcomer = std::max(newcomer, scene.newcomer);
        most.kilobytes = std::max(most.kilobytes, now.kilobytes);
        most.descriptors = std::max(most.descriptors, now.descriptors);
        steps += scene.steps;
        after = scene.settle(before);
    }
    const double calm99 = microseconds(calm, 0.99);
    const double attacked99 = microseconds(attacked, 0.99);
    std::error_code ignored;  // then nothing has been logged
    const auto logged = std::filesystem::file_size(scene.logPath(), ignored);
    char descriptors[32];
    snprintf(descriptors, sizeof(descriptors), "%ld/%ld/%ld", before.descriptors, most.descriptors,
             after.descriptors);
    printf("%-18s %7.1f %7.1f %8.1f %8.1f %7.2f %7.1f %8ld %7ld %14s %8.0f %9.0f %8.0f %6d\n",
           attack, microseconds(calm, 0.5), calm99, microseconds(attacked, 0.5), attacked99,
           calm99 > 0 ? attacked99 / calm99 : 0, microseconds(attacked, 1) / 1000,
           most.kilobytes - before.kilobytes, after.kilobytes - before.kilobytes, descriptors,
           newcomer / 1e6, steps / seconds, ignored ? 0 : logged / 1024.0, scene.failures);
    return 0;
}

int runAll(const std::vector<std::string>& args) {
    if (geteuid() != 0) {
        fprintf(stderr, "binder_bench strangers: needs root, to start processes of another uid\n");
        return kNeedsRoot;
    }
    std::string seconds = "2";
    std::vector<std::string> names;
    for (size_t i = 1; i < args.size(); ++i) {
        if (args[i] == "--seconds" && i + 1 < args.size()) {
            seconds = args[++i];
        } else {
            names.push_back(args[i]);
        }
    }
    if (atof(seconds.c_str()) <= 0) {
        fprintf(stderr, "binder_bench strangers: --seconds needs a number above 0\n");
        return 2;
    }
    if (names.empty()) {
        for (size_t i = 1; i < attacks().size(); ++i)
            names.emplace_back(attacks()[i].name);
    }
    for (const std::string& name : names) {
        if (std::none_of(attacks().begin(), attacks().end(),
                         [&](const Attack& attack) { return name == attack.name; })) {
            fprintf(stderr, "binder_bench strangers: no attack %s; there are\n", name.c_str());
            for (const Attack& attack : attacks())
                fprintf(stderr, "  %-18s %s\n", attack.name, attack.what);
            return 2;
        }
    }
    setlinebuf(stdout);
    printf("Strangers: %zu bytes there and back, 1 kHz, %s s each way\n", kPayload,
           seconds.c_str());
    printf("%-18s %15s %17s %7s %7s %16s %14s %8s %9s %8s %6s\n", "", "spinning, us",
           "attacking, us", "p99", "worst", "kB more", "descriptors", "newcomer", "attacker's",
           "log", "failed");
    printf("%-18s %7s %7s %8s %8s %7s %7s %8s %7s %14s %8s %9s %8s %6s\n", "", "p50", "p99", "p50",
           "p99", "x", "ms", "beside", "after", "bef/bes/after", "ms", "steps/s", "kB", "calls");
    int failed = 0;
    for (const std::string& name : names) {
        // Each with a fresh server, in a process of its own as that has one binder.
        const pid_t pid = start({"strangers-one", name, seconds}, STDIN_FILENO);
        int status = 0;
        if (waitpid(pid, &status, 0) != pid || status != 0) {
            printf("%-18s did not end well: status %d\n", name.c_str(), status);
            failed = 1;
        }
    }
    return failed;
}

}  // namespace

bool isStrangersRole(const std::string& role) {
    return role.rfind("strangers", 0) == 0;
}

int runStrangersRole(const std::vector<std::string>& args) {
    const std::string& role = args[0];
    if (role == "strangers-server" && args.size() == 2) return runServer(args[1]);
    if (role == "strangers-attack" && args.size() == 4) {
        return runAttack(args[1], args[2], atoi(args[3].c_str()));
    }
    if (role == "strangers-newcomer") return runNewcomer();
    if (role == "strangers-one" && args.size() == 3) {
        return runOne(args[1].c_str(), atof(args[2].c_str()));
    }
    return runAll(args);
}

}  // namespace sonorel::bench
