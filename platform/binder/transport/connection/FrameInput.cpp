#include "FrameInput.h"

#include <errno.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <iterator>

#include "SocketIo.h"

namespace android::transport {

namespace {

constexpr size_t kUsualCapacity = size_t{16} * 1024;
/** Less room than this at the end of a block is not worth a system call. */
constexpr size_t kMinRoom = 2048;

}  // namespace

void Frame::compact() {
    const size_t size = frameSize(header) - sizeof(FrameHeader);
    BlockRef own(Block::create(size));
    if (!own) return;  // it stays where it is
    memcpy(own->data(), data, size);
    data = own->data();
    objects = reinterpret_cast<const WireObject*>(data + padTo8(header.dataSize));
    waiters = reinterpret_cast<const WireWaiter*>(objects + header.objectCount);
    block = std::move(own);
}

/** Takes the descriptors of a message; false for more than honest frames ever bring. */
bool FrameInput::takeDescriptors(std::vector<base::unique_fd> descriptors) {
    const auto count = static_cast<uint32_t>(descriptors.size());
    if (count == 0) return true;
    if (mHeld.take(mAccount, Resource::DESCRIPTORS, count)) {
        std::move(descriptors.begin(), descriptors.end(), std::back_inserter(mDescriptors));
    } else {
        mDescriptorsLost = true;
    }
    // A well-formed frame consumes its descriptors at once; a backlog means a lying sender.
    return mDescriptors.size() <= 2 * kMaxDescriptors;
}

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
    std::vector<base::unique_fd> descriptors;
    const ssize_t got = receiveMessage(socket, mBlock->data() + mEnd, mBlock->capacity() - mEnd,
                                       flags, &descriptors, &mDescriptorsLost);
    if (got < 0) return got;
    if (!takeDescriptors(std::move(descriptors))) return -EPROTO;
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

FrameInput::Result FrameInput::giveDescriptors(Frame* frame) {
    const size_t wanted = frame->header.descriptorCount;
    if (wanted == 0) return Result::FRAME;
    if (mDescriptorsLost) {
        mHeld.giveBack(Resource::DESCRIPTORS, static_cast<uint32_t>(mDescriptors.size()));
        mDescriptors.clear();
        mDescriptorsLost = false;
        frame->refused = true;
        return Result::FRAME;
    }
    if (mDescriptors.size() < wanted) return Result::BROKEN;
    for (size_t i = 0; i < wanted; ++i) {
        frame->descriptors.push_back(std::move(mDescriptors.front()));
        mDescriptors.pop_front();
    }
    mHeld.moveTo(&frame->held, Resource::DESCRIPTORS, static_cast<uint32_t>(wanted));
    return Result::FRAME;
}

/** Throws away what has come of a refused frame; then gives out its header alone. */
FrameInput::Result FrameInput::skip(Frame* outFrame) {
    const size_t step = std::min(mSkip, mEnd - mBegin);
    mBegin += step;
    mSkip -= step;
    if (mSkip > 0) return Result::PARTIAL;
    outFrame->refused = true;
    outFrame->header = mSkipped;
    const Result result = giveDescriptors(outFrame);
    outFrame->descriptors.clear();
    outFrame->header.dataSize = 0;
    return result;
}

FrameInput::Result FrameInput::next(Frame* outFrame) {
    if (mSkip > 0) return skip(outFrame);
    const size_t have = mEnd - mBegin;
    if (have < sizeof(FrameHeader)) return Result::PARTIAL;
    const uint8_t* start = mBlock->data() + mBegin;
    // Sizes are multiples of 8 and blocks are aligned, so headers and objects are aligned as well.
    FrameHeader& header = outFrame->header;
    memcpy(&header, start, sizeof(FrameHeader));
    if (!isSane(header)) return Result::BROKEN;
    const auto size = static_cast<uint32_t>(frameSize(header));
    if (size > kUsualCapacity && mLargeBytes == 0) {
        if (!mHeld.take(mAccount, Resource::BYTES, size)) {
            mSkipped = header;
            mSkip = size;
            return skip(outFrame);
        }
        mLargeBytes = size;
    }
    if (have < size) return Result::PARTIAL;
    outFrame->data = start + sizeof(FrameHeader);
    outFrame->objects =
            reinterpret_cast<const WireObject*>(outFrame->data + padTo8(header.dataSize));
    outFrame->waiters = reinterpret_cast<const WireWaiter*>(outFrame->objects + header.objectCount);
    if (!areSane(header, outFrame->objects)) return Result::BROKEN;
    outFrame->block = mBlock;
    if (mLargeBytes != 0) {
        mHeld.moveTo(&outFrame->held, Resource::BYTES, mLargeBytes);
        mLargeBytes = 0;
    }
    mBegin += size;
    if (mBlock->capacity() > kUsualCapacity) trim();  // a large frame's room goes with the frame
    const uint32_t objects = header.objectCount;
    if (objects > 0) {
        outFrame->refused = !outFrame->held.take(mAccount, Resource::REFERENCES, objects);
    }
    return giveDescriptors(outFrame);
}

}  // namespace android::transport
