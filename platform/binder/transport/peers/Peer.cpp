#define LOG_TAG "BinderTransport"

#include "Peer.h"

#include <inttypes.h>
#include <log/log.h>
#include <poll.h>

#include <algorithm>
#include <iterator>

namespace android::transport {

namespace {

/** Idle CALL links kept; more threads than this rarely call one process at once. */
constexpr size_t kMaxIdleCalls = 16;
/** A dying process closes its sockets one after the other; this long is waited for the next. */
constexpr int kEndGraceMilliseconds = 100;
/** How long the exit of this process may wait for slow peers to read, in all. */
constexpr nsecs_t kFlushAtExit = s2ns(1);

/** The line about somebody who listens under the name of another process. */
void logImpostor(const ProcessName& name, Account& account) {
    uint64_t leftOut = 0;
    if (account.mayLog(&leftOut)) {
        ALOGE("The name of process %u leads to another one, of uid %u; refused; %" PRIu64
              " refusals and faults since the last line",
              name.pid, account.uid, leftOut);
    }
}

}  // namespace

bool Peer::attachStream(const LinkPtr& stream) {
    (void)stopExpecting(nullptr);  // it may not have been expected
    Mutex::Autolock lock(mLock);
    const bool accepted = stream->side() == Side::ACCEPTOR;
    if (isDead() || (accepted && mAcceptedStream)) return false;
    mAcceptedStream = mAcceptedStream || accepted;
    if (mStream == nullptr) {
        mStream = stream;
        mFlow.setProgress(stream->page(), stream->side());
    }
    ++mStreams;
    mLinks.insert(stream);
    return true;
}

bool Peer::attach(const LinkPtr& link) {
    Mutex::Autolock lock(mLock);
    if (isDead() || mStream == nullptr) return false;
    mLinks.insert(link);
    return true;
}

bool Peer::hasStream() const {
    return stream() != nullptr;
}

LinkPtr Peer::stream() const {
    Mutex::Autolock lock(mLock);
    return mStream;
}

status_t Peer::open(ConnectionKind kind, uint64_t waiter, LinkPtr* outLink) {
    if (isDead()) return DEAD_OBJECT;
    base::unique_fd descriptor;
    const std::shared_ptr<SharedPage> page = SharedPage::create(&descriptor);
    if (page == nullptr) return NO_MEMORY;
    OwnFd socket;
    const status_t status = mSurroundings.dir.connect(id.name, /*wait*/ true, &socket);
    if (status == NAME_NOT_FOUND) return DEAD_OBJECT;
    if (status != OK) return FAILED_TRANSACTION;
    const auto link = std::make_shared<Link>(std::move(socket), kind, Side::OPENER, page,
                                             mSurroundings.accounts, shared_from_this(), waiter);
    if (link->pid() != pid() || link->uid() != id.uid) {
        ALOGE("Process %d, uid %u, used the name of process %d, uid %u", link->pid(), link->uid(),
              pid(), id.uid);
        return DEAD_OBJECT;
    }
    Greeting greeting = makeGreeting(kind, mSurroundings.self.name);
    greeting.waiter = waiter;
    if (!sendGreeting(link->fd(), greeting, descriptor.get())) return DEAD_OBJECT;
    Mutex::Autolock lock(mLock);
    if (isDead()) return DEAD_OBJECT;
    mLinks.insert(link);
    *outLink = link;
    return OK;
}

status_t Peer::borrowCall(LinkPtr* outLink) {
    {
        Mutex::Autolock lock(mLock);
        if (!isDead() && !mIdleCalls.empty()) {
            *outLink = std::move(mIdleCalls.back());
            mIdleCalls.pop_back();
            return OK;
        }
    }
    return open(ConnectionKind::CALL, 0, outLink);
}

void Peer::returnCall(LinkPtr link) {
    Mutex::Autolock lock(mLock);
    if (isDead() || mIdleCalls.size() >= kMaxIdleCalls) {
        mLinks.erase(link);
        return;
    }
    mIdleCalls.push_back(std::move(link));
}

status_t Peer::openNested(uint64_t waiter, LinkPtr* outLink) {
    return open(ConnectionKind::NESTED, waiter, outLink);
}

void Peer::drop(const LinkPtr& link) {
    link->end();
    Mutex::Autolock lock(mLock);
    mLinks.erase(link);
}

status_t Peer::sendOneWay(const OutFrame& frame) {
    const LinkPtr link = stream();
    if (isDead() || link == nullptr) return DEAD_OBJECT;
    switch (link->post(frame, Connection::Bound::ONE_WAY)) {
        case Connection::Posted::SENT:
            return OK;
        case Connection::Posted::QUEUED:
            mSurroundings.watcher.watchOutput(link);
            return OK;
        case Connection::Posted::FULL:
            return FAILED_TRANSACTION;
        case Connection::Posted::GONE:
            break;
    }
    return DEAD_OBJECT;
}

void Peer::sendCount(FrameType type, uint64_t object, uint64_t count, const ProcessId* other) {
    const LinkPtr link = stream();
    if (isDead() || link == nullptr) return;  // a dead peer counts nothing any more
    OutFrame frame;
    frame.header = makeHeader(type, object, count);
    if (other != nullptr) {
        frame.header.dataSize = sizeof(*other);
        frame.data = reinterpret_cast<const uint8_t*>(other);
    }
    switch (link->post(frame, Connection::Bound::CONTROL)) {
        case Connection::Posted::QUEUED:
            mSurroundings.watcher.watchOutput(link);
            break;
        case Connection::Posted::FULL:
            ALOGE("Process %d does not read its stream; ending it", pid());
            link->end();
            break;
        default:
            break;  // sent, or gone, which the watcher notices
    }
}

void Peer::release(uint64_t object, uint64_t count) {
    sendCount(FrameType::RELEASE, object, count, nullptr);
}

void Peer::grant(uint64_t object, const ProcessId& receiver, bool sent) {
    sendCount(FrameType::GRANT, object, sent ? 1 : 0, &receiver);
}

void Peer::claim(uint64_t object, const ProcessId& giver) {
    sendCount(FrameType::CLAIM, object, 1, &giver);
}

void Peer::flush(nsecs_t deadline) {
    const LinkPtr link = stream();
    if (isDead() || link == nullptr) return;
    while (link->flush() == Connection::Posted::QUEUED) {
        const nsecs_t left = deadline - systemTime();
        pollfd entry = {link->fd(), POLLOUT, 0};
        if (left <= 0 || poll(&entry, 1, static_cast<int>(ns2ms(left)) + 1) <= 0) {
            ALOGW("Process %d has not read %zu bytes that were sent to it", pid(),
                  link->queuedBytes());
            return;
        }
    }
}

bool Peer::expect(uint64_t watch, OwnFd process, Charge charge, const ProcessId& giver) {
    Mutex::Autolock lock(mLock);
    if (mStream != nullptr || mExpected.watch != 0) return false;
    mExpected.watch = watch;
    mExpected.process = std::move(process);
    mExpected.charge = std::move(charge);
    mExpected.giver = giver;
    return true;
}

bool Peer::stopExpecting(const ProcessId* giver) {
    Expectation over;
    {
        Mutex::Autolock lock(mLock);
        if (mExpected.watch == 0) return false;
        if (giver != nullptr && (mStream != nullptr || !(mExpected.giver == *giver))) return false;
        std::swap(over, mExpected);
    }
    mSurroundings.watcher.unwatchProcess(over.watch);
    return true;
}

void Peer::endLinks() {
    std::set<LinkPtr> links;
    {
        Mutex::Autolock lock(mLock);
        links.swap(mLinks);
        mIdleCalls.clear();
        mStream = nullptr;
    }
    for (const LinkPtr& link : links)
        link->end();
}

bool Peer::streamEnded(const LinkPtr& stream) {
    Mutex::Autolock lock(mLock);
    mLinks.erase(stream);
    return --mStreams == 0;
}

bool Peer::hasHungUp() const {
    const LinkPtr link = stream();
    return link != nullptr && link->hasHungUp(0);
}

bool Peer::confirmEnd() const {
    const LinkPtr link = stream();
    return link == nullptr || link->hasHungUp(kEndGraceMilliseconds);
}

PeerPtr Peers::find(const ProcessId& id) {
    Mutex::Autolock lock(mLock);
    const auto known = mPeers.find(id);
    return known == mPeers.end() ? nullptr : known->second;
}

PeerPtr Peers::meet(const ProcessId& id) {
    Mutex::Autolock lock(mLock);
    PeerPtr& peer = mPeers[id];
    if (peer == nullptr) peer = std::make_shared<Peer>(id, mSurroundings);
    // From here on its connection keeps it, not the word of somebody who may end.
    (void)peer->stopExpecting(nullptr);  // it may not have been expected
    return peer;
}

PeerPtr Peers::reach(const ProcessId& id, bool wait) {
    if (PeerPtr known = find(id); known != nullptr && known->hasStream()) return known;
    return reach(id.name, wait, [&](uid_t uid) {
        if (uid != id.uid) logImpostor(id.name, mSurroundings.accounts.of(uid));
        return uid == id.uid;
    });
}

PeerPtr Peers::reach(const ProcessName& name, bool wait,
                     const std::function<bool(uid_t)>& accepts) {
    OwnFd socket;
    if (mSurroundings.dir.connect(name, wait, &socket) != OK) return nullptr;
    const ucred credentials = peerCredentials(socket.get());
    Account& account = mSurroundings.accounts.of(credentials.uid);
    if (!accepts(credentials.uid)) return nullptr;
    if (credentials.pid != static_cast<pid_t>(name.pid)) {
        logImpostor(name, account);
        return nullptr;
    }
    // Who sends references has this process connect to their owners.
    Charge charge;
    if (!charge.take(account, Resource::CONNECTIONS, 1)) return nullptr;
    PeerPtr peer = meet({name, credentials.uid, 0});
    // It may have connected to this process, or another thread may have been here first. Such a
    // connection, ended without a greeting, is nothing to the peer.
    if (peer->hasStream()) return peer;
    base::unique_fd descriptor;
    const std::shared_ptr<SharedPage> page = SharedPage::create(&descriptor);
    if (page == nullptr) return nullptr;
    const auto stream = std::make_shared<Link>(std::move(socket), ConnectionKind::STREAM,
                                               Side::OPENER, page, mSurroundings.accounts, peer);
    stream->connections = std::move(charge);
    Mutex::Autolock lock(mLock);  // two threads must not open two streams
    if (peer->hasStream()) return peer;
    const Greeting greeting = makeGreeting(ConnectionKind::STREAM, mSurroundings.self.name);
    if (!sendGreeting(stream->fd(), greeting, descriptor.get()) || !peer->attachStream(stream)) {
        mPeers.erase(peer->id);
        return nullptr;
    }
    mSurroundings.watcher.watchStream(stream);
    return peer;
}

void Peers::remove(const PeerPtr& peer) {
    Mutex::Autolock lock(mLock);
    const auto known = mPeers.find(peer->id);
    if (known != mPeers.end() && known->second == peer) mPeers.erase(known);
}

void Peers::removeExpected(const ProcessId& giver) {
    Mutex::Autolock lock(mLock);
    for (auto entry = mPeers.begin(); entry != mPeers.end();) {
        entry = entry->second->stopExpecting(&giver) ? mPeers.erase(entry) : std::next(entry);
    }
}

void Peers::flushAll() {
    std::vector<PeerPtr> peers;
    {
        Mutex::Autolock lock(mLock);
        for (const auto& [id, peer] : mPeers)
            peers.push_back(peer);
    }
    const nsecs_t deadline = systemTime() + kFlushAtExit;
    for (const PeerPtr& peer : peers)
        peer->flush(deadline);
}

}  // namespace android::transport
