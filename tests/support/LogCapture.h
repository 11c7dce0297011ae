#pragma once

#include <android/log.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "support/Wait.h"

namespace sonorel::test {

struct LogLine {
    int priority;
    std::string tag;
    std::string message;
};

// While it lives, every log line of this process is recorded here and written nowhere else, and the
// minimum priority is `minimum`. Afterwards lines go to stderr again and the minimum priority is
// the earlier one. At most one at a time. Thread-safe.
class LogCapture {
public:
    explicit LogCapture(int minimum = ANDROID_LOG_DEBUG);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogLine> lines() const;
    // The messages alone, in order.
    std::vector<std::string> messages() const;
    // How many lines so far have exactly this message.
    size_t count(const std::string& message) const;
    bool contains(const std::string& part) const;
    void clear();

    // Calls `then` on the thread that next logs a message with `part` in it, before that thread
    // goes on: a way into the middle of what it does, where it holds no lock that the test needs.
    void onNext(const std::string& part, std::function<void()> then);

    // Waits until some line, recorded before or during the call, satisfies the predicate. False
    // when `within` passed first. The predicate must not log.
    [[nodiscard]] bool waitFor(const std::function<bool(const LogLine&)>& predicate,
                               std::chrono::milliseconds within = kEventDeadline) const;
    // The same for a line whose message contains `part`.
    [[nodiscard]] bool waitFor(const std::string& part,
                               std::chrono::milliseconds within = kEventDeadline) const;

private:
    static void record(const __android_logger_data* data, const char* message);

    const int mEarlierMinimum;
    mutable std::mutex mMutex;
    mutable std::condition_variable mAdded;
    std::vector<LogLine> mLines;
    std::string mPart;
    std::function<void()> mThen;
};

}  // namespace sonorel::test
