#include <limits>
#include <memory>

#include <android-base/unique_fd.h>
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <binder/ServiceManager.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <future>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "binder/FakeRemoteBinder.h"
#include "platform/binder/DumpText.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

using namespace android;
using sonorel::test::FakeRemoteBinder;
using sonorel::test::LogCapture;
using sonorel::test::readFile;
using sonorel::test::TempDir;

namespace {

constexpr int kFlags = IServiceManager::DUMP_FLAG_PRIORITY_DEFAULT;
constexpr char kGrants[] = "data/system/permission.grants";

// The identity of the thread as if it served a call of `uid`.
class ScopedCaller {
public:
    explicit ScopedCaller(uid_t uid) : mEarlier(IPCThreadState::self()->clearCallingIdentity()) {
        IPCThreadState::self()->restoreCallingIdentity((static_cast<int64_t>(uid) << 32) | 4321);
    }
    ~ScopedCaller() { IPCThreadState::self()->restoreCallingIdentity(mEarlier); }
    ScopedCaller(const ScopedCaller&) = delete;
    ScopedCaller& operator=(const ScopedCaller&) = delete;

private:
    const int64_t mEarlier;
};

// The manager in this process, and a client's view of it as over a connection.
class ServiceManagerTest : public testing::Test {
protected:
    ServiceManagerTest()
            : mManager(new ServiceManager(mRoot.path())),
              mConnection(new FakeRemoteBinder(mManager)),
              mClient(interface_cast<IServiceManager>(sp<IBinder>(mConnection))) {}

    status_t add(const char* name, const sp<IBinder>& service) {
        return mManager->addService(String16(name), service, false, kFlags);
    }
    sp<IBinder> check(const char* name) { return mClient->checkService(String16(name)); }
    bool granted(const char* permission, uid_t uid) {
        return mClient->checkPermission(String16(permission), 1, uid);
    }

