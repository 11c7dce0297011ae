#include <memory>

#include "process/RecordingClient.h"

#include <algorithm>

namespace sonorel::test {

using android::binder::Status;
using qelto::halvend::CallbackData;

Status RecordingClient::onClientEvent(int32_t event, const CallbackData& input,
                                      CallbackData* answer) {
    std::unique_lock<std::mutex> lock(mMutex);
    mEvents.push_back({event, false, input});
    ++mHeld;
    mChanged.notify_all();
    // A test that has failed must still end: longer than any deadline is never waited for.
    (void)mChanged.wait_for(lock, 2 * kEventDeadline, [this] { return !mGateClosed; });
    --mHeld;
    if (event == CB_SET_META_AUDIO_ON) mOn = input.enable;
    if (event == CB_SET_META_AUDIO_MODE) mMode = input.mode;
    answer->status = mStatus;
    answer->enable = mOn;
    answer->mode = mMode;
    return Status::ok();
}

Status RecordingClient::onClientEventOneWay(int32_t event, const CallbackData& input) {
    const std::lock_guard<std::mutex> lock(mMutex);
    mEvents.push_back({event, true, input});
    mChanged.notify_all();
    return Status::ok();
}

void RecordingClient::closeGate() {
    const std::lock_guard<std::mutex> lock(mMutex);
    mGateClosed = true;
}

void RecordingClient::openGate() {
    const std::lock_guard<std::mutex> lock(mMutex);
    mGateClosed = false;
    mChanged.notify_all();
}

bool RecordingClient::waitUntilHeld() {
    std::unique_lock<std::mutex> lock(mMutex);
    return mChanged.wait_for(lock, kEventDeadline, [this] { return mGateClosed && mHeld > 0; });
}

bool RecordingClient::waitFor(int32_t event, size_t count, std::chrono::milliseconds within) {
    std::unique_lock<std::mutex> lock(mMutex);
    return mChanged.wait_for(lock, within,
                             [this, event, count] { return countLocked(event) >= count; });
}

std::vector<RecordingClient::Event> RecordingClient::events() const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return mEvents;
}

void RecordingClient::clear() {
    const std::lock_guard<std::mutex> lock(mMutex);
    mEvents.clear();
}

size_t RecordingClient::countLocked(int32_t event) const {
    return static_cast<size_t>(
            std::count_if(mEvents.begin(), mEvents.end(),
                          [event](const Event& entry) { return entry.number == event; }));
}

}  // namespace sonorel::test
