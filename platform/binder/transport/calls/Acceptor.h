#pragma once

#include <functional>
#include <map>
#include <memory>

#include "../connection/Account.h"
#include "../connection/OwnFd.h"
#include "../connection/SharedPage.h"
#include "../connection/Wire.h"

namespace android::transport {

/** A connection that has greeted as a process of this version does. */
struct Guest {
    OwnFd socket;
    pid_t pid;
    uid_t uid;
    Greeting greeting = {};
    std::shared_ptr<SharedPage> page;
    Charge charge;
};

/**
 * Accepts connections and reads their greetings. Runs on the driver's thread alone; watched by its
 * event set. A connection that has not greeted costs a descriptor of its user's share, no thread.
 */
class Acceptor {
public:
    /** `admit` gets each connection that has greeted. */
    Acceptor(int events, Accounts& accounts, std::function<void(Guest*)> admit)
            : mEvents(events), mAccounts(accounts), mAdmit(std::move(admit)) {}

    /** The event of the listening socket; every other number is a connection's. */
    static constexpr uint64_t kListenId = UINT64_MAX;

    void listen(OwnFd socket);
    /** Accepts what waits. */
    void acceptReady();
    /** How long the driver may sleep, in milliseconds; -1 for ever. */
    [[nodiscard]] int timeout() const { return mPause > 0 ? mPause : -1; }
    /** Accepts again after a pause. */
    void resumeIfPaused();

    /** True when the event was one of a connection that has not greeted yet, which is dealt with.
     */
    [[nodiscard]] bool handle(uint64_t id);
    /** Reads the greetings that have come, before their events. */
    void readGreetings();

private:
    void pause(int milliseconds);
    void setListening(bool on);
    /** Reads the greeting. False while it has not come. */
    [[nodiscard]] bool readGreeting(Guest* guest);
    [[nodiscard]] static bool isGood(const Guest& guest);

    const int mEvents;
    Accounts& mAccounts;
    const std::function<void(Guest*)> mAdmit;
    OwnFd mSocket;
    int mPause = 0;                           // milliseconds; 0 while accepting
    uint64_t mNextGuest = uint64_t{1} << 63;  // apart from the numbers of connections
    std::map<uint64_t, Guest> mGuests;
};

}  // namespace android::transport