    TempDir mRoot;
    sp<ServiceManager> mManager;
    sp<FakeRemoteBinder> mConnection;
    sp<IServiceManager> mClient;
};

TEST_F(ServiceManagerTest, ClientAndManagerSeeTheSameServices) {
    EXPECT_NE(static_cast<IServiceManager*>(mManager.get()), mClient.get());
    const sp<IBinder> first = new BBinder();
    const sp<IBinder> second = new BBinder();
    EXPECT_EQ(nullptr, check("b"));
    EXPECT_FALSE(mClient->isDeclared(String16("b")));
    ASSERT_EQ(OK, mClient->addService(String16("b"), first, false, kFlags));
    ASSERT_EQ(OK, mClient->addService(String16("a"), second, false,
                                      IServiceManager::DUMP_FLAG_PRIORITY_HIGH));
    EXPECT_EQ(first, check("b"));
    EXPECT_EQ(first, mClient->getService(String16("b")));
    EXPECT_EQ(first, mClient->waitForService(String16("b")));
    EXPECT_EQ(second, mManager->getService(String16("a")));
    EXPECT_TRUE(mClient->isDeclared(String16("b")));

    const Vector<String16> all = mClient->listServices(IServiceManager::DUMP_FLAG_PRIORITY_ALL);
    ASSERT_EQ(2U, all.size());
    EXPECT_EQ(String16("a"), all[0]);
    EXPECT_EQ(String16("b"), all[1]);
    const Vector<String16> high = mClient->listServices(IServiceManager::DUMP_FLAG_PRIORITY_HIGH);
    ASSERT_EQ(1U, high.size());
    EXPECT_EQ(String16("a"), high[0]);
}

TEST_F(ServiceManagerTest, NamesAreChecked) {
    const sp<IBinder> service = new BBinder();
    for (const std::string& name :
         {std::string("x"), std::string("media.audio_policy/Default-1"), std::string(127, 'n')}) {
        EXPECT_EQ(OK, add(name.c_str(), service)) << name;
        EXPECT_EQ(service, check(name.c_str())) << name;
    }
    for (const std::string& name :
         {std::string(), std::string(128, 'n'), std::string("a b"), std::string("a:b"),
          std::string("\u00e9"), std::string("a\n")}) {
        EXPECT_EQ(BAD_VALUE, add(name.c_str(), service)) << name;
        // A bad name is answered at once, however long the wait would be.
        EXPECT_EQ(nullptr, mClient->waitForService(String16(name.c_str()))) << name;
        EXPECT_EQ(nullptr, mManager->waitForService(String16(name.c_str()))) << name;
    }
    EXPECT_EQ(BAD_VALUE, add("null", nullptr));
    EXPECT_EQ(BAD_VALUE, mClient->addService(String16("null"), nullptr, false, kFlags));
}

TEST_F(ServiceManagerTest, OnlySystemCallersMayAdd) {
    const sp<IBinder> service = new BBinder();
    for (const uid_t uid : {uid_t{0}, uid_t{1000}, uid_t{1041}, ::getuid()}) {
        const ScopedCaller caller(uid);
        EXPECT_EQ(OK, add("allowed", service)) << uid;
    }
    for (const uid_t uid : {uid_t{1}, uid_t{1001}, uid_t{2000}, uid_t{10041}, uid_t{101000}}) {
        if (uid == ::getuid()) continue;
        const ScopedCaller caller(uid);
        EXPECT_EQ(PERMISSION_DENIED, add("refused", service)) << uid;
        EXPECT_EQ(PERMISSION_DENIED, add("bad name", service)) << uid;
        EXPECT_EQ(service, check("allowed")) << uid;
    }
    EXPECT_EQ(nullptr, check("refused"));
}

TEST_F(ServiceManagerTest, ServiceGoesWithItsOwner) {
    const sp<FakeRemoteBinder> owner = new FakeRemoteBinder();
    const sp<IBinder> other = new BBinder();
    ASSERT_EQ(OK, add("one", owner));
    ASSERT_EQ(OK, add("two", owner));
    ASSERT_EQ(OK, add("other", other));
    owner->die();
    EXPECT_EQ(nullptr, check("one"));
    EXPECT_EQ(nullptr, check("two"));
    EXPECT_EQ(other, check("other"));
    EXPECT_EQ(DEAD_OBJECT, add("one", owner));
    EXPECT_EQ(nullptr, check("one"));
}

TEST_F(ServiceManagerTest, ReplacedServiceIsLetGo) {
    const sp<FakeRemoteBinder> first = new FakeRemoteBinder();
    const sp<FakeRemoteBinder> second = new FakeRemoteBinder();
    ASSERT_EQ(OK, add("name", first));
    ASSERT_EQ(OK, add("name", second));
    EXPECT_EQ(0U, first->linkCount());
    EXPECT_EQ(second, check("name"));
    first->die();
    EXPECT_EQ(second, check("name"));
    // The same object again keeps one link.
    ASSERT_EQ(OK, add("name", second));
    EXPECT_EQ(1U, second->linkCount());
    second->die();
    EXPECT_EQ(nullptr, check("name"));
}

TEST_F(ServiceManagerTest, WaitersGetTheServiceThatComesLater) {
    const sp<IBinder> service = new BBinder();
    const LogCapture log;
    auto remote = std::async(std::launch::async,
                             [this] { return mClient->waitForService(String16("late")); });
    auto local = std::async(std::launch::async,
                            [this] { return mManager->waitForService(String16("late")); });
    ASSERT_TRUE(log.waitFor("Waiting for service late"));
    ASSERT_EQ(OK, add("late", service));
    EXPECT_EQ(service, remote.get());
    EXPECT_EQ(service, local.get());
}

TEST_F(ServiceManagerTest, WaitEndsWhenTheManagerDies) {
    const LogCapture log;
    auto wait = std::async(std::launch::async,
                           [this] { return mClient->waitForService(String16("never")); });
    ASSERT_TRUE(log.waitFor("Waiting for service never"));
    mConnection->die();
    EXPECT_EQ(nullptr, wait.get());
    EXPECT_EQ(nullptr, mClient->getService(String16("never")));
    EXPECT_FALSE(granted("p", 0));
    EXPECT_EQ(0U, mClient->listServices(~0).size());
}

TEST_F(ServiceManagerTest, BrokenCallsAreAnsweredWithTheirError) {
    for (uint32_t code = 1; code <= 6; ++code) {
        Parcel empty;
        Parcel reply;
        EXPECT_EQ(BAD_TYPE, mManager->transact(code, empty, &reply)) << code;
        Parcel onlyToken;
        onlyToken.writeInterfaceToken(IServiceManager::descriptor);
        EXPECT_EQ(NOT_ENOUGH_DATA, mManager->transact(code, onlyToken, &reply)) << code;
    }
    Parcel data;
    Parcel reply;
    EXPECT_EQ(UNKNOWN_TRANSACTION, mManager->transact(7, data, &reply));
}

// ---- Permissions ----

TEST_F(ServiceManagerTest, RootAndSystemHoldEveryPermission) {
    EXPECT_TRUE(granted("any", 0));
    EXPECT_TRUE(granted("any", 1000));
    EXPECT_FALSE(granted("any", 1041));
}

TEST_F(ServiceManagerTest, GrantsAreReadFromTheFile) {
    const std::string path = mRoot.write(kGrants,
                                         "# who may record\n"
                                         "android.permission.RECORD 10001\n"
                                         "  android.permission.RECORD\t10002  # twice\r\n"
                                         "\n"
                                         "broken\n"
                                         "android.permission.MODIFY ten\n"
                                         "android.permission.MODIFY -1\n"
                                         "android.permission.MODIFY 4294967296\n"
                                         "android.permission.MODIFY 1 2\n"
                                         "last 7");
    const LogCapture log;
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(granted("android.permission.RECORD", 10001));
        EXPECT_TRUE(granted("android.permission.RECORD", 10002));
        EXPECT_TRUE(granted("last", 7));
        EXPECT_FALSE(granted("android.permission.MODIFY", 1));
        EXPECT_FALSE(granted("android.permission.RECOR", 10001));
        EXPECT_FALSE(granted("", 10001));
    }
    EXPECT_EQ(1U, log.count(path + ":5: not \"PERMISSION UID\": broken"));
    EXPECT_EQ(5U, log.messages().size());
}

