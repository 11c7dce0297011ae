#pragma once

#include <memory>

#include "../connection/Connection.h"
#include "OneWayFlow.h"

namespace android::transport {

class Peer;

/** A connection that has greeted, and whose it is. */
class Link : public Connection {
public:
    Link(OwnFd socket, ConnectionKind kind, Side side, std::shared_ptr<SharedPage> page,
         Accounts& accounts, std::shared_ptr<Peer> owner, uint64_t nestedFor = 0)
            : Connection(std::move(socket), kind, side, std::move(page), accounts),
              peer(std::move(owner)),
              waiter(nestedFor) {}

    const std::shared_ptr<Peer> peer;
    const uint64_t waiter;  // NESTED: the thread that is to serve it
    OneWayIntake intake;    // STREAM
    Charge connections;
};

using LinkPtr = std::shared_ptr<Link>;

}  // namespace android::transport
