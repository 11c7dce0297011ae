#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <random>
#include <thread>

#include "TransportTest.h"

namespace sonorel::test {
namespace {

using android::DEAD_OBJECT;
using android::IBinder;
using android::OK;
using android::sp;
using android::wp;

class Recipient : public IBinder::DeathRecipient {
public:
    void binderDied(const wp<IBinder>& who) override {
        // Allowed in here, and harmless.
        if (const sp<IBinder> object = who.promote(); object != nullptr)
            (void)object->unlinkToDeath(this);
        char name[32] = {};
        pthread_getname_np(pthread_self(), name, sizeof(name));
        const std::lock_guard lock(mMutex);
        ++count;
        dead = who;
        thread = name;
        mChanged.notify_all();
    }
    [[nodiscard]] bool wait() {
        std::unique_lock lock(mMutex);
        return mChanged.wait_for(lock, kEventDeadline, [this] { return count > 0; });
    }

    // To be read after wait().
    std::atomic<int> count{0};
    std::string thread;
    wp<IBinder> dead;

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
};

TEST(Death, IsToldOnceOnABinderThread) {
    TestPeer peer("dies");
    const sp<Recipient> recipient = new Recipient();
    ASSERT_EQ(OK, peer.node()->linkToDeath(recipient));
    EXPECT_TRUE(peer.node()->isBinderAlive());
    EXPECT_EQ(android::INVALID_OPERATION, World::get().node()->linkToDeath(recipient)) << "local";
    peer.kill();
    ASSERT_TRUE(recipient->wait());
    EXPECT_EQ(0U, recipient->thread.find("binder:"));
    EXPECT_EQ(peer.node(), recipient->dead.promote());
    EXPECT_FALSE(peer.node()->isBinderAlive());
    EXPECT_EQ(DEAD_OBJECT, peer.node()->pingBinder());
    EXPECT_EQ(DEAD_OBJECT, callNote(peer.node(), 1));
    EXPECT_EQ(DEAD_OBJECT, peer.node()->linkToDeath(recipient));
    EXPECT_EQ(DEAD_OBJECT, peer.node()->unlinkToDeath(recipient));
    // A second death goes through the same threads: had the first one been told twice, it would
    // show.
    TestPeer second("dies-too");
    const sp<Recipient> other = new Recipient();
    ASSERT_EQ(OK, second.node()->linkToDeath(other));
    EXPECT_EQ(DEAD_OBJECT, Call(second.node(), TestNode::EXIT).status);
    EXPECT_FALSE(second.node()->isBinderAlive()) << "known as soon as the caller knows";
    ASSERT_TRUE(other->wait());
    EXPECT_EQ(1, recipient->count);
}

TEST(Death, UnlinkedAndReleasedRecipientsAreNotTold) {
    TestPeer peer("unlinked");
    const sp<Recipient> stays = new Recipient();
    const sp<Recipient> leaves = new Recipient();
    sp<Recipient> released = new Recipient();
    const wp<Recipient> trace = released;
    ASSERT_EQ(OK, peer.node()->linkToDeath(leaves));
    ASSERT_EQ(OK, peer.node()->linkToDeath(released));
    ASSERT_EQ(OK, peer.node()->linkToDeath(stays));
    released = nullptr;
    EXPECT_EQ(nullptr, trace.promote()) << "a link does not keep its recipient";
    EXPECT_EQ(OK, peer.node()->unlinkToDeath(leaves));
    EXPECT_EQ(android::NAME_NOT_FOUND, peer.node()->unlinkToDeath(leaves));
    peer.kill();
    ASSERT_TRUE(stays->wait());
    EXPECT_EQ(0, leaves->count);
}

long entriesOf(const std::string& folder) {
    return std::distance(std::filesystem::directory_iterator(folder), {});
}

TEST(Death, AtAnyMomentLeavesNothingBehind) {
    const uint32_t seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    // With what an earlier test has just left, perhaps.
    long sockets = entriesOf(World::get().folder());
    long descriptors = entriesOf("/proc/self/fd");
    const int nodes = TestNode::liveNodes();
    for (int round = rounds(50, 1000); round > 0; --round) {
        {
            TestPeer victim("victim");
            const sp<TestNode> mine = new TestNode();
            ASSERT_EQ(OK, callKeep(victim.node(), "mine", mine));
            // It calls here on a thread of its own and inside of a call, and is called, all with
            // references, until it is killed.
            std::vector<std::thread> threads;
            EXPECT_EQ(OK, Call(victim.node(), TestNode::STORM | TestNode::ONE_WAY, "mine").status);
            threads.emplace_back([&] {
                EXPECT_EQ(DEAD_OBJECT, Call(victim.node(), TestNode::STORM, "mine").status);
            });
            const unsigned last = random() % 100;
            std::atomic<unsigned> calls{0};
            for (int i = 0; i < 2; ++i) {
                threads.emplace_back([&] {
                    while (callKeep(victim.node(), "theirs", new TestNode()) == OK &&
                           callGive(victim.node(), "theirs") != nullptr) {
                        if (++calls == last + 1) victim.process().kill(SIGKILL);
                    }
                });
            }
            for (std::thread& thread : threads)
                thread.join();
            victim.kill();
        }
        ASSERT_TRUE(eventually([&] {
            descriptors = std::min(descriptors, entriesOf("/proc/self/fd"));
            sockets = std::min(sockets, entriesOf(World::get().folder()));
            return TestNode::liveNodes() == nodes && entriesOf("/proc/self/fd") == descriptors &&
                   entriesOf(World::get().folder()) == sockets;
        })) << TestNode::liveNodes()
            << " for " << nodes << " nodes, " << entriesOf("/proc/self/fd") << " for "
            << descriptors << " descriptors, " << entriesOf(World::get().folder()) << " for "
            << sockets << " sockets, " << round << " rounds to go";
    }
}

TEST(Death, IsSeenByAProcessThatOnlyHolds) {
    TestPeer victim("victim");
    const TestPeer watcher("watcher");
    ASSERT_EQ(OK, callKeep(watcher.node(), "victim", victim.node()));
    const auto isAlive = [&] {
        return Call(watcher.node(), TestNode::ALIVE, "victim").reply.readBool();
    };
    EXPECT_TRUE(isAlive());
    victim.kill();
    // Asked again and again, as the watcher has nobody to tell.
    EXPECT_TRUE(eventually([&] { return !isAlive(); }));
    const sp<IBinder> victimThere = callGive(watcher.node(), "victim");
    ASSERT_NE(nullptr, victimThere);
    EXPECT_FALSE(victimThere->isBinderAlive()) << "a dead object can still be handed on";
}

TEST(Manager, OnlyOneAtATimeAndReplacedAfterItsDeath) {
    // The second path is longer than a socket's address.
    for (const std::string& subfolder : {std::string("run"), std::string(150, 'x')}) {
        const TempDir dir;
        const auto start = [&](const std::vector<std::string>& args) {
            return startPeer(args, std::nullopt, dir.path(subfolder));
        };
        const auto first = start({"first", "--manager"});
        ASSERT_TRUE(first->waitForOutput("ready")) << first->errors();
        const auto second = start({"second", "--manager"});
        ASSERT_TRUE(second->waitForOutput("manager: " + std::to_string(android::ALREADY_EXISTS)));
        first->kill(SIGKILL);
        ASSERT_TRUE(first->wait());
        const auto orphan = start({"orphan"});
        EXPECT_TRUE(orphan->waitForOutput("no context manager")) << "its name leads nowhere";
        const auto third = start({"third", "--manager"});
        ASSERT_TRUE(third->waitForOutput("ready"));
        const auto client = start({"client"});
        EXPECT_TRUE(client->waitForOutput("ready")) << client->errors();
    }
}

}  // namespace
}  // namespace sonorel::test
