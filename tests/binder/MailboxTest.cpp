// The two ways of a connection, stream and mailbox, under every interleaving that comes up.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/futex.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "platform/binder/transport/connection/Connection.h"
#include "support/TempDir.h"
#include "support/Wait.h"

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
        opener = make(sockets[0], Side::OPENER, SharedPage::create(&page));
        acceptor = make(sockets[1], Side::ACCEPTOR, SharedPage::adopt(page));
        words = static_cast<std::atomic<uint32_t>*>(
                mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, page.get(), 0));
    }
    ~Pair() { EXPECT_EQ(0, munmap(words, 4096)); }
    Pair(const Pair&) = delete;
    Pair& operator=(const Pair&) = delete;

    std::shared_ptr<Connection> make(int socket, Side side, std::shared_ptr<SharedPage> mapping) {
        return std::make_shared<Connection>(OwnFd(socket), ConnectionKind::CALL, side,
                                            std::move(mapping), accounts);
    }

    Accounts accounts{usualLimits(), {geteuid()}};
    unique_fd page;
    std::atomic<uint32_t>*
            words;  // of the mailbox to the acceptor: state, size, end, -, received, -, sent
    std::shared_ptr<Connection> opener;
    std::shared_ptr<Connection> acceptor;
};

constexpr uint32_t kParked = 1;
constexpr uint32_t kFull = 2;

OutFrame makeFrame(uint64_t number, uint32_t size) {
    OutFrame frame;
    frame.header = makeHeader(FrameType::REQUEST, number);
    frame.header.dataSize = size;
    frame.data = kBytes.data();
    return frame;
}

// Sizes on both sides of what a mailbox holds, the small ones more often.
struct FrameMaker {
    OutFrame make(uint64_t number) {
        static constexpr uint32_t kSizes[] = {0, 24, 104, 200, 200, 1480, 1500, 7000};
        return makeFrame(number, kSizes[random() % std::size(kSizes)]);
    }
    bool chance() { return random() % 2 == 0; }

    std::minstd_rand random;
};

// The next frame's number, or 0 at the end; `patient` as a caller, else as a thread of the pool.
uint64_t takeNumber(Connection& connection, bool patient) {
    for (;;) {
        Frame frame;
        if (connection.input().next(&frame) == FrameInput::Result::FRAME) {
            const bool whole = memcmp(frame.data, kBytes.data(), frame.header.dataSize) == 0;
            return whole ? frame.header.target : 0;
        }
        const ssize_t got = patient ? connection.await() : connection.receiveSoon();
        // Nothing for now, or woken for nothing.
        if (got <= 0 && got != (patient ? -EINTR : -EAGAIN)) return 0;
    }
}

