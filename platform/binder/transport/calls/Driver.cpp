#define LOG_TAG "BinderTransport"

#include "Driver.h"

#include <errno.h>
#include <inttypes.h>
#include <log/log.h>
#include <pthread.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <thread>

#include "../connection/ErrorText.h"

namespace android::transport {

namespace {

constexpr uint64_t kWakeId = 0;
constexpr uint32_t kEnd = EPOLLRDHUP | EPOLLHUP | EPOLLERR;

}  // namespace

Driver::Driver(const DriverParts& parts)
        : mParts(parts),
          mEvents(epoll_create1(EPOLL_CLOEXEC)),
          mWake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
          mAcceptor(mEvents.get(), parts.accounts, [this](Guest* guest) { admit(guest); }) {
    LOG_ALWAYS_FATAL_IF(mEvents.get() < 0 || mWake.get() < 0,
                        "No event set for the binder driver: %s", errorText(errno).c_str());
    watch(mWake.get(), kWakeId, EPOLLIN);
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

void Driver::listen(OwnFd socket) {
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

void Driver::watch(int fd, uint64_t id, uint32_t events) {
    epoll_event event = {};
    event.events = events;
    event.data.u64 = id;
    if (epoll_ctl(mEvents.get(), EPOLL_CTL_MOD, fd, &event) == 0) return;
    if (errno != ENOENT || epoll_ctl(mEvents.get(), EPOLL_CTL_ADD, fd, &event) != 0) {
        ALOGE("Cannot watch a connection: %s", errorText(errno).c_str());
    }
}

/** The driver reads streams only while there is no pool, which does it without a hand-over. */
uint32_t Driver::streamEvents() const {
    return EPOLLRDHUP | EPOLLET | (mParts.pool.hasThreads() ? 0 : uint32_t{EPOLLIN});
}

void Driver::watchStream(const LinkPtr& stream) {
    mParts.links.add(stream);
    stream->yield();
    mParts.pool.add(stream->fd(), stream->id());
    Mutex::Autolock lock(mLock);
    startLocked();
    watch(stream->fd(), stream->id(), streamEvents());
}

void Driver::watchOutput(const LinkPtr& link) {
    Mutex::Autolock lock(mLock);
    const bool stream = link->kind() == ConnectionKind::STREAM;
    watch(link->fd(), link->id(), EPOLLOUT | EPOLLET | (stream ? streamEvents() : 0U));
}

void Driver::watchNested(const LinkPtr& link) {
    Mutex::Autolock lock(mLock);
    watch(link->fd(), link->id(), EPOLLIN | EPOLLRDHUP | EPOLLONESHOT);
}

void Driver::watchProcess(uint64_t watchId, int process, const PeerPtr& peer) {
    Mutex::Autolock lock(mLock);
    mProcesses[watchId] = peer;
    watch(process, watchId, EPOLLIN | EPOLLONESHOT);
}

void Driver::unwatchProcess(uint64_t watchId) {
    Mutex::Autolock lock(mLock);
    mProcesses.erase(watchId);  // the descriptor leaves the event set as its owner closes it
}

void Driver::activate(const LinkPtr& link) {
    mParts.links.add(link);
    if (link->kind() == ConnectionKind::NESTED) {
        watchNested(link);
    } else {
        link->yield();
        mParts.pool.add(link->fd(), link->id());
    }
    // A peer that ended just now has been cleared away already: do not stay in the table alone.
    if (link->peer->isDead()) drop(link);
}

void Driver::admit(Guest* guest) {
    const Greeting& greeting = guest->greeting;
    const ProcessId id = {greeting.sender, guest->uid, 0};
    const bool stream = greeting.kind == ConnectionKind::STREAM;
    PeerPtr peer = stream ? mParts.peers.meet(id) : mParts.peers.find(id);
    if (peer == nullptr) {
        // Its STREAM was greeted on before, and may still wait to be read.
        mAcceptor.readGreetings();
        peer = mParts.peers.find(id);
    }
    LinkPtr link;
    if (peer != nullptr) {
        link = std::make_shared<Link>(std::move(guest->socket), greeting.kind, Side::ACCEPTOR,
                                      std::move(guest->page), mParts.accounts, peer,
                                      greeting.waiter);
        link->connections = std::move(guest->charge);
    }
    if (link == nullptr || !(stream ? peer->attachStream(link) : peer->attach(link))) {
        uint64_t leftOut = 0;
        if (mParts.accounts.of(guest->uid).mayLog(&leftOut)) {
            ALOGW("Process %d, uid %u, opened a connection out of turn; refused; %" PRIu64
                  " refusals and faults since the last line",
                  guest->pid, guest->uid, leftOut);
        }
        return;
    }
    if (stream) {
        watchStream(link);
    } else {
        activate(link);
    }
}

void Driver::flush(const LinkPtr& link) {
    const Connection::Posted posted = link->flush();
    if (posted == Connection::Posted::QUEUED) return;
    const bool stream = link->kind() == ConnectionKind::STREAM;
    if (posted == Connection::Posted::GONE) {
        if (!stream) drop(link);  // a stream is read to its end first
        return;
    }
    {
        Mutex::Autolock lock(mLock);
        // Another thread may have queued output since flush(): check again under the lock before
        // the watch stops.
        if (link->queuedBytes() != 0) return;
        if (stream) {
            watch(link->fd(), link->id(), streamEvents());
            return;
        }
        (void)epoll_ctl(mEvents.get(), EPOLL_CTL_DEL, link->fd(), nullptr);  // is in it
    }
    if (link->kind() == ConnectionKind::NESTED) {
        watchNested(link);
    } else {
        mParts.server.post(link);
    }
}

void Driver::drop(const LinkPtr& link) {
    // Explicitly, as a child process made by other means than fork() may keep the socket open.
    mParts.pool.remove(link->fd());
    (void)epoll_ctl(mEvents.get(), EPOLL_CTL_DEL, link->fd(), nullptr);  // may not be in it
    mParts.links.remove(link);
    link->peer->drop(link);
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
    } else if (const LinkPtr link = mParts.links.find(id); link != nullptr) {
        handleLink(link, events);
    } else if (!mAcceptor.handle(id)) {
        handleProcess(id);
    }
}

void Driver::handleLink(const LinkPtr& link, uint32_t events) {
    if ((events & (EPOLLOUT | EPOLLHUP | EPOLLERR)) != 0 && link->queuedBytes() != 0) flush(link);
    if (link->kind() == ConnectionKind::STREAM) {
        handleStream(link, events);
    } else if (link->kind() == ConnectionKind::NESTED && (events & (EPOLLIN | kEnd)) != 0) {
        readNested(link);
    }
}

void Driver::handleStream(const LinkPtr& stream, uint32_t events) {
    const bool ended = (events & kEnd) != 0;
    if (ended) peerEnded(stream->peer);
    if (!ended && (events & EPOLLIN) != 0 && mParts.pool.hasThreads()) {
        Mutex::Autolock lock(mLock);
        watch(stream->fd(), stream->id(),
              streamEvents() | (stream->queuedBytes() != 0 ? uint32_t{EPOLLOUT} : 0));
        return;
    }
    // A thread that reads already looks again before it leaves.
    if ((events & (EPOLLIN | kEnd)) != 0 && stream->claim()) mParts.reader.drain(stream);
}

void Driver::handleProcess(uint64_t watchId) {
    PeerPtr peer;
    {
        Mutex::Autolock lock(mLock);
        const auto entry = mProcesses.find(watchId);
        if (entry == mProcesses.end()) return;
        peer = entry->second.lock();
        mProcesses.erase(entry);
    }
    if (peer == nullptr || peer->hasStream()) return;
    peerEnded(peer);
    mParts.reader.dropHolder(peer);
}

void Driver::readNested(const LinkPtr& link) {
    for (;;) {
        Frame frame;
        const FrameInput::Result result = link->input().next(&frame);
        if (result == FrameInput::Result::FRAME && frame.header.type == FrameType::REQUEST) {
            mParts.calls.serveNested({link, std::move(frame)});
            return;
        }
        if (result != FrameInput::Result::PARTIAL) {
            logNoFrame(*link);
            link->account().shutOut();
            break;
        }
        const ssize_t got = link->receiveNow();
        if (got == -EAGAIN) {
            watchNested(link);
            return;
        }
        if (got <= 0) break;
    }
    drop(link);
}

void Driver::peerEnded(const PeerPtr& peer) {
    if (!peer->markDead()) return;
    peer->endLinks();
    std::vector<sp<BpBinder>> proxies = mParts.remotes.allOf(*peer);
    for (const sp<BpBinder>& proxy : proxies) {
        if (!proxy->markDead()) continue;
        mParts.pool.post([proxy] { proxy->sendObituary(); });
    }
    if (!proxies.empty()) mParts.pool.letGo(std::move(proxies));
    mParts.dir.sweep(peer->id.name);
}

}  // namespace android::transport
