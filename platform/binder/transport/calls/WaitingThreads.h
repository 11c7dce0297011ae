#pragma once

#include <deque>

#include "../peers/Link.h"

namespace android::transport {

/** A request that came for one thread, and where its reply goes. */
struct Delivery {
    LinkPtr link;
    Frame frame;
};

/**
 * The threads of this process that wait for the reply to a call. Each has a number that changes
 * with every call, which the call takes along; a process further down the chain of calls that calls
 * back into this one names it, and its request is run by the waiting thread, as that may hold locks
 * and as the process may have no other thread. Who has not been called cannot guess the number.
 */
class WaitingThreads {
public:
    struct State;

    /** The calling thread waits on `link` for as long as this lives. */
    class Scope {
    public:
        explicit Scope(Connection& link);
        ~Scope() = default;
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

        [[nodiscard]] uint64_t thread() const;
        /** The next request that came for this thread. */
        [[nodiscard]] bool take(Delivery* outDelivery);
        /** Ends the wait, once; returns what came too late to be taken. */
        [[nodiscard]] std::deque<Delivery> finish();

    private:
        State& mState;
        Connection* mOuter;
    };

    /** Hands a request to the thread; false, and `delivery` is left, when no such one waits. */
    [[nodiscard]] static bool deliver(uint64_t thread, Delivery* delivery);
};

}  // namespace android::transport
