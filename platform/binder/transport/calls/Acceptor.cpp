#define LOG_TAG "BinderTransport"

#include "Acceptor.h"

#include <errno.h>
#include <inttypes.h>
#include <log/log.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <vector>

#include "../connection/Connection.h"
#include "../connection/ErrorText.h"
#include "../connection/FlakeDelay.h"
#include "../connection/SocketIo.h"

namespace android::transport {

using base::unique_fd;

namespace {

/** Pauses: the process has no room for descriptors; strangers connect without end. */
constexpr int kPauseWithoutRoom = 100;
constexpr int kPauseBesideStrangers = 20;
constexpr int kMaxStrangers = 16;

}  // namespace

void Acceptor::listen(OwnFd socket) {
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
}

void Acceptor::pause(int milliseconds) {
    setListening(false);
    mPause = milliseconds;
}

void Acceptor::resumeIfPaused() {
    if (mPause == 0) return;
    setListening(true);
    mPause = 0;
}

void Acceptor::acceptReady() {
    int strangers = 0;
    for (;;) {
        // Whoever connects without end, refused or not, keeps no more than a part of this thread
        // busy.
        if (strangers == kMaxStrangers) {
            pause(kPauseBesideStrangers);
            return;
        }
        flakeDelay();
        OwnFd socket(accept4(mSocket.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (socket.get() < 0) {
            const int error = errno;
            if (error == EINTR || error == ECONNABORTED) continue;
            if (error == EAGAIN || error == EWOULDBLOCK) return;
            // The connection stays in the queue and the socket stays ready: look away for a while.
            ALOGE("Cannot accept connections for now: %s", errorText(error).c_str());
            pause(kPauseWithoutRoom);
            return;
        }
        const ucred credentials = peerCredentials(socket.get());
        Account& account = mAccounts.of(credentials.uid);
        Guest guest;
        guest.pid = credentials.pid;
        guest.uid = credentials.uid;
        if (!account.isTrusted) ++strangers;
        if (account.isShutOut() || !guest.charge.take(account, Resource::CONNECTIONS, 1)) continue;
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
    Guest guest = std::move(entry->second);
    mGuests.erase(entry);
    if (!readGreeting(&guest)) mGuests.emplace(id, std::move(guest));
    return true;
}

void Acceptor::readGreetings() {
    std::vector<uint64_t> ids;
    for (const auto& [id, guest] : mGuests)
        ids.push_back(id);
    for (uint64_t id : ids)
        (void)handle(id);  // all of them are guests
}

bool Acceptor::isGood(const Guest& guest) {
    const Greeting& greeting = guest.greeting;
    return greeting.magic == kGreetingMagic && greeting.version == kGreetingVersion &&
           greeting.kind >= ConnectionKind::STREAM && greeting.kind <= ConnectionKind::NESTED &&
           greeting.sender.pid == static_cast<uint32_t>(guest.pid) && guest.page != nullptr;
}

bool Acceptor::readGreeting(Guest* guest) {
    std::vector<unique_fd> descriptors;
    bool lost = false;
    const ssize_t got = receiveMessage(guest->socket.get(), &guest->greeting, sizeof(Greeting),
                                       MSG_DONTWAIT, &descriptors, &lost);
    if (got == -EAGAIN) return false;
    // A process that probes whether this one is alive connects and closes without a greeting.
    if (got <= 0) return true;
    // Off the guests' event before the connection joins another one.
    (void)epoll_ctl(mEvents, EPOLL_CTL_DEL, guest->socket.get(), nullptr);  // may not be in it
    if (descriptors.size() == 1 && !lost) guest->page = SharedPage::adopt(descriptors.front());
    if (got == static_cast<ssize_t>(sizeof(Greeting)) && isGood(*guest)) {
        mAdmit(guest);
        return true;
    }
    Account& account = mAccounts.of(guest->uid);
    account.shutOut();
    uint64_t leftOut = 0;
    if (account.mayLog(&leftOut)) {
        ALOGE("Process %d, uid %u, did not greet as a process of this version; ending the "
              "connection; %" PRIu64 " refusals and faults since the last line",
              guest->pid, guest->uid, leftOut);
    }
    return true;
}

}  // namespace android::transport
