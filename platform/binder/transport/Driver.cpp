#define LOG_TAG "BinderTransport"

#include "Driver.h"

#include <errno.h>
#include <log/log.h>
#include <pthread.h>
#include <signal.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <thread>

#include "ErrorText.h"
#include "Transport.h"

namespace android::transport {

namespace {

constexpr uint64_t kWakeId = 0;

/** Tells the recipients of a proxy that markDead said had some. */
void postObituary(const sp<BpBinder>& proxy) {
    Transport::get().pool().post([proxy] { proxy->sendObituary(); });
}

/** Lets things go where destructors of user objects may run: not on this thread. */
template <typename T>
void letGo(T things) {
    Transport::get().pool().postCleanup([things = std::move(things)] {});
}

}  // namespace

void ConnectionTable::add(const ConnectionPtr& connection) {
    Mutex::Autolock lock(mLock);
    mConnections[connection->id()] = connection;
}

ConnectionPtr ConnectionTable::find(uint64_t id) const {
    Mutex::Autolock lock(mLock);
    const auto entry = mConnections.find(id);
    return entry == mConnections.end() ? nullptr : entry->second;
}

void ConnectionTable::remove(uint64_t id) {
    ConnectionPtr last;  // goes after the lock
    Mutex::Autolock lock(mLock);
    const auto entry = mConnections.find(id);
    if (entry == mConnections.end()) return;
    last = std::move(entry->second);
    mConnections.erase(entry);
}

Driver::Driver()
        : mEvents(epoll_create1(EPOLL_CLOEXEC)),
          mWake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
          mAcceptor(mEvents.get()) {
    epoll_event event = {};
    event.events = EPOLLIN;
    event.data.u64 = kWakeId;
    LOG_ALWAYS_FATAL_IF(epoll_ctl(mEvents.get(), EPOLL_CTL_ADD, mWake.get(), &event) != 0,
                        "No event set for the binder driver: %s", errorText(errno).c_str());
}

void Driver::startLocked() {
    if (mStarted) return;
    mStarted = true;
    // The program's signals are for its own threads.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    (void)pthread_sigmask(SIG_SETMASK, &all, &before);
    std::thread([this] {
        (void)pthread_setname_np(pthread_self(), "binder-driver");  // for the reader of lists
        run();
    }).detach();
    (void)pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void Driver::listen(base::unique_fd socket) {
    {
        Mutex::Autolock lock(mLock);
        startLocked();
        mNewSocket = std::move(socket);
    }
    const uint64_t one = 1;
    (void)!write(mWake.get(), &one, sizeof(one));  // a full counter wakes as well
}

void Driver::takeNewSocket() {
    uint64_t value;
    (void)!read(mWake.get(), &value, sizeof(value));  // nothing to learn from the number
    Mutex::Autolock lock(mLock);
    if (mNewSocket.get() >= 0) mAcceptor.listen(std::move(mNewSocket));
}

void Driver::watch(const Connection& connection, uint32_t events) {
    epoll_event event = {};
    event.events = events;
    event.data.u64 = connection.id();
    if (epoll_ctl(mEvents.get(), EPOLL_CTL_MOD, connection.fd(), &event) == 0) return;
    if (errno != ENOENT || epoll_ctl(mEvents.get(), EPOLL_CTL_ADD, connection.fd(), &event) != 0) {
        ALOGE("Cannot watch a connection: %s", errorText(errno).c_str());
    }
}

void Driver::adoptControl(const ConnectionPtr& connection,
                          const std::vector<ConnectionPtr>& parked) {
    Transport::get().connections().add(connection);
    {
        Mutex::Autolock lock(mLock);
        startLocked();
        watch(*connection, EPOLLIN | EPOLLRDHUP);
    }
    for (const ConnectionPtr& waiting : parked)
        activate(waiting);
}

void Driver::activate(const ConnectionPtr& connection) {
    Transport::get().connections().add(connection);
    Transport::get().pool().add(*connection);
    // A peer that ended just now has been cleared away already: do not stay in the table alone.
    if (connection->peer()->isDead()) drop(connection);
}

void Driver::watchOutput(const ConnectionPtr& connection) {
    Transport::get().connections().add(connection);
    Mutex::Autolock lock(mLock);
    const bool control = connection->kind() == ConnectionKind::CONTROL;
    watch(*connection, EPOLLOUT | (control ? EPOLLIN | EPOLLRDHUP : 0U));
}

void Driver::flush(const ConnectionPtr& connection) {
    const Connection::Posted posted = connection->flush();
    if (posted == Connection::Posted::QUEUED) return;
    if (posted == Connection::Posted::GONE) {
        (void)epoll_ctl(mEvents.get(), EPOLL_CTL_DEL, connection->fd(), nullptr);  // or it spins
        drop(connection);
        return;
    }
    {
        Mutex::Autolock lock(mLock);
        // Who has posted since then calls watchOutput after this, or has before: look again.
        if (connection->queuedBytes() != 0) return;
        if (connection->kind() == ConnectionKind::CONTROL) {
            watch(*connection, EPOLLIN | EPOLLRDHUP);
        } else {
            (void)epoll_ctl(mEvents.get(), EPOLL_CTL_DEL, connection->fd(), nullptr);  // is in it
        }
    }
    if (connection->kind() == ConnectionKind::CALL && connection->isAccepted()) {
        Transport::get().pool().rearm(*connection);
    }
}

void Driver::drop(const ConnectionPtr& connection) {
    Transport::get().connections().remove(connection->id());
    connection->peer()->dropConnection(connection);
}

void Driver::run() {
    for (;;) {
        epoll_event events[32];
        const int count = epoll_wait(mEvents.get(), events, 32, mAcceptor.timeout());
        if (count == 0) mAcceptor.resumeIfPaused();
        for (int i = 0; i < count; ++i)
            handle(events[i].data.u64, events[i].events);
    }
}

void Driver::handle(uint64_t id, uint32_t events) {
    if (id == kWakeId) {
        takeNewSocket();
    } else if (id == Acceptor::kListenId) {
        mAcceptor.acceptReady();
    } else if (!mAcceptor.handle(id)) {
        const ConnectionPtr connection = Transport::get().connections().find(id);
        if (connection == nullptr) return;
        if ((events & (EPOLLOUT | EPOLLHUP | EPOLLERR)) != 0) flush(connection);
        if (connection->kind() == ConnectionKind::CONTROL &&
            (events & (EPOLLIN | EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0) {
            handleControl(connection);
        }
    }
}

void Driver::handleControl(const ConnectionPtr& connection) {
    FrameInput& input = connection->input();
    const ssize_t got = input.receive(connection->fd(), MSG_DONTWAIT);
    bool sane = got != -EPROTO;
    FrameInput::Result result = FrameInput::Result::FRAME;
    while (sane && result == FrameInput::Result::FRAME) {
        Frame frame;
        result = input.next(&frame);
        sane = result == FrameInput::Result::PARTIAL ||
               (result == FrameInput::Result::FRAME &&
                handleFrame(frame.header, connection->peer()));
    }
    if (!sane) logNoFrame(*connection);
    if (!sane || (got <= 0 && got != -EAGAIN)) peerEnded(connection->peer());
}

bool Driver::handleFrame(const FrameHeader& header, const PeerPtr& peer) {
    if (header.dataSize != 0) return false;
    switch (header.type) {
        case FrameType::ACQUIRE:
            acquire(header.target, peer);
            return true;
        case FrameType::ACQUIRED:
            return acquired(header.target, header.status, peer);
        case FrameType::RELEASE:
            if (LocalObjectPtr last =
                        Transport::get().locals().release(header.target, *peer, header.receipt)) {
                letGo(std::move(last));
            }
            return true;
        case FrameType::RECEIPT:
            letGo(peer->unpin(header.receipt));
            return true;
        default:
            return false;
    }
}

void Driver::acquire(uint64_t id, const PeerPtr& peer) {
    FrameHeader answer = makeHeader(FrameType::ACQUIRED);
    answer.target = id;
    answer.status = Transport::get().locals().acquire(id, *peer) ? OK : DEAD_OBJECT;
    peer->sendControl(answer);
}

bool Driver::acquired(uint64_t id, status_t status, const PeerPtr& peer) {
    const std::shared_ptr<Gate> gate = peer->takeAcquired(id);
    if (gate == nullptr) return false;
    if (status != OK) {
        // Whoever sent the reference ended before its owner had counted ours.
        sp<BpBinder> proxy = Transport::get().remotes().find(*peer, id);
        if (proxy != nullptr && proxy->markDead()) postObituary(proxy);
        if (proxy != nullptr) letGo(std::move(proxy));
    }
    gate->done();
    return true;
}

void Driver::peerEnded(const PeerPtr& peer) {
    if (!peer->markDead()) return;
    Transport& transport = Transport::get();
    transport.peers().remove(peer);
    Peer::Remains remains = peer->takeRemains();
    for (const ConnectionPtr& connection : remains.connections) {
        transport.connections().remove(connection->id());
    }
    std::vector<sp<BpBinder>> proxies = transport.remotes().allOf(*peer);
    for (const sp<BpBinder>& proxy : proxies) {
        if (proxy->markDead()) postObituary(proxy);
    }
    for (const std::shared_ptr<Gate>& gate : remains.gates)
        gate->done();
    std::vector<LocalObjectPtr> objects = transport.locals().dropHolder(*peer);
    if (!proxies.empty()) letGo(std::move(proxies));
    if (!remains.pinned.empty()) letGo(std::move(remains.pinned));
    if (!objects.empty()) letGo(std::move(objects));
    transport.dir().sweep(peer->name);
}

}  // namespace android::transport
