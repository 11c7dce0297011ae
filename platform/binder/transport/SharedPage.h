#pragma once

#include <android-base/unique_fd.h>

#include <atomic>
#include <memory>

#include "Mailbox.h"

namespace android::transport {

/** Which side of a connection: the one that opened it or the one that accepted it. */
enum class Side { OPENER, ACCEPTOR };

/**
 * The page of memory that both ends of a connection map: their mailboxes and, for one-way calls,
 * what the receiver has finished, so that the sender's bound is exact at any moment without a
 * message or a wake-up for it. Both processes may write all of it.
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
    [[nodiscard]] Mailbox& inbox(Side side) {
        return side == Side::ACCEPTOR ? mLayout->forth : mLayout->back;
    }
    /** Where `side` sends. */
    [[nodiscard]] Mailbox& outbox(Side side) {
        return side == Side::ACCEPTOR ? mLayout->back : mLayout->forth;
    }

    // One-way calls that the acceptor has finished, and their bytes.
    void add(uint64_t bytes) {
        mLayout->bytes.fetch_add(bytes, std::memory_order_release);
        mLayout->calls.fetch_add(1, std::memory_order_release);
    }
    [[nodiscard]] uint64_t calls() const { return mLayout->calls.load(std::memory_order_acquire); }
    [[nodiscard]] uint64_t bytes() const { return mLayout->bytes.load(std::memory_order_acquire); }

private:
    struct Layout {
        Mailbox forth;  // to the acceptor
        Mailbox back;
        std::atomic<uint64_t> calls;
        std::atomic<uint64_t> bytes;
    };

    explicit SharedPage(Layout* layout) : mLayout(layout) {}
    [[nodiscard]] static std::shared_ptr<SharedPage> map(int fd);

    Layout* const mLayout;
};

}  // namespace android::transport
