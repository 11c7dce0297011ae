#define LOG_TAG "BinderTransport"

#include "CallServer.h"

#include <errno.h>

namespace android::transport {

/** Counts a call that is about to run; else the link waits for its turn. */
bool CallServer::begin(const LinkPtr& link) {
    if (link->isTrusted() || link->account().tryTake(Resource::CALLS, 1)) return true;
    {
        Mutex::Autolock lock(mLock);
        mDeferred.push_back(link);
        mDeferredCount.store(mDeferred.size());
    }
    // A call may have ended just before the link was there to be found.
    if (const LinkPtr next = takeDeferred()) {
        mPool.post([this, next] { serve(next, /*counted*/ true); });
    }
    return false;
}

void CallServer::end(Link& link) {
    if (link.isTrusted()) return;
    link.account().giveBack(Resource::CALLS, 1);
    if (mDeferredCount.load() == 0) return;
    if (const LinkPtr next = takeDeferred()) {
        mPool.post([this, next] { serve(next, /*counted*/ true); });
    }
}

/** The first link whose call may run, which is counted; null for none. */
LinkPtr CallServer::takeDeferred() {
    Mutex::Autolock lock(mLock);
    for (auto candidate = mDeferred.begin(); candidate != mDeferred.end(); ++candidate) {
        if (!(*candidate)->account().tryTake(Resource::CALLS, 1)) continue;
        LinkPtr link = std::move(*candidate);
        mDeferred.erase(candidate);
        mDeferredCount.store(mDeferred.size());
        return link;
    }
    return nullptr;
}

void CallServer::serve(const LinkPtr& link, bool counted) {
    FrameInput& input = link->input();
    bool answered = false;
    for (;;) {
        if (!counted && !begin(link)) return;
        counted = false;
        Frame frame;
        const FrameInput::Result result = input.next(&frame);
        if (result == FrameInput::Result::FRAME && frame.header.type == FrameType::REQUEST) {
            const Connection::Posted posted = mCalls.serveRequest(link, &frame, /*waits*/ false);
            end(*link);
            if (posted == Connection::Posted::QUEUED) {
                frame = Frame();
                if (!link->isTrusted()) input.trim();
                mWatcher.watchOutput(link);  // which has it served further afterwards
                return;
            }
            if (posted != Connection::Posted::SENT) break;
            answered = true;
            continue;
        }
        end(*link);
        if (result != FrameInput::Result::PARTIAL) {
            logNoFrame(*link);
            link->account().shutOut();
            break;
        }
        // Half a frame is never waited for here: its sender would hold the thread.
        const bool linger = answered && input.isEmpty() && mPool.beginLinger();
        if (answered && !linger) {
            link->yield();
            mPool.rearm(link->fd(), link->id());
            return;
        }
        const ssize_t got = linger ? link->receiveSoon() : link->receiveNow();
        if (linger) mPool.endLinger();
        answered = false;
        if (got == -EAGAIN) {
            if (link->release()) return;
        } else if (got <= 0) {
            if (got == -EPROTO) logNoFrame(*link);
            break;
        }
    }
    mWatcher.drop(link);
}

}  // namespace android::transport
