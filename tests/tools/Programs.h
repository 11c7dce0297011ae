#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "support/ChildProcess.h"
#include "support/TempDir.h"

namespace sonorel::test {

using Args = std::vector<std::string>;

struct Ended {
    int code;  // -1 when a signal ended it
    std::string output;
    std::string errors;
};

// The real programs, meeting in a folder of their own.
class Programs : public ::testing::Test {
protected:
    std::unique_ptr<ChildProcess> start(const char* program, const Args& args,
                                        std::optional<uid_t> uid = std::nullopt) {
        return std::make_unique<ChildProcess>(
                ChildProcess::Options{std::string(SONOREL_BIN_DIR) + "/" + program,
                                      args,
                                      {{"SONOREL_RUNTIME_DIR", mRuntime.path()},
                                       {"SONOREL_DEVICE_ROOT", ""},
                                       {"SONOREL_PROPERTIES", ""}},
                                      uid,
                                      mOutside.path()});
    }

    static Ended end(ChildProcess& child) {
        const std::optional<ExitStatus> status = child.wait();
        EXPECT_TRUE(status) << child.output() << child.errors();
        EXPECT_TRUE(!status || status->exited) << "signal " << status->signal << "\n"
                                               << child.errors();
        return {status && status->exited ? status->code : -1, child.output(), child.errors()};
    }

    Ended run(const char* program, const Args& args, std::optional<uid_t> uid = std::nullopt) {
        const auto child = start(program, args, uid);
        return end(*child);
    }

    Ended ctl(const Args& args, std::optional<uid_t> uid = std::nullopt) {
        return run("sonorelctl", args, uid);
    }

    std::unique_ptr<ChildProcess> startHost(const Args& more = {}) {
        Args args{"--root", mRoot.path()};
        args.insert(args.end(), more.begin(), more.end());
        auto host = start("sonoreld", args);
        EXPECT_TRUE(host->waitForLine("SonorelService ready")) << host->errors();
        return host;
    }

    // Without a headset the service relays no mode to its clients.
    void connectHeadset() {
        EXPECT_EQ(0, ctl({"call", "notitySpHeadsetConnectionState", "true"}).code);
    }

    std::unique_ptr<ChildProcess> startListener(const Args& more) {
        Args args{"listen", "--id", "1"};
        args.insert(args.end(), more.begin(), more.end());
        auto listener = start("sonorelctl", args);
        EXPECT_TRUE(listener->waitForError("listening as client 1")) << listener->errors();
        return listener;
    }

    static std::string pidOf(const ChildProcess& child) { return std::to_string(child.pid()); }

    TempDir mRoot;
    TempDir mRuntime;
    TempDir mOutside;  // where the programs are started
};

}  // namespace sonorel::test
