// sonoreld as a process: start and end, a second one beside it, the signals that play the audio
// server.

#include <signal.h>

#include <algorithm>
#include <filesystem>

#include "support/Wait.h"
#include "tools/Programs.h"

namespace sonorel::test {
namespace {

class Host : public Programs {
protected:
    // Starts where it must not.
    Ended refused() { return run("sonoreld", {"--root", mRoot.path()}); }
    std::string servedBy(const ChildProcess& server) const {
        return "sonoreld: process " + pidOf(server) + " serves SonorelService in " +
               mRuntime.path() + " already; --replace takes the name from it\n";
    }
    // The stand-in for the service library.
    std::unique_ptr<ChildProcess> startProbe(bool stuck = false) {
        return startHost({"--library", PROBE_LIBRARY, "--property", "probe.serve=true",
                          "--property", stuck ? "probe.stuck=true" : "probe.stuck=false"});
    }
    static size_t count(const std::string& text, const std::string& part) {
        size_t found = 0;
        for (size_t at = 0; (at = text.find(part, at)) != std::string::npos; ++at)
            ++found;
        return found;
    }
};

TEST_F(Host, ServeUntilASignal) {
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

TEST_F(Host, PropertiesAndRootAreThereBeforeTheLibraryLoads) {
    mRoot.write("build.prop", "probe.root=root\nprobe.file=root\nprobe.option=root\n");
    mOutside.write("one.prop", "probe.file=one\nprobe.option=one\n");
    mOutside.write("two.prop", "probe.file=two\n");
    const Ended ended = run("sonoreld", {"--root", mRoot.path() + "/.", "--property",
                                         "probe.option=[a=b],{%%}\\", "--properties", "one.prop",
                                         "--properties", "two.prop", "--library", PROBE_LIBRARY});
    EXPECT_EQ("probe root=root file=two option=[a=b],{%%}\\ cwd=" + mRoot.path() +
                      " device=" + mRoot.path() + "\n",
              ended.output);
    // The probe registers nothing.
    EXPECT_EQ(1, ended.code);
    EXPECT_NE(std::string::npos, ended.errors.find("did not accept SonorelService"))
            << ended.errors;
}

TEST_F(Host, SaysWhyItCannotStart) {
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

TEST_F(Host, SecondOneIsRefused) {
    auto first = startHost();
    // Also while the first, which is the service manager too, is stopped.
    for (const bool stopped : {false, true}) {
        first->kill(stopped ? SIGSTOP : SIGCONT);
        const Ended second = refused();
        EXPECT_EQ(1, second.code);
        EXPECT_NE(std::string::npos, second.errors.find(servedBy(*first))) << second.errors;
    }
    first->kill(SIGCONT);
    EXPECT_EQ(0, ctl({"call", "testSonorelService"}).code);

    // One that takes the name is the one that is named from then on.
    const auto replacing = startHost({"--replace"});
    const Ended third = refused();
    EXPECT_EQ(1, third.code);
    EXPECT_NE(std::string::npos, third.errors.find(servedBy(*replacing))) << third.errors;
    replacing->kill(SIGTERM);
    EXPECT_EQ(0, end(*replacing).code);

    // What a killed one left is in nobody's way.
    first->kill(SIGKILL);
    EXPECT_TRUE(first->wait());
    first = startHost();
    EXPECT_EQ(0, ctl({"call", "testSonorelService"}).code);
}

TEST_F(Host, OfTwoAtOnceOneServes) {
    constexpr int kHosts = 4;
    std::vector<std::unique_ptr<ChildProcess>> hosts;
    hosts.reserve(kHosts);
    for (int i = 0; i < kHosts; ++i)
        hosts.push_back(start("sonoreld", {"--root", mRoot.path()}));
    const auto isServing = [](const std::unique_ptr<ChildProcess>& host) {
        return host->waitForLine("SonorelService ready");
    };
    const auto server = std::find_if(hosts.begin(), hosts.end(), isServing);
    ASSERT_NE(hosts.end(), server);
    for (const auto& host : hosts) {
        if (host == *server) continue;
        const Ended ended = end(*host);
        EXPECT_EQ(1, ended.code);
        EXPECT_NE(std::string::npos, ended.errors.find(servedBy(**server))) << ended.errors;
    }
    EXPECT_EQ(0, ctl({"call", "testSonorelService"}).code);
}

TEST_F(Host, WaitsForOneThatIsLeaving) {
    const auto first = startProbe(/*stuck*/ true);
    first->kill(SIGTERM);
    ASSERT_TRUE(first->waitForLine("probe finishes 1000")) << first->errors();
    const auto second = startHost();
    EXPECT_EQ(0, end(*first).code);
    EXPECT_EQ(0, ctl({"call", "testSonorelService"}).code);
}

// The service and the manager are those of a program that knows nothing of sonoreld.
TEST_F(Host, OtherProgramsServiceIsNotReplaced) {
    const auto other = start("service_manager_peer", {"pool"});
    ASSERT_TRUE(other->write("manage\n"));
    ASSERT_TRUE(other->waitForLine("manages 0")) << other->errors();
    ASSERT_TRUE(other->write("add SonorelService\n"));
    ASSERT_TRUE(other->waitForLine("added 0")) << other->errors();
    EXPECT_NE(std::string::npos, refused().errors.find(servedBy(*other)));
    other->kill(SIGSTOP);
    const Ended ended = refused();
    EXPECT_EQ(1, ended.code);
    EXPECT_NE(std::string::npos, ended.errors.find("the service manager, process " + pidOf(*other) +
                                                   ", does not answer"))
            << ended.errors;
}

TEST_F(Host, PlaysTheAudioServersDeathAndReturn) {
    const auto host = startHost();
    const std::string everything = "CB_LOAD_XML_AND_SQLITE";
    auto renderer = startListener({"--answer", "status=0"});
    EXPECT_EQ(1U, count(renderer->output(), everything));
    host->kill(SIGUSR2);
    EXPECT_TRUE(eventually([&] { return count(renderer->output(), everything) == 2; }));
    // A renderer that left before the end of the push would leave it to the next one.
    ASSERT_TRUE(host->waitForError("the audio server is back")) << host->errors();

    // A renderer that comes later gets everything only after a death.
    for (const bool died : {false, true}) {
        renderer->kill(SIGTERM);
        EXPECT_EQ(0, end(*renderer).code);
        if (died) {
            host->kill(SIGUSR1);
            ASSERT_TRUE(host->waitForError("the audio server died")) << host->errors();
        }
        renderer = startListener({"--answer", "status=0"});
        EXPECT_EQ(died ? 1U : 0U, count(renderer->output(), everything));
    }
}

TEST_F(Host, TellsAServiceWhatItCanHear) {
    const auto host = startProbe();
    EXPECT_EQ("<[a,b]><><--><-x>",
              ctl({"dump", "SonorelService", "--", "[a,b]", "", "--", "-x"}).output);
    host->kill(SIGUSR1);  // the probe has no member for it
    host->kill(SIGUSR2);
    EXPECT_TRUE(host->waitForLine("probe restarted")) << host->errors();
    host->kill(SIGINT);
    const Ended ended = end(*host);
    EXPECT_EQ(0, ended.code);
    EXPECT_NE(std::string::npos, ended.output.find("probe finishes 1000\n")) << ended.output;
}

}  // namespace
}  // namespace sonorel::test
