#pragma once

#include <android-base/unique_fd.h>

#include <atomic>
#include <memory>

#include "Mailbox.h"

namespace android::transport {

/** Which side of a connection: the one that opened it or the one that accepted it. */
enum class Side { OPENER, ACCEPTOR };

/**
 * The page of memory that both ends of a connection map: a mailbox each way and, for one-way calls,
 * what their receiver has finished, so that the sender's bound is exact at any moment without a
 * message or a wake-up for it. Both processes may write all of it. A child of fork() does not map
 * it.
 */
class SharedPage {
public:
    /** A page, and the descriptor to share it by; null when the system refuses. */
    [[nodiscard]] static std::shared_ptr<SharedPage> create(base::unique_fd* outFd);
    /** The page that an opener shared; null for anything that is not such a page. */
    [[nodiscard]] static std::shared_ptr<SharedPage> adopt(const base::unique_fd& fd);

    SharedPage(const SharedPage&) = delete;
    SharedPage& operator=(const SharedPage&) = delete;
    ~SharedPage();

    /** Where `side` receives. */
    [[nodiscard]] Mailbox& inbox(Side side) { return from(other(side)).box; }
    /** Where `side` sends. */
    [[nodiscard]] Mailbox& outbox(Side side) { return from(side).box; }

    /** Counts a finished one-way call that `side` has received. */
    void addFinished(Side side, uint64_t bytes) {
        from(other(side)).bytes.fetch_add(bytes, std::memory_order_release);
        from(other(side)).calls.fetch_add(1, std::memory_order_release);
    }
    // What the other side says to have finished of the one-way calls that `side` has sent.
    [[nodiscard]] uint64_t finishedCalls(Side side) {
        return from(side).calls.load(std::memory_order_acquire);
    }
    [[nodiscard]] uint64_t finishedBytes(Side side) {
        return from(side).bytes.load(std::memory_order_acquire);
    }

private:
    struct Direction {
        Mailbox box;
        std::atomic<uint64_t> calls;
        std::atomic<uint64_t> bytes;
    };
    struct Layout {
        Direction forth;  // from the opener
        Direction back;
    };

    static Side other(Side side) { return side == Side::OPENER ? Side::ACCEPTOR : Side::OPENER; }
    [[nodiscard]] Direction& from(Side sender) {
        return sender == Side::OPENER ? mLayout->forth : mLayout->back;
    }

    explicit SharedPage(Layout* layout) : mLayout(layout) {}
    [[nodiscard]] static std::shared_ptr<SharedPage> map(int fd);

    Layout* const mLayout;
};

}  // namespace android::transport
