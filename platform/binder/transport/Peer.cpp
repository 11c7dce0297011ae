#define LOG_TAG "BinderTransport"

#include "Peer.h"

#include <errno.h>
#include <log/log.h>

#include <tuple>

#include "Transport.h"

namespace android::transport {

namespace {

/** Idle CALL connections kept; more threads than this rarely call one process at once. */
constexpr size_t kMaxIdleCalls = 16;
/** A peer that leaves this much unread on its CONTROL connection has stopped taking part. */
constexpr size_t kMaxControlBacklog = size_t{4} * 1024 * 1024;
/** A dying process closes its sockets one after the other; this long is waited for the next. */
constexpr int kEndGraceMilliseconds = 100;

/** Introduces this process on a connection that it opened. */
status_t introduce(const Connection& connection, int descriptor) {
    const bool sent =
            sendGreeting(connection.fd(), connection.kind(), Transport::get().self(), descriptor);
    return sent ? OK : DEAD_OBJECT;
}

/** A page that the next connection shares with the peer. */
struct NewPage {
    base::unique_fd fd;
    std::shared_ptr<SharedPage> page = SharedPage::create(&fd);
};

}  // namespace

status_t Peer::openLocked(ConnectionKind kind, ConnectionPtr* outConnection) {
    if (isDead()) return DEAD_OBJECT;
    base::unique_fd socket;
    const status_t status = Transport::get().dir().connect(name, &socket);
    if (status == NAME_NOT_FOUND) return DEAD_OBJECT;
    if (status != OK) return FAILED_TRANSACTION;
    auto connection = std::make_shared<Connection>(std::move(socket), kind, /*accepted*/ false);
    if (connection->pid() != pid || connection->uid() != uid) {
        ALOGE("Process %d, uid %u, used the name of process %d, uid %u", pid, uid,
              connection->pid(), connection->uid());
        return DEAD_OBJECT;
    }
    mConnections.insert(connection);
    *outConnection = std::move(connection);
    return OK;
}

status_t Peer::borrowCall(ConnectionPtr* outConnection) {
    Mutex::Autolock lock(mLock);
    if (isDead()) return DEAD_OBJECT;
    if (!mIdleCalls.empty()) {
        *outConnection = std::move(mIdleCalls.back());
        mIdleCalls.pop_back();
        return OK;
    }
    const NewPage shared;
    if (shared.page == nullptr) return NO_MEMORY;
    if (const status_t status = openLocked(ConnectionKind::CALL, outConnection); status != OK) {
        return status;
    }
    (*outConnection)->setPeer(shared_from_this());
    (*outConnection)->setPage(shared.page);
    return introduce(**outConnection, shared.fd.get());
}

void Peer::returnCall(ConnectionPtr connection) {
    Mutex::Autolock lock(mLock);
    if (isDead() || mIdleCalls.size() >= kMaxIdleCalls) {
        mConnections.erase(connection);
        return;
    }
    mIdleCalls.push_back(std::move(connection));
}

void Peer::dropConnection(const ConnectionPtr& connection) {
    connection->end();
    Mutex::Autolock lock(mLock);
    mConnections.erase(connection);
}

status_t Peer::oneWayConnection(ConnectionPtr* outConnection) {
    Mutex::Autolock lock(mLock);
    if (isDead()) return DEAD_OBJECT;
    if (mOneWay == nullptr) {
        const NewPage shared;
        if (shared.page == nullptr) return NO_MEMORY;
        ConnectionPtr connection;
        if (const status_t status = openLocked(ConnectionKind::ONE_WAY, &connection);
            status != OK) {
            return status;
        }
        connection->setPeer(shared_from_this());
        connection->setPage(shared.page);
        if (const status_t status = introduce(*connection, shared.fd.get()); status != OK) {
            return status;
        }
        mFlow.setProgress(shared.page);
        mOneWay = std::move(connection);
    }
    *outConnection = mOneWay;
    return OK;
}

bool Peer::attachControl(const ConnectionPtr& connection, std::vector<ConnectionPtr>* outParked) {
    Mutex::Autolock lock(mLock);
    if (isDead()) return false;
    mConnections.insert(connection);
    if (mControl == nullptr) mControl = connection;
    outParked->swap(mParked);
    return true;
}

bool Peer::attachAccepted(const ConnectionPtr& connection, bool* outReady) {
    Mutex::Autolock lock(mLock);
    if (isDead()) return false;
    mConnections.insert(connection);
    *outReady = mControl != nullptr;
    if (!*outReady) mParked.push_back(connection);
    return true;
}

bool Peer::hasControl() const {
    Mutex::Autolock lock(mLock);
    return mControl != nullptr;
}

bool Peer::confirmEnd() const {
    ConnectionPtr control;
    {
        Mutex::Autolock lock(mLock);
        control = mControl;
    }
    return control == nullptr || control->hasEnded(kEndGraceMilliseconds);
}

void Peer::sendControlLocked(const FrameHeader& header) {
    // Without a connection the peer is dead, and counts nothing any more.
    if (isDead() || mControl == nullptr) return;
    OutFrame frame;
    frame.header = header;
    if (mControl->post(frame) != Connection::Posted::QUEUED) return;  // GONE shows in the driver
    if (mControl->queuedBytes() > kMaxControlBacklog) {
        ALOGE("Process %d does not read its control connection; ending it", pid);
        mControl->end();
        return;
    }
    Transport::get().driver().watchOutput(mControl);
}

void Peer::sendControl(const FrameHeader& header) {
    Mutex::Autolock lock(mLock);
    sendControlLocked(header);
}

void Peer::acquireObject(uint64_t id, std::shared_ptr<Gate> gate) {
    {
        Mutex::Autolock lock(mLock);
        if (!isDead()) {
            // Both under the lock: answers come in the order of the questions.
            mAcquisitions.push_back({id, std::move(gate)});
            FrameHeader header = makeHeader(FrameType::ACQUIRE);
            header.target = id;
            sendControlLocked(header);
            return;
        }
    }
    gate->done();
}

std::shared_ptr<Gate> Peer::takeAcquired(uint64_t id) {
    Mutex::Autolock lock(mLock);
    if (mAcquisitions.empty() || mAcquisitions.front().id != id) return nullptr;
    std::shared_ptr<Gate> gate = std::move(mAcquisitions.front().gate);
    mAcquisitions.pop_front();
    return gate;
}

void Peer::releaseObject(uint64_t id, uint64_t count) {
    FrameHeader header = makeHeader(FrameType::RELEASE);
    header.target = id;
    header.receipt = count;
    sendControl(header);
}

uint64_t Peer::pin(std::vector<sp<IBinder>> objects) {
    Mutex::Autolock lock(mLock);
    const uint64_t receipt = mNextReceipt++;
    if (!isDead()) mPinned[receipt] = std::move(objects);
    return receipt;
}

std::vector<sp<IBinder>> Peer::unpin(uint64_t receipt) {
    std::vector<sp<IBinder>> objects;
    Mutex::Autolock lock(mLock);
    if (const auto entry = mPinned.find(receipt); entry != mPinned.end()) {
        objects = std::move(entry->second);
        mPinned.erase(entry);
    }
    return objects;
}

Peer::Remains Peer::takeRemains() {
    Remains remains;
    Mutex::Autolock lock(mLock);
    for (const ConnectionPtr& connection : mConnections) {
        connection->end();
        remains.connections.push_back(connection);
    }
    mConnections.clear();
    mIdleCalls.clear();
    mParked.clear();
    mControl.reset();
    mOneWay.reset();
    for (Acquisition& acquisition : mAcquisitions) {
        remains.gates.push_back(std::move(acquisition.gate));
    }
    mAcquisitions.clear();
    for (auto& [receipt, objects] : mPinned) {
        for (sp<IBinder>& object : objects)
            remains.pinned.push_back(std::move(object));
    }
    mPinned.clear();
    return remains;
}

bool Peers::Key::operator<(const Key& other) const {
    return std::tie(name, pid, uid) < std::tie(other.name, other.pid, other.uid);
}

PeerPtr Peers::meetLocked(const ProcessName& name, pid_t pid, uid_t uid) {
    PeerPtr& peer = mPeers[Key{name, pid, uid}];
    if (peer == nullptr) peer = std::make_shared<Peer>(name, pid, uid);
    return peer;
}

PeerPtr Peers::meet(const ProcessName& name, pid_t pid, uid_t uid) {
    Mutex::Autolock lock(mLock);
    return meetLocked(name, pid, uid);
}

PeerPtr Peers::reach(const ProcessName& name) {
    Mutex::Autolock lock(mLock);
    if (const auto known = mVerified.find(name); known != mVerified.end()) return known->second;
    base::unique_fd socket;
    if (Transport::get().dir().connect(name, &socket) != OK) return nullptr;
    const auto connection = std::make_shared<Connection>(std::move(socket), ConnectionKind::CONTROL,
                                                         /*accepted*/ false);
    PeerPtr peer = meetLocked(name, connection->pid(), connection->uid());
    // A peer that greeted first is verified now; a second CONTROL connection does no harm.
    connection->setPeer(peer);
    if (introduce(*connection, -1) != OK) return nullptr;
    std::vector<ConnectionPtr> parked;
    if (!peer->attachControl(connection, &parked)) return nullptr;
    Transport::get().driver().adoptControl(connection, parked);
    mVerified[name] = peer;
    return peer;
}

void Peers::remove(const PeerPtr& peer) {
    Mutex::Autolock lock(mLock);
    mPeers.erase(Key{peer->name, peer->pid, peer->uid});
    const auto verified = mVerified.find(peer->name);
    if (verified != mVerified.end() && verified->second == peer) mVerified.erase(verified);
}

}  // namespace android::transport
