#include "support/ChildProcess.h"

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support/ProgramForOthers.h"

namespace sonorel::test {
namespace {

constexpr int kCannotExecute = 127;

[[noreturn]] void die(const char* what) {
    std::perror(what);
    std::abort();
}

struct Pipe {
    int readEnd;
    int writeEnd;
};

Pipe makePipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) die("pipe2");
    return {ends[0], ends[1]};
}

std::vector<std::string> environmentWith(const std::map<std::string, std::string>& changes) {
    std::vector<std::string> result;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        if (changes.count(text.substr(0, text.find('='))) == 0) result.push_back(text);
    }
    for (const auto& [name, value] : changes) {
        if (value.empty()) continue;
        result.push_back(name);
        result.back().append("=").append(value);
    }
    return result;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

// Runs between fork and exec, where only async-signal-safe calls are allowed.
[[noreturn]] void becomeProgram(const ChildProcess::Options& options, char* const* argv,
                                char* const* envp, const std::array<int, 3>& streams) {
    for (int fd = 0; fd < 3; ++fd)
        dup2(streams[static_cast<size_t>(fd)], fd);
    sigset_t none;
    sigemptyset(&none);
    // This process has one thread.
    sigprocmask(SIG_SETMASK, &none, nullptr);  // NOLINT(concurrency-mt-unsafe)
    const bool ready =
            (!options.uid || *options.uid == getuid() ||
             (setgroups(0, nullptr) == 0 && setgid(*options.uid) == 0 &&
              setuid(*options.uid) == 0)) &&
            (options.workingDirectory.empty() || chdir(options.workingDirectory.c_str()) == 0) &&
            prctl(PR_SET_PDEATHSIG, SIGKILL) == 0;
    if (ready) execve(argv[0], argv, envp);
    constexpr char kText[] = "cannot run the program: ";
    const char* reason = strerror(errno);  // NOLINT(concurrency-mt-unsafe)
    (void)!::write(STDERR_FILENO, kText, sizeof(kText) - 1);
    (void)!::write(STDERR_FILENO, reason, strlen(reason));
    // Not _exit(), on which the thread sanitizer reports the parent's threads as leaked here.
    syscall(SYS_exit_group, kCannotExecute);
    __builtin_unreachable();
}

}  // namespace

ChildProcess::ChildProcess(const Options& options) {
    // A child that reads no more must not end the test program.
    signal(SIGPIPE, SIG_IGN);
    const Pipe input = makePipe();
    const Pipe output = makePipe();
    const Pipe errors = makePipe();
    std::vector<std::string> args = options.args;
    args.insert(args.begin(), options.program);
    std::map<std::string, std::string> changes = options.env;
    if (options.uid && *options.uid != getuid()) {
        const ProgramForOthers program = programForOthers(options.program);
        args[0] = program.path;
        if (!program.libraryPath.empty()) changes["LD_LIBRARY_PATH"] = program.libraryPath;
    }
    std::vector<std::string> env = environmentWith(changes);
    const std::vector<char*> argv = pointersTo(args);
    const std::vector<char*> envp = pointersTo(env);

    mPid = fork();
    if (mPid < 0) die("fork");
    if (mPid == 0) {
        signal(SIGPIPE, SIG_DFL);
        becomeProgram(options, argv.data(), envp.data(),
                      {input.readEnd, output.writeEnd, errors.writeEnd});
    }
    close(input.readEnd);
    close(output.writeEnd);
    close(errors.writeEnd);
    mInputFd = input.writeEnd;
    mOutput.fd = output.readEnd;
    mErrors.fd = errors.readEnd;
    mStopFd = eventfd(0, EFD_CLOEXEC);
    if (mStopFd < 0) die("eventfd");
    mReader = std::thread([this] { readStreams(); });
    mWaiter = std::thread([this] { awaitEnd(); });
}

ChildProcess::~ChildProcess() {
    kill(SIGKILL);
    mWaiter.join();
    // A grandchild may still hold the pipes.
    const uint64_t one = 1;
    (void)!::write(mStopFd, &one, sizeof(one));
    mReader.join();
    closeInput();
    close(mOutput.fd);
    close(mErrors.fd);
    close(mStopFd);
}

