#pragma once

#include <binder/ProcessState.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "TestNode.h"
#include "support/ChildProcess.h"
#include "support/TempDir.h"

namespace sonorel::test {

// The test program is the context manager of a runtime folder of its own. Its node takes the nodes
// of the processes that a test starts.
class World {
public:
    static World& get() {
        static World* const sWorld = new World();
        return *sWorld;
    }
    const std::string& folder() const { return mFolder; }
    const android::sp<TestNode>& node() const { return mNode; }

private:
    World() {
        // Not removed here: the library removes its own files at exit, and the folder is in /tmp.
        static TempDir sDir;
        mFolder = sDir.path("run");
        setenv("SONOREL_RUNTIME_DIR", mFolder.c_str(), 1);
        mNode = new TestNode();
        android::ProcessState::self()->startThreadPool();
        if (android::ProcessState::self()->becomeContextManager(mNode) != android::OK) abort();
    }

    std::string mFolder;
    android::sp<TestNode> mNode;
};

// How often a test repeats what only goes wrong now and then.
inline int rounds(int usual, int longForm) {
    const char* const asked = getenv("SONOREL_ROUNDS");
    return asked != nullptr && std::string(asked) == "long" ? longForm : usual;
}

inline std::unique_ptr<ChildProcess> startPeer(const std::vector<std::string>& args,
                                               std::optional<uid_t> uid = std::nullopt,
                                               const std::string& folder = World::get().folder()) {
    return std::make_unique<ChildProcess>(ChildProcess::Options{
            SONOREL_BIN_DIR "/binder_test_peer", args, {{"SONOREL_RUNTIME_DIR", folder}}, uid, ""});
}

// A stop takes effect on each thread by itself, some time after the signal.
[[nodiscard]] inline bool stopAndWait(ChildProcess& process) {
    process.kill(SIGSTOP);
    const std::filesystem::path tasks = "/proc/" + std::to_string(process.pid()) + "/task";
    return eventually([&] {
        for (const auto& task : std::filesystem::directory_iterator(tasks)) {
            const std::string stat = readFile((task.path() / "stat").string());
            if (stat.compare(stat.rfind(')') + 1, 3, " T ") != 0) return false;
        }
        return true;
    });
}

// Another process with a node, which ends with this object.
class TestPeer {
public:
    explicit TestPeer(const std::string& name, const std::vector<std::string>& options = {},
                      std::optional<uid_t> uid = std::nullopt)
            : mName(name) {
        World& world = World::get();
        std::vector<std::string> args = {name};
        args.insert(args.end(), options.begin(), options.end());
        mChild = startPeer(args, uid);
        if (!world.node()->waitForKept(name)) ADD_FAILURE() << mChild->errors();
        mNode = world.node()->kept(name);
        world.node()->drop(name);
    }

    // A process that nobody killed must end well: a sanitizer's find shows in the exit code.
    ~TestPeer() {
        mChild->closeInput();
        const std::optional<ExitStatus> end = mChild->wait();
        EXPECT_TRUE(end.has_value());
        if (end && !mKilled) {
            EXPECT_TRUE(end->exited && end->code == 0) << mName << ": " << mChild->errors();
        }
    }
    TestPeer(const TestPeer&) = delete;
    TestPeer& operator=(const TestPeer&) = delete;

    const android::sp<android::IBinder>& node() const { return mNode; }
    ChildProcess& process() { return *mChild; }
    void kill() {
        mKilled = true;
        mChild->kill(SIGKILL);
        EXPECT_TRUE(mChild->wait());
    }

private:
    const std::string mName;
    bool mKilled = false;
    std::unique_ptr<ChildProcess> mChild;
    android::sp<android::IBinder> mNode;
};

}  // namespace sonorel::test
