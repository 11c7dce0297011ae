#pragma once

#include <utils/Mutex.h>

#include <map>
#include <memory>

#include "Acceptor.h"
#include "StreamReader.h"

namespace android::transport {

/** What the driver works on. */
struct DriverParts {
    Accounts& accounts;
    const RuntimeDir& dir;
    Peers& peers;
    RemoteObjects& remotes;
    LinkTable& links;
    ThreadPool& pool;
    Calls& calls;
    CallServer& server;
    StreamReader& reader;
};

/**
 * What a kernel driver does elsewhere, on one thread of its own: accepts connections, sees peers
 * end, sends what posted output did not fit at once, and takes the place of the pool for the
 * streams of a process that has none. It runs no user code, so death works while every binder
 * thread is busy, or none was started. Started with the first stream or the first exported object;
 * its thread never ends.
 */
class Driver : public Watcher {
public:
    explicit Driver(const DriverParts& parts);
    Driver(const Driver&) = delete;
    Driver& operator=(const Driver&) = delete;
    virtual ~Driver() = default;

    /** Accepts from now on. */
    void listen(OwnFd socket) EXCLUDES(mLock);

    void watchStream(const LinkPtr& stream) override EXCLUDES(mLock);
    void watchOutput(const LinkPtr& link) override EXCLUDES(mLock);
    void watchNested(const LinkPtr& link) override EXCLUDES(mLock);
    void watchProcess(uint64_t watch, int process, const PeerPtr& peer) override EXCLUDES(mLock);
    void unwatchProcess(uint64_t watch) override EXCLUDES(mLock);
    void drop(const LinkPtr& link) override;
    void peerEnded(const PeerPtr& peer) override;

private:
    void startLocked() REQUIRES(mLock);
    [[noreturn]] void run();
    void handle(uint64_t id, uint32_t events);
    void handleLink(const LinkPtr& link, uint32_t events);
    void handleStream(const LinkPtr& stream, uint32_t events);
    void handleProcess(uint64_t watch) EXCLUDES(mLock);
    void readNested(const LinkPtr& link);
    void admit(Guest* guest);
    void activate(const LinkPtr& link);
    void flush(const LinkPtr& link) EXCLUDES(mLock);
    [[nodiscard]] uint32_t streamEvents() const;
    void watch(int fd, uint64_t id, uint32_t events);
    void takeNewSocket() EXCLUDES(mLock);

    const DriverParts mParts;
    const OwnFd mEvents;
    const OwnFd mWake;
    Acceptor mAcceptor;  // the driver's thread alone

    // Orders the start and end of watching for output.
    Mutex mLock;
    bool mStarted GUARDED_BY(mLock) = false;
    OwnFd mNewSocket GUARDED_BY(mLock);
    std::map<uint64_t, std::weak_ptr<Peer>> mProcesses GUARDED_BY(mLock);
};

}  // namespace android::transport
