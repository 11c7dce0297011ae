#pragma once

#include <memory>

#include "Connection.h"
#include "References.h"

namespace android::transport {

/**
 * Takes one-way calls in and runs them: those of one object one at a time and in order, those of
 * different objects at once. Runs on threads of the pool.
 */
class OneWayReceiver {
public:
    /** Serves a connection from its event on. */
    static void serve(const std::shared_ptr<Connection>& connection);

private:
    /** What one receive brought: the first call that may run at once, and objects with more. */
    struct Arrivals {
        LocalObjectPtr object;
        OneWayCall call;
        std::vector<LocalObjectPtr> others;
    };

    /** How a thread has come to receive: by the connection's event, or by staying with it. */
    enum class Turn { EVENT, STAY };

    [[nodiscard]] static bool receive(const std::shared_ptr<Connection>& connection, Turn turn,
                                      Arrivals* outArrivals);
    static void takeIn(Frame* frame, const std::shared_ptr<Connection>& connection,
                       Arrivals* outArrivals);
    static void resume(Connection& connection, Turn turn);
    static void run(const LocalObjectPtr& object, OneWayCall call);
    static void runQueue(const LocalObjectPtr& object);
    static void runOne(LocalObject& object, OneWayCall call);
    static void finish(Connection& connection, size_t bytes);
};

}  // namespace android::transport