// Edits follow each other as fast as they can: neither the size nor the time tells them apart.
TEST_F(ServiceManagerTest, AnEditIsSeenAtTheNextCheck) {
    EXPECT_FALSE(granted("p", 10001));
    for (int i = 0; i < 50; ++i) {
        mRoot.write(kGrants, "p 10001\n");
        ASSERT_TRUE(granted("p", 10001)) << i;
        ASSERT_FALSE(granted("p", 10002)) << i;
        mRoot.write(kGrants, "p 10002\n");
        ASSERT_FALSE(granted("p", 10001)) << i;
        ASSERT_TRUE(granted("p", 10002)) << i;
    }
    std::filesystem::remove(mRoot.path(kGrants));
    EXPECT_FALSE(granted("p", 10002));
}

TEST_F(ServiceManagerTest, WhatIsNoTextFileGrantsNothing) {
    std::filesystem::create_directories(mRoot.path(kGrants));
    const LogCapture log;
    EXPECT_FALSE(granted("p", 10001));
    EXPECT_FALSE(granted("p", 10001));
    EXPECT_EQ(1U, log.messages().size());
}

// ---- Dump ----

struct Ends {
    base::unique_fd out;  // of the reader
    base::unique_fd in;
};

Ends makePipe() {
    Ends ends;
    EXPECT_TRUE(base::Pipe(&ends.out, &ends.in));
    return ends;
}

Ends makeSocket(int type) {
    int fds[2] = {-1, -1};
    EXPECT_EQ(0, ::socketpair(AF_UNIX, type | SOCK_CLOEXEC, 0, fds));
    return {base::unique_fd(fds[0]), base::unique_fd(fds[1])};
}

Ends makeTerminal() {
    Ends ends{base::unique_fd(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)), {}};
    char name[64] = {};
    EXPECT_EQ(0, ::unlockpt(ends.out.get()));
    EXPECT_EQ(0, ::ptsname_r(ends.out.get(), name, sizeof(name)));
    ends.in.reset(::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC));
    return ends;
}

std::string readBytes(int fd, size_t count) {
    std::string text(count, '-');
    size_t done = 0;
    while (done < count) {
        const ssize_t read = ::read(fd, text.data() + done, count - done);
        if (read <= 0) break;
        done += static_cast<size_t>(read);
    }
    text.resize(done);
    return text;
}

