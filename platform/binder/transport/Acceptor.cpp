#define LOG_TAG "BinderTransport"

#include "Acceptor.h"

#include <errno.h>
#include <log/log.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include "ErrorText.h"
#include "FlakeDelay.h"
#include "Transport.h"

namespace android::transport {

using base::unique_fd;

void Acceptor::listen(unique_fd socket) {
    mSocket = std::move(socket);
    epoll_event event = {};
    event.events = EPOLLIN;
    event.data.u64 = kListenId;
    if (epoll_ctl(mEvents, EPOLL_CTL_ADD, mSocket.get(), &event) != 0) {
        ALOGE("Cannot watch the listening socket: %s", errorText(errno).c_str());
    }
}

void Acceptor::setListening(bool on) {
    epoll_event event = {};
    event.events = on ? uint32_t{EPOLLIN} : 0;
    event.data.u64 = kListenId;
    if (epoll_ctl(mEvents, EPOLL_CTL_MOD, mSocket.get(), &event) != 0) {
        ALOGE("Cannot watch the listening socket: %s", errorText(errno).c_str());
    }
    mPaused = !on;
}

void Acceptor::resumeIfPaused() {
    if (mPaused) setListening(true);
}

void Acceptor::acceptReady() {
    for (;;) {
        flakeDelay();
        unique_fd socket(accept4(mSocket.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (socket.get() < 0) {
            const int error = errno;
            if (error == EINTR || error == ECONNABORTED) continue;
            if (error == EAGAIN || error == EWOULDBLOCK) return;
            // The connection stays in the queue and the socket stays ready: look away for a while.
            ALOGE("Cannot accept connections for now: %s", errorText(error).c_str());
            setListening(false);
            return;
        }
        Guest guest;
        guest.socket = std::move(socket);
        if (readGreeting(&guest)) continue;
        const uint64_t id = mNextGuest++;
        epoll_event event = {};
        event.events = EPOLLIN | EPOLLRDHUP;
        event.data.u64 = id;
        if (epoll_ctl(mEvents, EPOLL_CTL_ADD, guest.socket.get(), &event) != 0) continue;
        mGuests.emplace(id, std::move(guest));
    }
}

bool Acceptor::handle(uint64_t id) {
    const auto entry = mGuests.find(id);
    if (entry == mGuests.end()) return id >= uint64_t{1} << 63;
    if (readGreeting(&entry->second)) mGuests.erase(entry);
    return true;
}

bool Acceptor::readGreeting(Guest* guest) {
    iovec room = {reinterpret_cast<uint8_t*>(&guest->greeting) + guest->have,
                  sizeof(guest->greeting) - guest->have};
    alignas(cmsghdr) char ancillary[CMSG_SPACE(sizeof(int))];
    msghdr message = {};
    message.msg_iov = &room;
    message.msg_iovlen = 1;
    message.msg_control = ancillary;
    message.msg_controllen = sizeof(ancillary);
    flakeDelay();
    const ssize_t got = recvmsg(guest->socket.get(), &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    if (got < 0) return errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR;
    const cmsghdr* const part = CMSG_FIRSTHDR(&message);
    if (part != nullptr && part->cmsg_level == SOL_SOCKET && part->cmsg_type == SCM_RIGHTS &&
        part->cmsg_len == CMSG_LEN(sizeof(int))) {
        int fd;
        memcpy(&fd, CMSG_DATA(part), sizeof(fd));
        guest->descriptor.reset(fd);
    }
    // A process that only looks whether this one lives hangs up without a word.
    if (got == 0) return true;
    guest->have += got;
    if (guest->have < sizeof(Greeting)) return false;
    // Off the guests' event before the connection joins another one.
    (void)epoll_ctl(mEvents, EPOLL_CTL_DEL, guest->socket.get(), nullptr);  // may not be in it
    admit(guest);
    return true;
}

void Acceptor::admit(Guest* guest) {
    const Greeting& greeting = guest->greeting;
    Transport& transport = Transport::get();
    const auto connection = std::make_shared<Connection>(std::move(guest->socket), greeting.kind,
                                                         /*accepted*/ true);
    const bool known = greeting.magic == kGreetingMagic && greeting.version == kGreetingVersion &&
                       greeting.kind >= ConnectionKind::CONTROL &&
                       greeting.kind <= ConnectionKind::ONE_WAY;
    if (!known) {
        ALOGE("Process %d, uid %u, did not greet as a process of this version; ending the "
              "connection",
              connection->pid(), connection->uid());
        return;
    }
    const bool brings = guest->descriptor.get() >= 0;
    const std::shared_ptr<SharedPage> page =
            brings ? SharedPage::adopt(guest->descriptor) : nullptr;
    if (page == nullptr && (brings || greeting.kind == ConnectionKind::ONE_WAY)) {
        ALOGE("Process %d shared no page of memory; ending the connection", connection->pid());
        return;
    }
    if (greeting.kind != ConnectionKind::CONTROL) connection->setPage(page);
    if (greeting.kind == ConnectionKind::ONE_WAY) {
        connection->setIntake(std::make_unique<OneWayIntake>());
    }
    PeerPtr peer = transport.peers().meet(greeting.sender, connection->pid(), connection->uid());
    connection->setPeer(peer);
    if (greeting.kind == ConnectionKind::CONTROL) {
        std::vector<ConnectionPtr> parked;
        if (peer->attachControl(connection, &parked)) {
            transport.driver().adoptControl(connection, parked);
        }
        return;
    }
    bool ready = false;
    if (peer->attachAccepted(connection, &ready) && ready) transport.driver().activate(connection);
}

}  // namespace android::transport
