#include "Mailbox.h"

#include <limits.h>
#include <linux/futex.h>
#include <string.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include "FlakeDelay.h"

namespace android::transport {

namespace {

/** How long a thread of the pool stays with a connection that it has answered. */
constexpr timespec kBriefly = {0, 4000000};

}  // namespace

// The receiver parks and then looks at mSent and mClosed; the sender writes those and then looks
// whether the receiver is parked. At least one of the two sees the other, so the receiver never
// sleeps on beside bytes of the stream or after the end.

void Mailbox::park(uint64_t received) {
    mReceived.store(received, std::memory_order_relaxed);
    mState.store(PARKED, std::memory_order_seq_cst);
    flakeDelay();
}

void Mailbox::wait(uint64_t received, Patience patience) {
    if (hasMoved(received)) return;
    flakeDelay();
    if (mState.load(std::memory_order_relaxed) != PARKED) return;
    // The result does not matter: the caller looks at the state. No timer where it can be helped,
    // as that costs as much as the wait itself.
    const timespec* const limit = patience == Patience::BRIEF ? &kBriefly : nullptr;
    (void)syscall(SYS_futex, &mState, FUTEX_WAIT, PARKED, limit, nullptr, 0);
}

bool Mailbox::unpark() {
    return mState.exchange(AWAY, std::memory_order_seq_cst) == FULL;
}

bool Mailbox::put(const iovec* parts, int count, size_t size, uint64_t sent) {
    if (size > kSlotBytes || mState.load(std::memory_order_acquire) != PARKED ||
        mReceived.load(std::memory_order_relaxed) != sent) {
        return false;
    }
    uint8_t* next = mSlot;
    for (int i = 0; i < count; ++i) {
        memcpy(next, parts[i].iov_base, parts[i].iov_len);
        next += parts[i].iov_len;
    }
    mSize.store(static_cast<uint32_t>(size), std::memory_order_relaxed);
    flakeDelay();
    uint32_t expected = PARKED;
    if (!mState.compare_exchange_strong(expected, FULL, std::memory_order_seq_cst)) return false;
    wake();
    return true;
}

void Mailbox::nudge() {
    if (mState.load(std::memory_order_seq_cst) == PARKED) wake();
}

void Mailbox::close() {
    mClosed.store(true, std::memory_order_seq_cst);
    wake();
}

void Mailbox::wake() {
    uint32_t expected = PARKED;
    (void)mState.compare_exchange_strong(expected, AWAY, std::memory_order_seq_cst);
    flakeDelay();
    // All sleepers: any process that maps the page could sleep here and take a single wake-up. Also
    // when the slot is full, as a sender that was killed in put() may have woken nobody.
    (void)syscall(SYS_futex, &mState, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

}  // namespace android::transport