TEST_F(ServiceManagerTest, DumpsForThoseWithThePermissionOnly) {
    mRoot.write(kGrants, "android.permission.DUMP 10001\n");
    ASSERT_EQ(OK, add("one", new BBinder()));
    struct Case {
        uid_t uid;
        status_t answer;
    };
    for (const auto& [uid, answer] :
         {Case{0, OK}, Case{1000, OK}, Case{::getuid(), OK}, Case{10001, OK},
          Case{10002, PERMISSION_DENIED}, Case{1041, PERMISSION_DENIED}}) {
        if (answer != OK && uid == ::getuid()) continue;
        const ScopedCaller caller(uid);
        const Ends ends = makePipe();
        Parcel data;
        ASSERT_EQ(OK, data.writeFileDescriptor(ends.in.get()));
        data.writeInt32(0);
        EXPECT_EQ(answer, mConnection->transact(IBinder::DUMP_TRANSACTION, data, nullptr, 0))
                << uid;
        pollfd written = {ends.out.get(), POLLIN, 0};
        EXPECT_EQ(answer == OK ? 1 : 0, ::poll(&written, 1, 0)) << uid;
    }
}

TEST_F(ServiceManagerTest, DumpsThatNobodyReadsComeBack) {
    ASSERT_EQ(OK, add("one", new BBinder()));
    const Ends ends = makePipe();
    ASSERT_EQ(TIMED_OUT, writeText(ends.in.get(), std::string(1 << 20, 'x'), ms2ns(50)));
    std::vector<std::future<status_t>> dumps(20);
    for (auto& dump : dumps)
        dump = std::async(std::launch::async, [&] { return mManager->dump(ends.in.get(), {}); });
    for (auto& dump : dumps)
        EXPECT_EQ(TIMED_OUT, dump.get());
}

TEST(DumpText, ArrivesOrSaysWhyNot) {
    struct Case {
        const char* kind;
        Ends (*make)();
        status_t readerless;
    };
    std::string text;
    while (text.size() < size_t{300} << 10)
        text += std::to_string(text.size());
    for (const auto& [kind, make, readerless] :
         {Case{"pipe", makePipe, -ECONNRESET},
          Case{"stream", [] { return makeSocket(SOCK_STREAM); }, -ECONNRESET},
          Case{"packets", [] { return makeSocket(SOCK_SEQPACKET); }, -ECONNRESET},
          Case{"terminal", makeTerminal, -EIO}}) {
        SCOPED_TRACE(kind);
        const Ends stuck = make();
        // Several at once: the room that one sees, another takes.
        std::vector<std::future<status_t>> writes(4);
        for (auto& write : writes)
            write = std::async(std::launch::async, writeText, stuck.in.get(), text, ms2ns(50));
        for (auto& write : writes)
            EXPECT_EQ(TIMED_OUT, write.get());
        EXPECT_EQ(0, ::fcntl(stuck.in.get(), F_GETFL) & O_NONBLOCK);

        Ends read = make();
        auto reader = std::async(std::launch::async, readBytes, read.out.get(), text.size());
        EXPECT_EQ(OK, writeText(read.in.get(), text, s2ns(30)));
        EXPECT_EQ(text, reader.get());
        read.out.reset();
        EXPECT_EQ(readerless, writeText(read.in.get(), text, ms2ns(50)));
    }
    const TempDir folder;
    const std::string path = folder.write("file", "before;");
    const base::unique_fd file(::open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
    EXPECT_EQ(OK, writeText(file.get(), text, s2ns(30)));
    EXPECT_EQ("before;" + text, readFile(path));
    for (const auto& [device, mode, answer] :
         {std::tuple(path.c_str(), O_RDONLY, status_t{-EBADF}),
          std::tuple("/dev/null", O_WRONLY, status_t{OK}),
          std::tuple("/dev/ptmx", O_RDWR | O_NOCTTY, status_t{BAD_VALUE})}) {
        const base::unique_fd fd(::open(device, mode | O_CLOEXEC));
        EXPECT_EQ(answer, writeText(fd.get(), text, s2ns(30))) << device;
    }
}

TEST_F(ServiceManagerTest, ManyThreadsMayUseItAtOnce) {
    const std::string path = mRoot.write(kGrants, "p 10001\n");
    const sp<IBinder> service = new BBinder();
    const LogCapture quiet;
    std::atomic<int> failures = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            const String16 name(std::string("s" + std::to_string(t)).c_str());
            for (int i = 0; i < 200; ++i) {
                const sp<FakeRemoteBinder> owner = new FakeRemoteBinder();
                if (mManager->addService(name, owner, false, kFlags) != OK) ++failures;
                if (mClient->checkService(name) != owner) ++failures;
                if (!mClient->checkPermission(String16("p"), 1, 10001)) ++failures;
                owner->die();
                if (mClient->checkService(name) != nullptr) ++failures;
                (void)mClient->listServices(~0);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(0, failures);
}

}  // namespace
