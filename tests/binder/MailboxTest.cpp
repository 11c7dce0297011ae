// The two ways of a connection, stream and mailbox, under every interleaving that comes up.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "platform/binder/transport/Connection.h"

namespace sonorel::test {
namespace {

using android::OK;
using android::base::unique_fd;
using namespace android::transport;

const std::vector<uint8_t> kBytes(8192, 0x5a);

// Both ends of a connection in this process, each with its own mapping of the page.
struct Pair {
    Pair() {
        int sockets[2] = {-1, -1};
        EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets));
        opener = std::make_shared<Connection>(unique_fd(sockets[0]), ConnectionKind::CALL, false);
        acceptor = std::make_shared<Connection>(unique_fd(sockets[1]), ConnectionKind::CALL, true);
        opener->setPage(SharedPage::create(&page));
        acceptor->setPage(SharedPage::adopt(page));
        words = static_cast<std::atomic<uint32_t>*>(
                mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, page.get(), 0));
    }
    ~Pair() { EXPECT_EQ(0, munmap(words, 4096)); }
    Pair(const Pair&) = delete;
    Pair& operator=(const Pair&) = delete;

    unique_fd page;
    std::atomic<uint32_t>* words;  // state, size and more of the mailbox to the acceptor
    std::shared_ptr<Connection> opener;
    std::shared_ptr<Connection> acceptor;
};

constexpr uint32_t kParked = 1;
constexpr uint32_t kFull = 2;

// Sizes on both sides of what a mailbox holds, the small ones more often.
class FrameMaker {
public:
    explicit FrameMaker(unsigned seed) : mRandom(seed) {}
    OutFrame make(uint64_t number) {
        static constexpr uint32_t kSizes[] = {0, 24, 104, 200, 200, 1480, 1500, 7000};
        OutFrame frame;
        frame.header = makeHeader(FrameType::REQUEST);
        frame.header.target = number;
        frame.header.dataSize = kSizes[mRandom() % std::size(kSizes)];
        frame.data = kBytes.data();
        return frame;
    }
    bool chance() { return mRandom() % 2 == 0; }

private:
    std::minstd_rand mRandom;
};

bool isWhole(const Frame& frame) {
    return memcmp(frame.data, kBytes.data(), frame.header.dataSize) == 0;
}

// The next frame's number, or 0 at the end; `patient` as a caller, else as a thread of the pool.
uint64_t takeNumber(Connection& connection, bool patient) {
    for (;;) {
        Frame frame;
        if (connection.input().next(&frame) == FrameInput::Result::FRAME) {
            return isWhole(frame) ? frame.header.target : 0;
        }
        const ssize_t got = patient ? connection.receive() : connection.receiveSoon();
        if (got <= 0 && (patient || got != -EAGAIN)) return 0;
    }
}

TEST(Mailbox, KeepsOrderWithTheStream) {
    constexpr uint64_t kFrames = 30000;
    const Pair pair;
    uint64_t total = 0;
    std::thread sender([&] {
        FrameMaker maker(1);
        for (uint64_t i = 1; i <= kFrames; ++i) {
            while (i % 1000 == 0 && pair.words[0] != kParked)
                std::this_thread::yield();
            const OutFrame frame = maker.make(i);
            total += frameSize(frame.header);
            Connection::Posted posted = pair.opener->post(frame);
            // A full socket is left to fill the queue further, or is emptied.
            while (posted == Connection::Posted::QUEUED && maker.chance()) {
                posted = pair.opener->flush();
            }
            if (maker.chance()) std::this_thread::yield();
        }
        while (pair.opener->flush() == Connection::Posted::QUEUED) {
            std::this_thread::yield();
        }
    });
    for (uint64_t i = 1; i <= kFrames; ++i) {
        const uint64_t number = takeNumber(*pair.acceptor, /*patient*/ false);
        EXPECT_EQ(i, number);
        if (number != i) break;
    }
    pair.acceptor->end();
    sender.join();
    const uint64_t streamed = pair.acceptor->input().received();
    EXPECT_GT(streamed, 0U);
    EXPECT_LT(streamed, total) << "no frame came by the mailbox";
}