void ChildProcess::readStreams() {
    std::array<Stream*, 2> streams{&mOutput, &mErrors};
    std::array<pollfd, 3> polled{pollfd{mOutput.fd, POLLIN, 0}, pollfd{mErrors.fd, POLLIN, 0},
                                 pollfd{mStopFd, POLLIN, 0}};
    std::array<char, 4096> buffer{};
    while (polled[0].fd >= 0 || polled[1].fd >= 0) {
        if (poll(polled.data(), polled.size(), -1) < 0 && errno != EINTR) die("poll");
        bool anything = false;
        for (size_t i = 0; i < streams.size(); ++i) {
            if (polled[i].fd < 0 || polled[i].revents == 0) continue;
            anything = true;
            const ssize_t size = read(polled[i].fd, buffer.data(), buffer.size());
            if (size < 0 && errno == EINTR) continue;
            std::lock_guard lock(mMutex);
            if (size > 0) {
                streams[i]->text.append(buffer.data(), static_cast<size_t>(size));
            } else {
                streams[i]->open = false;
                polled[i].fd = -1;
            }
            mChanged.notify_all();
        }
        if (!anything && polled[2].revents != 0) return;
    }
}

void ChildProcess::awaitEnd() {
    siginfo_t info{};
    // Left unreaped until the lock is held, so that kill() never reaches a recycled pid.
    while (waitid(P_PID, static_cast<id_t>(mPid), &info, WEXITED | WNOWAIT) != 0) {
        if (errno != EINTR) die("waitid");
    }
    std::lock_guard lock(mMutex);
    int status = 0;
    if (waitpid(mPid, &status, 0) != mPid) die("waitpid");
    mStatus = ExitStatus{WIFEXITED(status), WIFEXITED(status) ? WEXITSTATUS(status) : 0,
                         WIFSIGNALED(status) ? WTERMSIG(status) : 0};
    mChanged.notify_all();
}

bool ChildProcess::write(const std::string& text) {
    std::lock_guard lock(mMutex);
    size_t written = 0;
    while (mInputFd >= 0 && written < text.size()) {
        const ssize_t size = ::write(mInputFd, text.data() + written, text.size() - written);
        if (size < 0 && errno != EINTR) return false;
        if (size > 0) written += static_cast<size_t>(size);
    }
    return written == text.size();
}

void ChildProcess::closeInput() {
    std::lock_guard lock(mMutex);
    if (mInputFd >= 0) close(mInputFd);
    mInputFd = -1;
}

bool ChildProcess::waitFor(const Stream& stream, const std::string& text,
                           std::chrono::milliseconds within, std::string* outLine) {
    const auto end = std::chrono::steady_clock::now() + within;
    std::unique_lock lock(mMutex);
    while (true) {
        const size_t found = stream.text.find(text);
        const size_t lineEnd =
                found == std::string::npos ? found : stream.text.find('\n', found + text.size());
        if (found != std::string::npos && outLine == nullptr) return true;
        if (lineEnd != std::string::npos) {
            const size_t before = found == 0 ? found : stream.text.rfind('\n', found - 1);
            const size_t start = found == 0 || before == std::string::npos ? 0 : before + 1;
            *outLine = stream.text.substr(start, lineEnd - start);
            return true;
        }
        if (!stream.open) return false;
        if (mChanged.wait_until(lock, end) == std::cv_status::timeout &&
            std::chrono::steady_clock::now() >= end) {
            return false;
        }
    }
}

bool ChildProcess::waitForOutput(const std::string& text, std::chrono::milliseconds within) {
    return waitFor(mOutput, text, within, nullptr);
}

bool ChildProcess::waitForLine(const std::string& text, std::chrono::milliseconds within,
                               std::string* outLine) {
    std::string line;
    return waitFor(mOutput, text, within, outLine == nullptr ? &line : outLine);
}

bool ChildProcess::waitForError(const std::string& text, std::chrono::milliseconds within) {
    return waitFor(mErrors, text, within, nullptr);
}

std::string ChildProcess::output() const {
    std::lock_guard lock(mMutex);
    return mOutput.text;
}

std::string ChildProcess::errors() const {
    std::lock_guard lock(mMutex);
    return mErrors.text;
}

void ChildProcess::kill(int signal) {
    std::lock_guard lock(mMutex);
    if (!mStatus) ::kill(mPid, signal);
}

std::optional<ExitStatus> ChildProcess::wait(std::chrono::milliseconds within) {
    std::unique_lock lock(mMutex);
    const bool ended = mChanged.wait_for(lock, within,
                                         [&] { return mStatus && !mOutput.open && !mErrors.open; });
    return ended ? mStatus : std::nullopt;
}

}  // namespace sonorel::test
