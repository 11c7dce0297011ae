#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <vector>

#include <qelto/halvend/BnHalvendClient.h>

#include "support/Wait.h"

namespace sonorel::test {

// A client that remembers what it was sent and behaves as a renderer: it answers a status and the
// on flag and mode that it was last told. Its gate, once closed, holds up every two-way answer.
// Thread-safe.
class RecordingClient : public qelto::halvend::BnHalvendClient {
public:
    explicit RecordingClient(int32_t status = 0) : mStatus(status) {}

    struct Event {
        int32_t number;
        bool oneWay;
        qelto::halvend::CallbackData data;
    };

    android::binder::Status onClientEvent(int32_t event, const qelto::halvend::CallbackData& input,
                                          qelto::halvend::CallbackData* answer) override;
    android::binder::Status onClientEventOneWay(int32_t event,
                                                const qelto::halvend::CallbackData& input) override;

    void closeGate();
    void openGate();
    // Waits until a two-way call stands at the closed gate.
    [[nodiscard]] bool waitUntilHeld();
    // Waits until the event has come `count` times since the last clear().
    [[nodiscard]] bool waitFor(int32_t event, size_t count = 1,
                               std::chrono::milliseconds within = kEventDeadline);

    std::vector<Event> events() const;
    void clear();

private:
    const int32_t mStatus;

    size_t countLocked(int32_t event) const;

    mutable std::mutex mMutex;
    std::condition_variable mChanged;
    std::vector<Event> mEvents;
    bool mGateClosed = false;
    int mHeld = 0;
    bool mOn = false;
    int8_t mMode = 0;
};

}  // namespace sonorel::test
