#include <binder/IPCThreadState.h>
#include <dirent.h>
#include <pthread.h>
#include <unistd.h>

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
        char name[32] = {};
        pthread_getname_np(pthread_self(), name, sizeof(name));
        const std::lock_guard lock(mMutex);
        ++mCount;
        mWho = who;
        mThread = name;
        mChanged.notify_all();
    }
    [[nodiscard]] bool wait() {
        std::unique_lock lock(mMutex);
        return mChanged.wait_for(lock, kEventDeadline, [this] { return mCount > 0; });
    }
    int count() {
        const std::lock_guard lock(mMutex);
        return mCount;
    }
    std::string thread() {
        const std::lock_guard lock(mMutex);
        return mThread;
    }
    wp<IBinder> who() {
        const std::lock_guard lock(mMutex);
        return mWho;
    }

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    int mCount = 0;
    std::string mThread;
    wp<IBinder> mWho;
};

TEST(Death, IsToldOnceOnABinderThread) {
    TestPeer peer("dies");
    const sp<Recipient> recipient = new Recipient();
    ASSERT_EQ(OK, peer.node()->linkToDeath(recipient));
    EXPECT_TRUE(peer.node()->isBinderAlive());
    peer.kill();
    ASSERT_TRUE(recipient->wait());
    EXPECT_EQ(0U, recipient->thread().find("binder:"));
    EXPECT_EQ(peer.node(), recipient->who().promote());
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
    second.kill();
    ASSERT_TRUE(other->wait());
    EXPECT_EQ(1, recipient->count());
}

TEST(Death, ByExitToo) {
    TestPeer peer("exits");
    const sp<Recipient> recipient = new Recipient();
    ASSERT_EQ(OK, peer.node()->linkToDeath(recipient));
    EXPECT_EQ(DEAD_OBJECT, callPlain(peer.node(), TestNode::EXIT));
    EXPECT_FALSE(peer.node()->isBinderAlive()) << "known as soon as the caller knows";
    EXPECT_TRUE(recipient->wait());
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
    EXPECT_EQ(0, leaves->count());
}

TEST(Death, OfALocalObjectCannotBeLinked) {
    const sp<Recipient> recipient = new Recipient();
    EXPECT_EQ(android::INVALID_OPERATION, World::get().node()->linkToDeath(recipient));
}

TEST(Death, EndsACallThatWaits) {
    TestPeer peer("blocked");
    const sp<TestNode> mine = World::get().node();
    ASSERT_EQ(OK, callKeep(peer.node(), "mine", mine));
    std::thread caller([&] { EXPECT_EQ(DEAD_OBJECT, callPlain(peer.node(), TestNode::BLOCK)); });
    // Without a word from inside the blocked call, a kill at any moment must do.
    EXPECT_EQ(OK, callEcho(peer.node(), 4));
    peer.kill();
    caller.join();
}

TEST(Death, IsSeenByAProcessThatOnlyHolds) {
    TestPeer victim("victim");
    const TestPeer watcher("watcher");
    ASSERT_EQ(OK, callKeep(watcher.node(), "victim", victim.node()));
    ASSERT_EQ(OK, callNamed(watcher.node(), TestNode::LINK, "victim"));
    victim.kill();
    // Asked again and again, as the watcher has nobody to tell.
    const sp<IBinder> victimThere = callGive(watcher.node(), "victim");
    EXPECT_TRUE(eventually(
            [&] { return callNamed(watcher.node(), TestNode::LINK, "victim") == DEAD_OBJECT; }));
    EXPECT_EQ(OK, watcher.node()->pingBinder());
    ASSERT_NE(nullptr, victimThere);
    EXPECT_FALSE(victimThere->isBinderAlive()) << "a dead object can still be handed on";
}

std::vector<std::string> socketsOf(const std::string& folder, pid_t pid) {
    std::vector<std::string> names;
    DIR* const entries = opendir(folder.c_str());
    if (entries == nullptr) return names;
    const std::string start = std::to_string(pid) + "-";
    while (const dirent* entry = readdir(entries)) {
        if (std::string(entry->d_name).compare(0, start.size(), start) == 0) {
            names.emplace_back(entry->d_name);
        }
    }
    closedir(entries);
    return names;
}

TEST(Death, LeavesNoSocketBehind) {
    const std::string folder = World::get().folder();
    TestPeer killed("killed");
    const pid_t pid = killed.process().pid();
    EXPECT_EQ(1U, socketsOf(folder, pid).size());
    killed.kill();
    EXPECT_TRUE(eventually([&] { return socketsOf(folder, pid).empty(); })) << "swept by its peer";
    pid_t exited = 0;
    {
        TestPeer peer("leaves");
        exited = peer.process().pid();
    }
    EXPECT_TRUE(socketsOf(folder, exited).empty()) << "removed at exit";
}

// Processes in a folder of their own, whose manager is one of them.
class Village {
public:
    explicit Village(const std::string& subfolder) { mFolder = mDir.path(subfolder); }
    std::unique_ptr<ChildProcess> start(const std::vector<std::string>& args) {
        ChildProcess::Options options;
        options.program = SONOREL_BIN_DIR "/binder_test_peer";
        options.args = args;
        options.env["SONOREL_RUNTIME_DIR"] = mFolder;
        return std::make_unique<ChildProcess>(options);
    }

private:
    TempDir mDir;
    std::string mFolder;
};

TEST(Manager, OnlyOneAtATimeAndReplacedAfterItsDeath) {
    Village village("run");
    auto first = village.start({"first", "--manager"});
    ASSERT_TRUE(first->waitForOutput("ready"));
    auto second = village.start({"second", "--manager"});
    ASSERT_TRUE(second->waitForOutput("manager: " + std::to_string(android::ALREADY_EXISTS)));
    first->kill(SIGKILL);
    ASSERT_TRUE(first->wait());
    auto orphan = village.start({"orphan"});
    EXPECT_TRUE(orphan->waitForOutput("no context manager")) << "the dead one's name leads nowhere";
    auto third = village.start({"third", "--manager"});
    ASSERT_TRUE(third->waitForOutput("ready"));
    auto client = village.start({"client"});
    EXPECT_TRUE(client->waitForOutput("ready"));
}

TEST(Manager, IsFoundThroughAPathLongerThanASocketAddress) {
    Village village(std::string(150, 'x'));
    auto manager = village.start({"manager", "--manager"});
    ASSERT_TRUE(manager->waitForOutput("ready")) << manager->errors();
    auto client = village.start({"client"});
    EXPECT_TRUE(client->waitForOutput("ready")) << client->errors();
}

}  // namespace
}  // namespace sonorel::test
