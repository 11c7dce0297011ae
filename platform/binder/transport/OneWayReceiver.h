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
    /** Serves a connection's event. Receives once, hands the connection back, then runs calls. */
    static void serve(const std::shared_ptr<Connection>& connection);

private:
    static void takeIn(Frame* frame, const std::shared_ptr<Connection>& connection,
                       std::vector<LocalObjectPtr>* outReady);
    static void resume(const std::shared_ptr<Connection>& connection);
    static void run(const LocalObjectPtr& object);
    static void finish(Connection& connection, size_t bytes);
};

}  // namespace android::transport
