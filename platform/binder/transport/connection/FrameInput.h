#pragma once

#include <android-base/unique_fd.h>
#include <sys/types.h>

#include <deque>
#include <vector>

#include "Account.h"
#include "Block.h"
#include "Wire.h"

namespace android::transport {

/** A frame as it was received; the pointers lead into `block`. */
struct Frame {
    FrameHeader header;
    const uint8_t* data = nullptr;
    const WireObject* objects = nullptr;
    const WireWaiter* waiters = nullptr;
    BlockRef block;
    std::vector<base::unique_fd> descriptors;
    /**
     * The sender's user holds all that it may, or the process has no room for the descriptors: only
     * the header is there, without objects, and the call must fail.
     */
    bool refused = false;
    Charge held;  // of its sender's account

    /** Moves the contents to a block of their own: a small frame may keep a large one. */
    void compact();
};

/**
 * Cuts the byte stream of one connection into frames. A hostile size never makes it allocate: room
 * grows with the bytes that have come. Used by one thread at a time.
 */
class FrameInput {
public:
    enum class Result { FRAME, PARTIAL, BROKEN };

    /** Large frames, objects and descriptors go on `account`, the sender's. */
    explicit FrameInput(Account& account) : mAccount(account) {}

    /**
     * Receives once into the buffer. Bytes received; 0 at the end of the stream; -errno, which is
     * -EAGAIN when nothing is there.
     */
    [[nodiscard]] ssize_t receive(int socket, int flags);

    /** Bytes that receive has brought so far. */
    [[nodiscard]] uint64_t received() const { return mReceived; }

    /** Adds bytes that came another way. False when there is no memory for them. */
    [[nodiscard]] bool append(const void* bytes, size_t size);

    /** Takes the next frame. PARTIAL: receive more. BROKEN: these bytes are no frame. */
    [[nodiscard]] Result next(Frame* outFrame);

    /** Gives back the room of an input in which no part of a frame waits. */
    void trim() {
        if (!isEmpty()) return;
        mBlock = BlockRef();
        mBegin = mEnd = 0;
    }

    /** True when no part of a frame waits here. */
    [[nodiscard]] bool isEmpty() const { return mBegin == mEnd; }

private:
    [[nodiscard]] bool makeRoom();
    [[nodiscard]] size_t wantedCapacity() const;
    [[nodiscard]] bool takeDescriptors(std::vector<base::unique_fd> descriptors);
    [[nodiscard]] Result skip(Frame* outFrame);
    [[nodiscard]] Result giveDescriptors(Frame* frame);

    Account& mAccount;
    BlockRef mBlock;
    size_t mBegin = 0;  // first byte that no frame has taken
    size_t mEnd = 0;    // first byte not received
    uint64_t mReceived = 0;
    std::deque<base::unique_fd> mDescriptors;
    bool mDescriptorsLost = false;
    Charge mHeld;               // for mDescriptors, and a large frame that is being received
    uint32_t mLargeBytes = 0;   // of that
    FrameHeader mSkipped = {};  // of a refused frame
    size_t mSkip = 0;           // bytes of it that are still to be thrown away
};

}  // namespace android::transport