TEST(Mailbox, KeepsOrderWithTheStream) {
    constexpr uint64_t kFrames = 30000;
    Pair pair;
    uint64_t total = 0;
    std::thread sender([&] {
        FrameMaker maker{std::minstd_rand(1)};
        for (uint64_t i = 1; i <= kFrames; ++i) {
            // Now and then the receiver has seen all that was sent, and waits.
            while (i % 1000 == 0 && (pair.opener->flush() != Connection::Posted::SENT ||
                                     pair.words[0] != kParked || pair.words[4] != pair.words[6]))
                std::this_thread::yield();
            const OutFrame frame = maker.make(i);
            total += frameSize(frame.header);
            Connection::Posted posted = pair.opener->post(frame, Connection::Bound::ACCOUNT);
            // A full socket is left to fill the queue further, or is emptied.
            while (posted == Connection::Posted::QUEUED && maker.chance()) {
                posted = pair.opener->flush();
            }
            if (maker.chance()) std::this_thread::yield();
        }
        while (pair.opener->flush() == Connection::Posted::QUEUED)
            std::this_thread::yield();
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
    Pair pair;
    std::thread server([&] {
        FrameMaker maker{std::minstd_rand(2)};
        while (const uint64_t number = takeNumber(*pair.acceptor, maker.chance())) {
            EXPECT_EQ(Connection::Posted::SENT,
                      pair.acceptor->post(maker.make(number), Connection::Bound::ACCOUNT));
        }
    });
    FrameMaker maker{std::minstd_rand(3)};
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
        Pair pair;
        // Parked for good, as a process that is killed there: the call goes by the mailbox.
        pair.opener->expect();
        // Or one that takes its marks back: the end of this side is out of its reach.
        std::atomic<bool> lies{round % 50 == 49};
        std::thread liar([&] {
            while (lies) {
                pair.words[2] = 0;  // not closed
                pair.words[0] = kParked;
            }
        });
        std::thread caller([&] {
            pair.acceptor->expect();
            (void)pair.acceptor->send(makeFrame(1, 24));  // fails when the end came first
            EXPECT_EQ(0U, takeNumber(*pair.acceptor, /*patient*/ true));
        });
        for (int i = 0; i < round % 200; ++i)
            std::this_thread::yield();
        (round % 2 == 0 ? pair.opener : pair.acceptor)->end();
        caller.join();
        lies = false;
        liar.join();
    }
}

TEST(Mailbox, ASenderKilledBeforeItWokeTheReceiverLeavesItTheFrame) {
    Pair pair;
    std::thread receiver(
            [&] { EXPECT_EQ(static_cast<ssize_t>(sizeof(FrameHeader)), pair.acceptor->await()); });
    while (pair.words[0] != kParked)
        std::this_thread::yield();
    pair.words[1] = sizeof(FrameHeader);
    pair.words[0] = kFull;
    pair.acceptor->end();
    receiver.join();
}

// True once the thread, which has nothing else to wait for, sleeps at the mailbox.
bool fallsAsleep(const std::atomic<pid_t>& thread) {
    return eventually([&] {
        if (thread == 0) return false;
        const std::string stat = readFile("/proc/self/task/" + std::to_string(thread) + "/stat");
        const size_t name = stat.rfind(") ");
        return name != std::string::npos && stat[name + 2] == 'S';
    });
}

TEST(Mailbox, AnotherSleeperTakesNoWakeUpAway) {
    for (const char* what : {"a frame", "a frame on the stream", "the peer's end", "its own end"}) {
        Pair pair;
        pair.acceptor->expect();
        // The kernel wakes first who has slept longest.
        std::atomic<pid_t> thiefThread{0};
        std::thread thief([&] {
            thiefThread = gettid();
            (void)syscall(SYS_futex, pair.words, FUTEX_WAIT, kParked, nullptr, nullptr, 0);
        });
        EXPECT_TRUE(fallsAsleep(thiefThread));
        const bool frame = what[0] == 'a';
        std::atomic<pid_t> receiverThread{0};
        std::thread receiver([&] {
            receiverThread = gettid();
            EXPECT_EQ(frame ? 1U : 0U, takeNumber(*pair.acceptor, /*patient*/ true)) << what;
        });
        EXPECT_TRUE(fallsAsleep(receiverThread));
        if (frame) {
            EXPECT_EQ(OK, pair.opener->send(makeFrame(1, strlen(what) > 7 ? 7000 : 24)));
        } else {
            (what[0] == 't' ? pair.opener : pair.acceptor)->end();
        }
        receiver.join();
        thief.join();
    }
}

TEST(Mailbox, WhatAStrangerWritesThereIsNoFrame) {
    constexpr uint32_t kSlot = Mailbox::kSlotBytes;
    for (const auto& [size, got] :
         std::vector<std::pair<uint32_t, ssize_t>>{{0, -EAGAIN},
                                                   {7, 7},
                                                   {kSlot, kSlot},
                                                   {kSlot + 1, -EPROTO},
                                                   {UINT32_MAX, -EPROTO}}) {
        Pair pair;
        pair.acceptor->expect();
        pair.words[1] = size;
        pair.words[0] = kFull;
        EXPECT_EQ(got, pair.acceptor->receiveSoon());
        Frame frame;
        EXPECT_NE(FrameInput::Result::FRAME, pair.acceptor->input().next(&frame));
        // A state that there is not, and counts that cannot be: all goes by the stream.
        pair.acceptor->expect();
        for (int i = 0; i < 8; ++i)
            pair.words[i] = UINT32_MAX;
        EXPECT_EQ(OK, pair.opener->send(makeFrame(9, 24)));
        EXPECT_GT(pair.acceptor->receiveSoon(), 0);
    }
}

TEST(Mailbox, APageThatCouldShrinkIsRefused) {
    for (const auto& [size, seals] :
         {std::pair(4096, F_SEAL_GROW), {4095, F_SEAL_SHRINK}, {4096, F_SEAL_SHRINK}}) {
        const unique_fd page(memfd_create("page", MFD_CLOEXEC | MFD_ALLOW_SEALING));
        ASSERT_TRUE(ftruncate(page.get(), size) == 0 && fcntl(page.get(), F_ADD_SEALS, seals) == 0);
        EXPECT_EQ(size == 4096 && seals == F_SEAL_SHRINK, SharedPage::adopt(page) != nullptr);
    }
}

TEST(Claim, ALateOneIsToldToTheHolder) {
    Pair pair;
    EXPECT_TRUE(pair.acceptor->release()) << "held from the start, by nobody else wanted";
    EXPECT_TRUE(pair.acceptor->claim());
    EXPECT_FALSE(pair.acceptor->claim());
    EXPECT_FALSE(pair.acceptor->claim());
    EXPECT_FALSE(pair.acceptor->release()) << "there is something to look for";
    EXPECT_TRUE(pair.acceptor->release());
    EXPECT_TRUE(pair.acceptor->claim()) << "free again";
}

}  // namespace
}  // namespace sonorel::test
