#pragma once

#include <android-base/unique_fd.h>
#include <utils/Timers.h>

#include <map>

#include "Peer.h"
#include "Wire.h"

namespace android::transport {

/**
 * Accepts connections and reads their greetings. Runs on the driver's thread alone; watched by its
 * event set. A connection that has not greeted costs a descriptor and a few bytes, no thread.
 */
class Acceptor {
public:
    explicit Acceptor(int events) : mEvents(events) {}

    /** The event of the listening socket; every other number is a connection's. */
    static constexpr uint64_t kListenId = UINT64_MAX;

    void listen(base::unique_fd socket);
    /** Accepts what waits. */
    void acceptReady();
    /** How long the driver may sleep, in milliseconds; -1 for ever. */
    [[nodiscard]] int timeout() const { return mPaused ? kPauseMilliseconds : -1; }
    /** Accepts again after a pause for want of descriptors. */
    void resumeIfPaused();

    /** True when the event was one of a connection that has not greeted yet, which is dealt with.
     */
    [[nodiscard]] bool handle(uint64_t id);

private:
    static constexpr int kPauseMilliseconds = 100;

    struct Guest {
        base::unique_fd socket;
        Greeting greeting = {};
        size_t have = 0;
        base::unique_fd descriptor;
    };

    void setListening(bool on);
    /** Reads what is there. True when the guest is done with, one way or the other. */
    [[nodiscard]] bool readGreeting(Guest* guest);
    void admit(Guest* guest);

    const int mEvents;
    base::unique_fd mSocket;
    bool mPaused = false;
    uint64_t mNextGuest = uint64_t{1} << 63;  // apart from the numbers of connections
    std::map<uint64_t, Guest> mGuests;
};

}  // namespace android::transport
