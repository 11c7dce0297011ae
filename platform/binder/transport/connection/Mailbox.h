#pragma once

#include <stddef.h>
#include <stdint.h>
#include <sys/uio.h>

#include <atomic>

namespace android::transport {

/**
 * The shared-memory fast path of a connection, one direction: one frame slot, and a futex on which
 * the receiver sleeps. A frame that finds the receiver parked goes through the slot, which spares
 * both sides the socket; any other frame takes the stream.
 *
 * Two counts of the stream's bytes keep the order. The sender uses the slot only when the receiver,
 * as it parked, had received all that was sent; and the receiver stays parked only when nothing has
 * been sent since.
 *
 * The other process may write anything here at any moment, so each side keeps its own counts and
 * its own mark of the connection's end, and what comes out is checked like any received bytes. A
 * peer that lies loses or delays its own frames only. One thread at a time sends and one receives.
 * Zeroed memory is an empty mailbox.
 */
class Mailbox {
public:
    /** Largest frame that goes through here; larger ones gain nothing from it. */
    static constexpr size_t kSlotBytes = 1536;

    Mailbox() = default;
    Mailbox(const Mailbox&) = delete;
    Mailbox& operator=(const Mailbox&) = delete;
    ~Mailbox() = default;

    // ---- The receiver, who has received `received` bytes of the stream ----

    /** Lets the sender use the slot from now on. Only with no part of a frame left over. */
    void park(uint64_t received);
    enum class Patience { ENDLESS, BRIEF };  // BRIEF: a few milliseconds
    /**
     * Sleeps until the sender acts or wake() is called, at most; may return early. A killed sender
     * is not noticed here: whoever notices calls wake().
     */
    void wait(uint64_t received, Patience patience);
    /** Undoes park. True when a frame has come; it stays in the slot until the next park. */
    [[nodiscard]] bool unpark();
    [[nodiscard]] const uint8_t* frame() const { return mSlot; }
    /** Its size in bytes, which a hostile sender may have put over kSlotBytes. */
    [[nodiscard]] size_t frameBytes() const { return mSize.load(std::memory_order_relaxed); }
    /** True when the next bytes come by the stream, or the sender has closed the connection. */
    [[nodiscard]] bool hasMoved(uint64_t received) const {
        return mSent.load(std::memory_order_seq_cst) != received ||
               mClosed.load(std::memory_order_seq_cst);
    }
    /** Ends a wait; from any thread of the receiver's process. */
    void wake();

    // ---- The sender, who has sent `sent` bytes on the stream ----

    /** True when the frame has gone through the slot. */
    [[nodiscard]] bool put(const iovec* parts, int count, size_t size, uint64_t sent);
    /** Before more goes to the stream, which then has had `sent` bytes. */
    void announce(uint64_t sent) { mSent.store(sent, std::memory_order_seq_cst); }
    /** After it: sends a parked receiver to the stream. */
    void nudge();

    /** Tells a receiver that keeps to the rules that the connection has ended. */
    void close();

private:
    enum State : uint32_t { AWAY = 0, PARKED = 1, FULL = 2 };

    alignas(64) std::atomic<uint32_t> mState;  // also the futex
    std::atomic<uint32_t> mSize;
    std::atomic<bool> mClosed;
    std::atomic<uint64_t> mReceived;
    std::atomic<uint64_t> mSent;
    alignas(64) uint8_t mSlot[kSlotBytes];

    static_assert(sizeof(std::atomic<uint32_t>) == 4 && std::atomic<uint64_t>::is_always_lock_free);
};

}  // namespace android::transport
