#pragma once

#include <stddef.h>
#include <stdint.h>
#include <sys/uio.h>

#include <atomic>

namespace android::transport {

/**
 * The short way of a connection, one direction: room for one frame in memory that both processes
 * map, and a futex at which the receiver parks. A frame that finds the receiver parked goes through
 * here, which costs neither side a turn through the socket; any other frame takes the stream.
 *
 * Two counts of the stream's bytes keep the order. The sender puts a frame here only when the
 * receiver, as it parked, had received all that was sent; and the receiver stays parked only when
 * nothing has been sent since.
 *
 * The other process may write anything here at any moment, so each side keeps its own count, and
 * what comes out is checked like any bytes of a stranger. It gains no more than a frame lost or
 * late. One thread at a time sends and one receives. Zeroed memory is an empty mailbox.
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

    /** Offers itself to the sender. Only with no part of a frame left over. */
    void park(uint64_t received);
    enum class Patience { ENDLESS, BRIEF };  // BRIEF: a few milliseconds
    /** Waits for the sender. Of a killed one nothing here tells: who learns of it calls close. */
    void wait(uint64_t received, Patience patience);
    /** Withdraws the offer. True when a frame came first; it stays until the next park. */
    [[nodiscard]] bool unpark();
    [[nodiscard]] const uint8_t* frame() const { return mSlot; }
    /** Its size in bytes, which a hostile sender may have put over kSlotBytes. */
    [[nodiscard]] size_t frameBytes() const { return mSize.load(std::memory_order_relaxed); }

    // ---- The sender, who has sent `sent` bytes on the stream ----

    /** True when the frame has gone through here. */
    [[nodiscard]] bool put(const iovec* parts, int count, size_t size, uint64_t sent);
    /** Before more goes to the stream, which then has had `sent` bytes. */
    void announce(uint64_t sent) { mSent.store(sent, std::memory_order_seq_cst); }
    /** After it: sends a parked receiver to the stream. */
    void nudge();

    /** From here on nobody waits here any more. From any thread of either side. */
    void close();

private:
    enum State : uint32_t { AWAY = 0, PARKED = 1, FULL = 2 };

    void wake();

    alignas(64) std::atomic<uint32_t> mState;  // also the futex
    std::atomic<uint32_t> mSize;
    std::atomic<bool> mClosed;
    std::atomic<uint64_t> mReceived;
    std::atomic<uint64_t> mSent;
    alignas(64) uint8_t mSlot[kSlotBytes];

    static_assert(sizeof(std::atomic<uint32_t>) == 4 && std::atomic<uint64_t>::is_always_lock_free);
};

}  // namespace android::transport