TEST(Mailbox, NoAnswerIsMissedByACallerWhoWaits) {
    constexpr uint64_t kCalls = 20000;
    const Pair pair;
    std::thread server([&] {
        FrameMaker maker(2);
        while (const uint64_t number = takeNumber(*pair.acceptor, maker.chance())) {
            EXPECT_EQ(Connection::Posted::SENT, pair.acceptor->post(maker.make(number)));
        }
    });
    FrameMaker maker(3);
    for (uint64_t i = 1; i <= kCalls; ++i) {
        if (maker.chance()) pair.opener->expect();
        EXPECT_EQ(OK, pair.opener->send(maker.make(i)));
        const uint64_t number = takeNumber(*pair.opener, /*patient*/ true);
        EXPECT_EQ(i, number);
        if (number != i) break;
    }
    pair.opener->end();
    server.join();
}

TEST(Mailbox, TheEndReachesACallerWhoWaits) {
    for (int round = 0; round < 2000; ++round) {
        const Pair pair;
        // Parked for good, as a process that is killed there: the call goes by the mailbox.
        pair.acceptor->expect();
        std::thread caller([&] {
            pair.opener->expect();
            (void)pair.opener->send(FrameMaker(4).make(1));  // fails when the end came first
            EXPECT_LE(pair.opener->receive(), 0);
        });
        for (int i = 0; i < round % 200; ++i)
            std::this_thread::yield();
        (round % 2 == 0 ? pair.opener : pair.acceptor)->end();
        caller.join();
    }
}

TEST(Mailbox, ASenderKilledBeforeItWokeTheReceiverLeavesItTheFrame) {
    const Pair pair;
    std::thread receiver([&] {
        EXPECT_EQ(static_cast<ssize_t>(sizeof(FrameHeader)), pair.acceptor->receive());
    });
    while (pair.words[0] != kParked)
        std::this_thread::yield();
    pair.words[1] = sizeof(FrameHeader);
    pair.words[0] = kFull;
    pair.acceptor->end();
    receiver.join();
}

TEST(Mailbox, WhatAStrangerWritesThereIsAFrameOrNone) {
    struct Case {
        uint32_t size;
        bool received;
    };
    for (const Case& bad : {Case{0, true},
                            {7, true},
                            {Mailbox::kSlotBytes, true},
                            {Mailbox::kSlotBytes + 1, false},
                            {UINT32_MAX, false}}) {
        const Pair pair;
        pair.acceptor->expect();
        pair.words[1] = bad.size;
        pair.words[0] = kFull;
        const ssize_t got = pair.acceptor->receiveSoon();
        Frame frame;
        if (!bad.received) {
            EXPECT_EQ(-EPROTO, got);
        } else if (bad.size >= sizeof(FrameHeader)) {
            EXPECT_EQ(static_cast<ssize_t>(bad.size), got);
            EXPECT_EQ(FrameInput::Result::BROKEN, pair.acceptor->input().next(&frame));
        } else {
            EXPECT_NE(FrameInput::Result::FRAME, pair.acceptor->input().next(&frame));
        }
        // A state that there is not, and counts that cannot be: all goes by the stream.
        pair.acceptor->expect();
        for (int i = 0; i < 8; ++i)
            pair.words[i] = UINT32_MAX;
        FrameMaker maker(5);
        EXPECT_EQ(OK, pair.opener->send(maker.make(9)));
        EXPECT_GT(pair.acceptor->receiveSoon(), 0);
    }
}

TEST(Mailbox, APageThatCouldShrinkIsRefused) {
    const unique_fd open(memfd_create("page", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    ASSERT_EQ(0, ftruncate(open.get(), 4096));
    EXPECT_EQ(nullptr, SharedPage::adopt(open));
    ASSERT_EQ(0, fcntl(open.get(), F_ADD_SEALS, F_SEAL_SHRINK));
    EXPECT_NE(nullptr, SharedPage::adopt(open));
    const unique_fd small(memfd_create("page", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    ASSERT_EQ(0, ftruncate(small.get(), 4095));
    ASSERT_EQ(0, fcntl(small.get(), F_ADD_SEALS, F_SEAL_SHRINK));
    EXPECT_EQ(nullptr, SharedPage::adopt(small));
}

TEST(Claim, ALateOneIsToldToTheHolder) {
    const Pair pair;
    EXPECT_FALSE(pair.acceptor->yield()) << "held from the start, by nobody else wanted";
    EXPECT_TRUE(pair.acceptor->claim());
    EXPECT_FALSE(pair.acceptor->yield());
    EXPECT_TRUE(pair.acceptor->claim());
    EXPECT_FALSE(pair.acceptor->claim());
    EXPECT_FALSE(pair.acceptor->claim());
    EXPECT_TRUE(pair.acceptor->yield());
    EXPECT_TRUE(pair.acceptor->claim()) << "free again";
}

}  // namespace
}  // namespace sonorel::test
