#pragma once

#include <utils/Mutex.h>

#include <atomic>
#include <deque>

#include "Calls.h"
#include "ThreadPool.h"

namespace android::transport {

/**
 * Serves the two-way calls of accepted links, on threads of the pool.
 *
 * The processes of one stranger run at most their share of calls at once: the requests that are
 * over it wait, unread, until one of those calls has ended. So a user whose calls block takes some
 * threads of the pool, and never all.
 */
class CallServer {
public:
    CallServer(Calls& calls, ThreadPool& pool, Watcher& watcher)
            : mCalls(calls), mPool(pool), mWatcher(watcher) {}

    /** Serves what has come; the caller holds the link's claim. */
    void serve(const LinkPtr& link) { serve(link, /*counted*/ false); }
    /** As serve, on another thread. */
    void post(const LinkPtr& link) {
        mPool.post([this, link] { serve(link); });
    }

    /** Counts a one-way call that runs, for its lifetime: it leaves less for two-way calls. */
    class OneWay {
    public:
        OneWay(CallServer& server, Link& link) : mServer(server), mLink(link) {
            if (!mLink.isTrusted()) mLink.account().add(Resource::CALLS, 1);
        }
        ~OneWay() { mServer.end(mLink); }
        OneWay(const OneWay&) = delete;
        OneWay& operator=(const OneWay&) = delete;

    private:
        CallServer& mServer;
        Link& mLink;
    };

private:
    void serve(const LinkPtr& link, bool counted);
    [[nodiscard]] bool begin(const LinkPtr& link) EXCLUDES(mLock);
    void end(Link& link) EXCLUDES(mLock);
    [[nodiscard]] LinkPtr takeDeferred() EXCLUDES(mLock);

    Calls& mCalls;
    ThreadPool& mPool;
    Watcher& mWatcher;

    std::atomic<size_t> mDeferredCount{0};
    Mutex mLock;
    std::deque<LinkPtr> mDeferred GUARDED_BY(mLock);  // with their claims
};

}  // namespace android::transport
