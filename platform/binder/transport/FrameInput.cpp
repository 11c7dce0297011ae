#include "FrameInput.h"

#include <errno.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>

#include "FlakeDelay.h"

namespace android::transport {

namespace {

constexpr size_t kUsualCapacity = size_t{16} * 1024;
/** Less room than this at the end of a block is not worth a system call. */
constexpr size_t kMinRoom = 2048;

/** Takes the descriptors of a message into `outDescriptors`; false when the kernel dropped some. */
bool takeAncillary(msghdr* message, std::deque<base::unique_fd>* outDescriptors) {
    for (cmsghdr* part = CMSG_FIRSTHDR(message); part != nullptr;
         part = CMSG_NXTHDR(message, part)) {
        if (part->cmsg_level != SOL_SOCKET || part->cmsg_type != SCM_RIGHTS) continue;
        const size_t count = (part->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (size_t i = 0; i < count; ++i) {
            int fd;
            memcpy(&fd, CMSG_DATA(part) + i * sizeof(int), sizeof(fd));
            outDescriptors->emplace_back(fd);
        }
    }
    return (message->msg_flags & MSG_CTRUNC) == 0;
}

}  // namespace

size_t FrameInput::wantedCapacity() const {
    const size_t have = mEnd - mBegin;
    if (have < sizeof(FrameHeader)) return kUsualCapacity;
    FrameHeader header;
    memcpy(&header, mBlock.get()->data() + mBegin, sizeof(header));
    // next() has looked at the header already, so the size is within its bound.
    return std::max(kUsualCapacity, std::min(frameSize(header), 4 * have + kUsualCapacity));
}

bool FrameInput::makeRoom() {
    const size_t have = mEnd - mBegin;
    if (mBlock && mBlock->isUnique()) {
        if (have == 0) {
            mBegin = mEnd = 0;
            // A large message is rare: do not keep its room for ever.
            if (mBlock->capacity() > 4 * kUsualCapacity) mBlock = BlockRef();
        } else if (mBegin > 0 && wantedCapacity() <= mBlock->capacity()) {
            memmove(mBlock->data(), mBlock->data() + mBegin, have);
            mBegin = 0;
            mEnd = have;
        }
    }
    if (mBlock && mBlock->capacity() - mEnd >= kMinRoom) return true;
    BlockRef fresh(Block::create(std::max(wantedCapacity(), have + kMinRoom)));
    if (!fresh) return false;
    if (have > 0) memcpy(fresh->data(), mBlock->data() + mBegin, have);
    mBlock = std::move(fresh);
    mBegin = 0;
    mEnd = have;
    return true;
}

ssize_t FrameInput::receive(int socket, int flags) {
    if (!makeRoom()) return -ENOMEM;
    alignas(cmsghdr) char ancillary[CMSG_SPACE(kMaxDescriptors * sizeof(int))];
    iovec room = {mBlock->data() + mEnd, mBlock->capacity() - mEnd};
    msghdr message = {};
    message.msg_iov = &room;
    message.msg_iovlen = 1;
    message.msg_control = ancillary;
    message.msg_controllen = sizeof(ancillary);
    flakeDelay();
    ssize_t got;
    do {
        got = recvmsg(socket, &message, flags | MSG_CMSG_CLOEXEC);
    } while (got < 0 && errno == EINTR);
    if (got < 0) return -errno;
    if (message.msg_controllen > 0 && !takeAncillary(&message, &mDescriptors)) {
        mDescriptorsLost = true;
    }
    // Honest frames take theirs at once; the rest belongs to somebody who counts wrongly.
    if (mDescriptors.size() > 2 * kMaxDescriptors) return -EPROTO;
    mEnd += got;
    mReceived += got;
    return got;
}

bool FrameInput::append(const void* bytes, size_t size) {
    const auto* next = static_cast<const uint8_t*>(bytes);
    while (size > 0) {
        if (!makeRoom()) return false;
        const size_t step = std::min(size, mBlock->capacity() - mEnd);
        memcpy(mBlock->data() + mEnd, next, step);
        mEnd += step;
        next += step;
        size -= step;
    }
    return true;
}

FrameInput::Result FrameInput::takeDescriptors(Frame* frame) {
    frame->descriptorsLost = false;
    const size_t wanted = frame->header.descriptorCount;
    if (wanted == 0) return Result::FRAME;
    if (mDescriptors.size() < wanted) {
        if (!mDescriptorsLost) return Result::BROKEN;
        mDescriptors.clear();
        mDescriptorsLost = false;
        frame->descriptorsLost = true;
        return Result::FRAME;
    }
    for (size_t i = 0; i < wanted; ++i) {
        frame->descriptors.push_back(std::move(mDescriptors.front()));
        mDescriptors.pop_front();
    }
    return Result::FRAME;
}

FrameInput::Result FrameInput::next(Frame* outFrame) {
    const size_t have = mEnd - mBegin;
    if (have < sizeof(FrameHeader)) return Result::PARTIAL;
    const uint8_t* start = mBlock->data() + mBegin;
    // Sizes are multiples of 8 and blocks are aligned, so headers and objects are aligned as well.
    memcpy(&outFrame->header, start, sizeof(FrameHeader));
    if (!isSane(outFrame->header)) return Result::BROKEN;
    const size_t size = frameSize(outFrame->header);
    if (have < size) return Result::PARTIAL;
    outFrame->data = start + sizeof(FrameHeader);
    outFrame->objects =
            reinterpret_cast<const WireObject*>(outFrame->data + padTo8(outFrame->header.dataSize));
    if (!areSane(outFrame->header, outFrame->objects)) return Result::BROKEN;
    outFrame->block = mBlock;
    outFrame->descriptors.clear();
    mBegin += size;
    return takeDescriptors(outFrame);
}

}  // namespace android::transport
