#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "support/ChildProcess.h"
#include "support/TempDir.h"

namespace sonorel::test {
namespace {

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

    TempDir mRoot;
    TempDir mRuntime;
    TempDir mOutside;  // where the programs are started
};

TEST_F(Programs, ServeUntilASignal) {
    for (const int signal : {SIGTERM, SIGINT}) {
        const auto host = startHost();
        const Ended list = ctl({"list"});
        EXPECT_EQ(0, list.code) << list.errors;
        EXPECT_NE(std::string::npos, list.output.find("SonorelService\n")) << list.output;
        for (const Args& args : {Args{"dump"}, Args{"dump", "--", "-a"}}) {
            EXPECT_EQ(0U, ctl(args).output.find("1 services:\n  SonorelService\n\nlimits "));
        }
        EXPECT_EQ(0, ctl({"dump", "SonorelService", "--", "-a"}).code);
        EXPECT_EQ(3, ctl({"dump", "absent"}).code);
        const Ended call = ctl({"call", "getMetaAudioOn"});
        EXPECT_EQ(0, call.code) << call.errors;
        EXPECT_EQ("{\"return\":false}\n", call.output);
        host->kill(signal);
        EXPECT_EQ(0, end(*host).code);
        EXPECT_EQ(3, ctl({"list"}).code);
        EXPECT_EQ(3, ctl({"dump"}).code);
        EXPECT_EQ(3, ctl({"call", "getMetaAudioOn"}).code);
        // No socket stays behind.
        for (const auto& entry : std::filesystem::directory_iterator(mRuntime.path())) {
            EXPECT_FALSE(entry.is_socket()) << entry.path();
        }
    }
}

TEST_F(Programs, ListenerSeesEventsAndAnswers) {
    const auto host = startHost();
    connectHeadset();
    EXPECT_EQ("{\"return\":-1}\n", ctl({"call", "setMetaAudioMode", "1"}).output);
    const auto listener = startListener({"--answer", "status=0"});
    EXPECT_EQ("{\"return\":0}\n", ctl({"call", "setMetaAudioMode", "2"}).output);
    std::string line;
    ASSERT_TRUE(listener->waitForLine("\"mode\":2", kEventDeadline, &line));
    const auto event = nlohmann::json::parse(line);
    EXPECT_EQ(1, event["event"]);
    EXPECT_EQ("CB_SET_META_AUDIO_MODE", event["name"]);
    EXPECT_EQ("two-way", event["way"]);
    EXPECT_EQ(2, event["data"]["mode"]);

    EXPECT_EQ(0, ctl({"call", "javaCallSetCurrentPos", "3", "0.1,-0.2,0.3"}).code);
    ASSERT_TRUE(listener->waitForLine("\"data\":[0.1,-0.2,0.3]", kEventDeadline, &line));
    EXPECT_NE(std::string::npos, line.find("\"way\":\"one-way\"")) << line;
    EXPECT_NE(std::string::npos, line.find("CB_SET_CURRENT_POS")) << line;

    listener->kill(SIGTERM);
    EXPECT_EQ(0, end(*listener).code);
    EXPECT_EQ("{\"return\":-1}\n", ctl({"call", "setMetaAudioMode", "0"}).output);
}

TEST_F(Programs, OneWayCallArrivesThoughItsProgramLeavesAtOnce) {
    const auto host = startHost({"--verbose"});
    constexpr int kCalls = 20;
    for (int i = 0; i < kCalls; ++i) {
        const char* const state = i % 2 == 0 ? "true" : "false";
        EXPECT_EQ(0, ctl({"call", "notifySpHeadsetConnectionStateOneway", state}).code);
    }
    // The service starts each with such a line.
    const auto seen = [&] {
        const std::string log = host->errors();
        int count = 0;
        for (size_t at = 0; (at = log.find(" isConnected ", at)) != std::string::npos; ++at)
            ++count;
        return count;
    };
    EXPECT_TRUE(eventually([&] { return seen() >= kCalls; })) << seen();
    EXPECT_EQ(kCalls, seen());
}

TEST_F(Programs, ListenerLeavesAfterItsCount) {
    const auto host = startHost();
    // The stored settings come with the registration.
    const auto first = startListener({"--count", "1"});
    const Ended ended = end(*first);
    EXPECT_EQ(0, ended.code) << ended.errors;
    EXPECT_EQ(1, std::count(ended.output.begin(), ended.output.end(), '\n')) << ended.output;
}

TEST_F(Programs, StuckClientHoldsNeitherCallersNorTheHost) {
    const auto host = startHost();
    connectHeadset();
    // Registering pushes the stored settings, so it is already stuck in its first answer.
    const auto listener = start("sonorelctl", {"--timeout", "0", "listen", "--id", "1", "--delay",
                                               "3600000", "--answer", "status=0"});
    ASSERT_TRUE(listener->waitForLine("\"way\":\"two-way\""));
    EXPECT_EQ(4, ctl({"--timeout", "0.2", "call", "setMetaAudioMode", "1"}).code);
    const auto waiting = start("sonorelctl", {"--timeout", "0", "call", "setMetaAudioMode", "1"});
    host->kill(SIGTERM);
    EXPECT_EQ(0, end(*host).code);
    EXPECT_EQ(6, end(*listener).code);
    const int code = end(*waiting).code;
    // The call may not have been sent yet.
    EXPECT_TRUE(code == 6 || code == 3) << code;
}

TEST_F(Programs, ListenerNoticesTheServicesDeath) {
    const auto host = startHost();
    const auto listener = startListener({});
    host->kill(SIGKILL);
    const Ended ended = end(*listener);
    EXPECT_EQ(6, ended.code) << ended.errors;
    EXPECT_NE(std::string::npos, ended.errors.find("sonorelctl: the service died\n"));
}

TEST_F(Programs, SecondHostUsesTheFirstOnesManager) {
    const auto first = startHost();
    const auto second = startHost();
    EXPECT_EQ(0, ctl({"call", "testSonorelService"}).code);
    second->kill(SIGTERM);
    EXPECT_EQ(0, end(*second).code);
    first->kill(SIGTERM);
    EXPECT_EQ(0, end(*first).code);
}

TEST_F(Programs, PropertiesAndRootAreThereBeforeTheLibraryLoads) {
    mRoot.write("build.prop", "probe.root=root\nprobe.file=root\nprobe.option=root\n");
    mOutside.write("one.prop", "probe.file=one\nprobe.option=one\n");
    mOutside.write("two.prop", "probe.file=two\n");
    const Ended ended = run("sonoreld", {"--root", mRoot.path() + "/.", "--property",
                                         "probe.option=a=b", "--properties", "one.prop",
                                         "--properties", "two.prop", "--library", PROBE_LIBRARY});
    EXPECT_EQ("probe root=root file=two option=a=b cwd=" + mRoot.path() +
                      " device=" + mRoot.path() + "\n",
              ended.output);
    // The probe registers nothing.
    EXPECT_EQ(1, ended.code);
    EXPECT_NE(std::string::npos, ended.errors.find("did not accept SonorelService"))
            << ended.errors;
}

TEST_F(Programs, HostSaysWhyItCannotStart) {
    struct Case {
        Args args;
        int code;
        std::string reason;
    };
    const std::string file = mOutside.write("file", "");
    for (const Case& c : std::vector<Case>{
                 {{"--library", "absent.so"}, 1, mOutside.path() + "/absent.so: cannot open"},
                 {{"--library", file}, 1, file + ": file too short"},
                 {{"--library", OTHER_LIBRARY}, 1, "holds no SonorelService"},
                 {{"--properties", "absent"}, 1, mOutside.path() + "/absent: No such file"},
                 {{"--property", "a b=c"}, 1, "cannot set the property a b"},
                 {{"--property", "noequals"}, 2, "'noequals' is not KEY=VALUE"},
                 {{"--root", "absent"}, 2, "absent: No such file or directory"},
                 {{"--root", file}, 2, file + ": not a directory"},
                 {{"--nonsense"}, 2, "--nonsense"}}) {
        const Ended ended = run("sonoreld", c.args);
        EXPECT_EQ(c.code, ended.code) << c.reason;
        EXPECT_NE(std::string::npos, ended.errors.find(c.reason)) << c.reason << "\n"
                                                                  << ended.errors;
    }
    EXPECT_EQ(0, run("sonoreld", {"--help"}).code);
    EXPECT_EQ(0, run("sonoreld", {"--version"}).code);
}

TEST_F(Programs, CtlRefusesWhatMakesNoSense) {
    // Told before any manager is looked for.
    for (const Args& args : std::vector<Args>{{},
                                              {"nonsense"},
                                              {"call"},
                                              {"call", "noSuchMethod"},
                                              {"call", "setMetaAudioMode"},
                                              {"call", "setMetaAudioMode", "128"},
                                              {"call", "setMetaAudioMode", "1", "2"},
                                              {"call", "getMetaAudioOn", "--size", "3"},
                                              {"dump", "one", "two"},
                                              {"listen"},
                                              {"listen", "--id", "128"},
                                              {"listen", "--id", "1", "--answer", "colour=1"},
                                              {"--timeout", "-1", "list"},
                                              {"listen", "--id", "1", "--delay", "-1"}}) {
        const Ended ended = ctl(args);
        EXPECT_EQ(2, ended.code) << ::testing::PrintToString(args) << ended.errors;
        EXPECT_NE("", ended.errors) << ::testing::PrintToString(args);
    }
    const Ended list = ctl({"call", "--list"});
    EXPECT_EQ(0, list.code);
    EXPECT_NE(std::string::npos,
              list.output.find("getMssTracksGain(String pkgName, out float[] gains) -> int\n"));
}

TEST_F(Programs, ArgumentsMayBeNegative) {
    const auto host = startHost();
    EXPECT_EQ(0, ctl({"call", "javaCallSetCurrentPos", "3", "-0.5,0,1"}).code);
    EXPECT_EQ(0, ctl({"call", "setMetaAudioMode", "-1"}).code);
    EXPECT_EQ(0, ctl({"call", "getCurrentPosWithDev", "--size", "3", "--", "3", "-1"}).code);
}

TEST_F(Programs, CallersOfOtherUidsNeedAGrant) {
    if (getuid() != 0) GTEST_SKIP() << "only root may start programs under other uids";
    constexpr uid_t kStranger = 54321;
    constexpr uid_t kAudioServer = 1041;
    const auto host = startHost();
    connectHeadset();
    const auto listener = startListener({"--answer", "status=7"});
    const Args call{"call", "setMetaAudioMode", "2"};
    if (ctl({"--version"}, kStranger).code != 0)
        GTEST_SKIP() << "the programs are not for everyone";
    // Refused: the value that the answer started with.
    EXPECT_EQ("{\"return\":0}\n", ctl(call, kStranger).output);
    EXPECT_EQ("{\"return\":7}\n", ctl(call, kAudioServer).output);
    EXPECT_EQ(5, ctl({"dump"}, kStranger).code);
    mRoot.write("data/system/permission.grants", "com.qelto.permission.safe.MEDIA 54321\n");
    EXPECT_EQ("{\"return\":7}\n", ctl(call, kStranger).output);

    // Nor may a stranger publish a service of the name.
    const Ended other = run("sonoreld", {"--root", mRoot.path()}, kStranger);
    EXPECT_EQ(1, other.code);
    EXPECT_NE(std::string::npos, other.errors.find("kept the SonorelService of another process"))
            << other.errors;
}

}  // namespace
}  // namespace sonorel::test
