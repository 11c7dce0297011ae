// sonorelctl as a process, against the service in sonoreld.

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "support/Wait.h"
#include "tools/Programs.h"

namespace sonorel::test {
namespace {

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

TEST_F(Programs, TheListenersOwnDelayIsNoTimeOfTheService) {
    const auto host = startHost();
    // Registering takes three two-way events.
    const auto slow = start("sonorelctl", {"--timeout", "2", "listen", "--id", "1", "--delay",
                                           "1000", "--answer", "status=0"});
    EXPECT_TRUE(slow->waitForError("listening as client 1")) << slow->errors();
    slow->kill(SIGTERM);
    EXPECT_EQ(0, end(*slow).code);
}

TEST_F(Programs, SignalEndsAListenerThatIsStillRegistering) {
    const auto host = startHost();
    const auto stuck = start("sonorelctl", {"--timeout", "0", "listen", "--id", "1", "--delay",
                                            "3600000", "--answer", "status=0"});
    ASSERT_TRUE(stuck->waitForLine("\"way\":\"two-way\""));
    stuck->kill(SIGINT);
    EXPECT_EQ(0, end(*stuck).code);
    EXPECT_EQ(0, ctl({"call", "testSonorelService"}).code);
}

TEST_F(Programs, ListenerNoticesTheServicesDeath) {
    const auto host = startHost();
    const auto listener = startListener({});
    host->kill(SIGKILL);
    const Ended ended = end(*listener);
    EXPECT_EQ(6, ended.code) << ended.errors;
    EXPECT_NE(std::string::npos, ended.errors.find("sonorelctl: the service died\n"));
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

TEST_F(Programs, TextsArriveAsTyped) {
    const auto host = startHost();
    const auto listener = startListener({"--answer", "strValue=[a,b]{}"});
    EXPECT_EQ("{\"return\":\"[a,b]{}\"}\n", ctl({"call", "getActiveMetaList"}).output);
    std::vector<std::string> texts;
    const auto send = [&](Args args, const std::string& text) {
        args.push_back(text);
        const Ended ended = ctl(args);
        EXPECT_EQ(0, ended.code) << text << ended.errors;
        texts.push_back(text);
    };
    for (const char* text : {"[x]", "[1,2]", "[]", "", "{}", "{a}", "%%", "++", "list", "\"q\"",
                             "a\\b'", "1\n2", "\x01[", "[\x01]", "-1.5"}) {
        send({"call", "setApkWindowSize"}, text);
    }
    for (const char* text : {"-x", "--", "++", "--size=[3]", "[x]", "call", ""})
        send({"call", "setApkWindowSize", "--"}, text);

    std::vector<std::string> arrived;
    EXPECT_TRUE(eventually([&] {
        arrived.clear();
        std::istringstream lines(listener->output());
        for (std::string line; std::getline(lines, line);) {
            const auto event = nlohmann::json::parse(line, nullptr, false);
            if (event.is_object() && event["event"] == 16)
                arrived.push_back(event["data"]["strValue2"]);
        }
        return arrived.size() >= texts.size();
    }));
    EXPECT_EQ(texts, arrived);

    const auto shown = nlohmann::json::parse(ctl({"policy", "show", "--json", "--package", "[a,b]",
                                                  "--package={}", "--device=", "--device", "[c]"})
                                                     .output);
    EXPECT_EQ(R"({"[a,b]":null,"{}":null})", shown["packages"].dump());
    EXPECT_EQ(R"({"":false,"[c]":false})", shown["unsupportedDevices"].dump());
    EXPECT_EQ(0, ctl({"call", "javaCallSetCurrentPos", "3", "-0.5,0,1"}).code);
    EXPECT_EQ(0, ctl({"call", "getCurrentPosWithDev", "--size", "3", "--", "3", "-1"}).code);
}

TEST_F(Programs, SettingsTellsWhatTheDatabaseHolds) {
    const auto host = startHost({"--property", "ro.qelto.audio.support.mss=1"});
    for (const Args& args :
         {Args{"setMetaAudioOnWithDev", "true", "1"}, Args{"setMetaAudioModeWithDev", "2", "1"},
          Args{"setCurrentPosWithDev", "3", "0.5,1,-0.25", "1"},
          Args{"setMssSpatialRenderMode", "4"}, Args{"setCurrentUserID", "10"}}) {
        Args call{"call"};
        call.insert(call.end(), args.begin(), args.end());
        EXPECT_EQ(0, ctl(call).code) << args.front();
    }
    const std::string database = "data/qelto/multimedia/meta.db";
    const auto json =
            nlohmann::json::parse(ctl({"settings", "--root", mRoot.path(), "--json"}).output);
    const auto& headset = json["0"]["devices"]["headset"];
    EXPECT_EQ(true, headset["on"]);
    EXPECT_EQ(2, headset["mode"]);
    EXPECT_EQ("[0.5,1.0,-0.25]", headset["scenes"]["3"].dump());
    EXPECT_EQ(4, json["0"]["soundWidenMode"]);
    const Ended text = ctl({"settings", "--root", mRoot.path()});
    EXPECT_EQ(0, text.code) << text.errors;
    for (const char* line : {"User 0\n  headset: spatial audio on, mode 2",
                             "\n    scene 3 at [0.5,1.0,-0.25]\n", "\n  sound widening mode 4\n"})
        EXPECT_NE(std::string::npos, text.output.find(line)) << line << "\n" << text.output;

    const struct {
        const char* name;
        std::function<void(const std::string& path)> make;  // what stands at the database's place
        int code;
        std::string output;
        std::string error;
    } rows[] = {
            {"absent", [](const std::string&) {}, 2, "", "unable to open database file"},
            {"empty", [&](const std::string&) { mOutside.write("empty/" + database, ""); }, 0,
             "Nothing is stored yet.\n", ""},
            {"text",
             [&](const std::string&) { mOutside.write("text/" + database, "no database at all"); },
             2, "", "file is not a database"},
            {"folder", [](const std::string& path) { std::filesystem::create_directories(path); },
             2, "", ""},
    };
    for (const auto& row : rows) {
        const std::string root = mOutside.path(row.name);
        std::filesystem::create_directories(root);
        std::string path = root;
        path.append("/").append(database);
        row.make(path);
        const Ended ended = ctl({"settings", "--root", root});
        EXPECT_EQ(row.code, ended.code) << row.name;
        EXPECT_EQ(row.output, ended.output) << row.name;
        // Tells the file and, where SQLite has one text for it, the cause.
        std::string error = "sonorelctl: ";
        error.append(path).append(": ").append(row.error);
        EXPECT_EQ(row.code == 0 ? "" : error, ended.errors.substr(0, error.size())) << row.name;
    }
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
    const Ended other = run("sonoreld", {"--replace", "--root", mRoot.path()}, kStranger);
    EXPECT_EQ(1, other.code);
    EXPECT_NE(std::string::npos, other.errors.find("kept the SonorelService of another process"))
            << other.errors;
}

}  // namespace
}  // namespace sonorel::test
