#include <gtest/gtest.h>
#include <log/log.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>

#include "support/ChildProcess.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace sonorel::test {
namespace {

TEST(TempDir, GoesWithItsContents) {
    std::string path;
    {
        TempDir dir;
        path = dir.path();
        EXPECT_EQ("text", readFile(dir.write("a/b/file", "text")));
    }
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(ChildProcess, StreamsArgumentsEnvironmentAndExitCode) {
    TempDir dir;
    ChildProcess child({"/bin/sh",
                        {"-c", "echo first; read x; echo \"got $x $V\"; pwd; echo bad >&2; exit 7"},
                        {{"V", "value"}},
                        std::nullopt,
                        dir.path()});
    std::string line;
    ASSERT_TRUE(child.waitForLine("first"));
    ASSERT_TRUE(child.write("word\n"));
    ASSERT_TRUE(child.waitForLine("word", kEventDeadline, &line));
    EXPECT_EQ("got word value", line);
    const auto status = child.wait();
    ASSERT_TRUE(status);
    EXPECT_TRUE(status->exited);
    EXPECT_EQ(7, status->code);
    EXPECT_NE(std::string::npos, child.output().find(dir.path()));
    EXPECT_EQ("bad\n", child.errors());
    EXPECT_FALSE(child.waitForLine("never written"));
}

TEST(ChildProcess, SignalsAndMissingProgram) {
    ChildProcess child({"/bin/cat", {}, {}, std::nullopt, ""});
    child.kill(SIGTERM);
    const auto status = child.wait();
    ASSERT_TRUE(status);
    EXPECT_FALSE(status->exited);
    EXPECT_EQ(SIGTERM, status->signal);

    ChildProcess missing({"/no/such/program", {}, {}, std::nullopt, ""});
    EXPECT_EQ(127, missing.wait()->code) << missing.errors();
    EXPECT_NE(std::string::npos, missing.errors().find("No such file"));
}

TEST(ChildProcess, ReadsMoreThanAPipeHolds) {
    ChildProcess child({"/bin/sh", {"-c", "head -c 300000 /dev/zero"}, {}, std::nullopt, ""});
    ASSERT_TRUE(child.wait());
    EXPECT_EQ(300000U, child.output().size());
}

TEST(ChildProcess, RunsUnderAnotherUid) {
    if (getuid() != 0) GTEST_SKIP() << "only root may change its uid";
    ChildProcess child({"/usr/bin/id", {"-u"}, {}, 1041, ""});
    ASSERT_TRUE(child.wait());
    EXPECT_EQ("1041\n", child.output());
}

TEST(LogCapture, RecordsAndRestores) {
    const int earlier = __android_log_get_minimum_priority();
    {
        LogCapture capture;
        std::thread other([] { __android_log_print(ANDROID_LOG_DEBUG, "tag", "%s", "hello"); });
        EXPECT_TRUE(capture.waitFor("hello"));
        other.join();
        ASSERT_EQ(1U, capture.lines().size());
        EXPECT_EQ("tag", capture.lines()[0].tag);
        EXPECT_EQ(ANDROID_LOG_DEBUG, capture.lines()[0].priority);
        __android_log_print(ANDROID_LOG_VERBOSE, "tag", "too low");
        EXPECT_EQ(1U, capture.count("hello"));
        EXPECT_FALSE(capture.contains("too low"));
    }
    EXPECT_EQ(earlier, __android_log_get_minimum_priority());
}

TEST(Eventually, AsksUntilTrueOrTheDeadline) {
    int asked = 0;
    EXPECT_TRUE(eventually([&] { return ++asked == 3; }));
    EXPECT_FALSE(eventually([] { return false; }, std::chrono::milliseconds(5)));
}

}  // namespace
}  // namespace sonorel::test
