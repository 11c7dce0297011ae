#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/mman.h>

#include <atomic>
#include <new>
#include <utility>

namespace android::transport {

/**
 * Counted bytes that a connection receives into. Parcels refer to the bytes without copying them,
 * so a block is written again only where nothing refers to it.
 */
class Block {
public:
    /** Null when memory is short. */
    [[nodiscard]] static Block* create(size_t capacity) {
        const size_t size = sizeof(Block) + capacity;
        void* memory = nullptr;
        if (isMapped(capacity)) {
            memory =
                    mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
            if (memory == MAP_FAILED) return nullptr;
        } else {
            memory = malloc(size);
            if (memory == nullptr) return nullptr;
        }
        return new (memory) Block(capacity);
    }
    Block(const Block&) = delete;
    Block& operator=(const Block&) = delete;

    void ref() { mCount.fetch_add(1, std::memory_order_relaxed); }
    void unref() {
        if (mCount.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
        if (isMapped(mCapacity)) {
            (void)munmap(this, sizeof(Block) + mCapacity);  // fails for no mapping of ours
        } else {
            free(this);
        }
    }
    /** True when the asking holder is the only one, and sees all that earlier holders did. */
    [[nodiscard]] bool isUnique() const { return mCount.load(std::memory_order_acquire) == 1; }

    [[nodiscard]] uint8_t* data() { return reinterpret_cast<uint8_t*>(this + 1); }
    [[nodiscard]] size_t capacity() const { return mCapacity; }

private:
    /** The heap would keep the room of a large message for good. */
    static bool isMapped(size_t capacity) { return capacity >= size_t{64} * 1024; }

    explicit Block(size_t capacity) : mCapacity(capacity) {}
    ~Block() = default;

    std::atomic<size_t> mCount{1};
    const size_t mCapacity;
};
static_assert(sizeof(Block) % 16 == 0, "the bytes behind it are aligned as malloc aligns");

/** Holds one count of a block. */
class BlockRef {
public:
    BlockRef() = default;
    /** Takes over the count that `block` comes with. */
    explicit BlockRef(Block* block) : mBlock(block) {}
    BlockRef(const BlockRef& other) : mBlock(other.mBlock) {
        if (mBlock != nullptr) mBlock->ref();
    }
    BlockRef(BlockRef&& other) noexcept : mBlock(std::exchange(other.mBlock, nullptr)) {}
    BlockRef& operator=(const BlockRef& other) { return *this = BlockRef(other); }
    BlockRef& operator=(BlockRef&& other) noexcept {
        std::swap(mBlock, other.mBlock);
        return *this;
    }
    ~BlockRef() {
        if (mBlock != nullptr) mBlock->unref();
    }

    [[nodiscard]] Block* get() const { return mBlock; }
    Block* operator->() const { return mBlock; }
    explicit operator bool() const { return mBlock != nullptr; }
    /** Hands the count to the caller, who unrefs it. */
    [[nodiscard]] Block* release() { return std::exchange(mBlock, nullptr); }

private:
    Block* mBlock = nullptr;
};

}  // namespace android::transport
