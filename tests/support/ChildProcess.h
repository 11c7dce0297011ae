#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "support/Wait.h"

namespace sonorel::test {

// How a process ended: `code` when it left by itself, otherwise the number of the signal.
struct ExitStatus {
    bool exited;
    int code;
    int signal;
};

// A program run as a child, its three standard streams connected to this object. Both output
// streams are read all the time, so a child never blocks on them. The destructor kills and reaps; a
// child also dies with the thread that started it. Thread-safe, apart from construction and
// destruction.
class ChildProcess {
public:
    struct Options {
        std::string program;
        std::vector<std::string> args;
        // Added to this process's environment; an empty value removes the variable.
        std::map<std::string, std::string> env;
        // The child's uid and gid. Only root may name another than its own.
        std::optional<uid_t> uid;
        // "" for this process's.
        std::string workingDirectory;
    };

    // A program that cannot be executed shows as exit code 127 with the reason in errors().
    explicit ChildProcess(const Options& options);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t pid() const { return mPid; }

    // False when the child no longer reads.
    bool write(const std::string& text);
    void closeInput();

    // Waits until stdout holds `text` (anywhere, from the start of the child on). False when the
    // child closed stdout or `within` passed first.
    [[nodiscard]] bool waitForOutput(const std::string& text,
                                     std::chrono::milliseconds within = kEventDeadline);
    // The same for a whole line of stdout that contains `text`; outLine receives the line.
    [[nodiscard]] bool waitForLine(const std::string& text,
                                   std::chrono::milliseconds within = kEventDeadline,
                                   std::string* outLine = nullptr);
    // The same as waitForOutput for stderr.
    [[nodiscard]] bool waitForError(const std::string& text,
                                    std::chrono::milliseconds within = kEventDeadline);

    // What the child has written so far. Complete once wait() has returned a status.
    std::string output() const;
    std::string errors() const;

    // Nothing happens when the child has ended already.
    void kill(int signal);

    // Waits for the end of the child and of its output; no value when `within` passed first.
    [[nodiscard]] std::optional<ExitStatus> wait(std::chrono::milliseconds within = kEventDeadline);

private:
    struct Stream {
        int fd = -1;
        std::string text;
        bool open = true;
    };

    [[nodiscard]] bool waitFor(const Stream& stream, const std::string& text,
                               std::chrono::milliseconds within, std::string* outLine);
    void readStreams();
    void awaitEnd();

    pid_t mPid = -1;
    int mStopFd = -1;  // readable once the reader has to leave
    std::thread mReader;
    std::thread mWaiter;
    mutable std::mutex mMutex;
    mutable std::condition_variable mChanged;
    // Guarded by mMutex from here on; the descriptors of the outputs belong to mReader.
    int mInputFd = -1;
    Stream mOutput;
    Stream mErrors;
    std::optional<ExitStatus> mStatus;
};

}  // namespace sonorel::test
