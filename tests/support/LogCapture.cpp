#include "support/LogCapture.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace sonorel::test {
namespace {

// Other threads may still be inside the logger while a capture goes, so they reach it only under
// this lock. Never destroyed: a thread may log while the process leaves.
std::mutex& installMutex() {
    static auto* mutex = new std::mutex;
    return *mutex;
}

LogCapture* gCapture = nullptr;

}  // namespace

LogCapture::LogCapture(int minimum) : mEarlierMinimum(__android_log_set_minimum_priority(minimum)) {
    {
        std::lock_guard lock(installMutex());
        if (gCapture != nullptr) std::abort();
        gCapture = this;
    }
    __android_log_set_logger(&LogCapture::record);
}

LogCapture::~LogCapture() {
    __android_log_set_logger(__android_log_stderr_logger);
    __android_log_set_minimum_priority(mEarlierMinimum);
    std::lock_guard lock(installMutex());
    gCapture = nullptr;
}

void LogCapture::record(const __android_logger_data* data, const char* message) {
    std::function<void()> then;
    {
        std::lock_guard installed(installMutex());
        if (gCapture == nullptr) return;
        std::lock_guard lock(gCapture->mMutex);
        gCapture->mLines.push_back({data->priority, data->tag == nullptr ? "" : data->tag,
                                    message == nullptr ? "" : message});
        gCapture->mAdded.notify_all();
        const std::string& logged = gCapture->mLines.back().message;
        if (gCapture->mThen != nullptr && logged.find(gCapture->mPart) != std::string::npos) {
            then.swap(gCapture->mThen);
        }
    }
    if (then != nullptr) then();
}

void LogCapture::onNext(const std::string& part, std::function<void()> then) {
    std::lock_guard lock(mMutex);
    mPart = part;
    mThen = std::move(then);
}

std::vector<LogLine> LogCapture::lines() const {
    std::lock_guard lock(mMutex);
    return mLines;
}

std::vector<std::string> LogCapture::messages() const {
    std::lock_guard lock(mMutex);
    std::vector<std::string> messages;
    messages.reserve(mLines.size());
    for (const LogLine& line : mLines)
        messages.push_back(line.message);
    return messages;
}

size_t LogCapture::count(const std::string& message) const {
    std::lock_guard lock(mMutex);
    return static_cast<size_t>(
            std::count_if(mLines.begin(), mLines.end(),
                          [&](const LogLine& line) { return line.message == message; }));
}

bool LogCapture::contains(const std::string& part) const {
    return waitFor(part, std::chrono::milliseconds::zero());
}

void LogCapture::clear() {
    std::lock_guard lock(mMutex);
    mLines.clear();
}

bool LogCapture::waitFor(const std::function<bool(const LogLine&)>& predicate,
                         std::chrono::milliseconds within) const {
    std::unique_lock lock(mMutex);
    return mAdded.wait_for(lock, within,
                           [&] { return std::any_of(mLines.begin(), mLines.end(), predicate); });
}

bool LogCapture::waitFor(const std::string& part, std::chrono::milliseconds within) const {
    return waitFor(
            [&](const LogLine& line) { return line.message.find(part) != std::string::npos; },
            within);
}

}  // namespace sonorel::test
