// "sonorelctl policy show", as a process.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "support/ChildProcess.h"
#include "support/ProjectFile.h"
#include "support/TempDir.h"
#include "tests/policy/GeneratedPolicy.h"

namespace {

using sonorel::test::projectFile;
using ::testing::HasSubstr;

struct Outcome {
    int code;
    std::string output;
    std::string errors;
};

Outcome show(const std::vector<std::string>& args, const std::string& runtimeDir = "") {
    sonorel::test::ChildProcess::Options options;
    options.program = std::string(SONOREL_BIN_DIR) + "/sonorelctl";
    options.args = {"policy", "show"};
    options.args.insert(options.args.end(), args.begin(), args.end());
    if (!runtimeDir.empty()) options.env["SONOREL_RUNTIME_DIR"] = runtimeDir;
    sonorel::test::ChildProcess child(options);
    const auto status = child.wait();
    return {status && status->exited ? status->code : -1, child.output(), child.errors()};
}

TEST(PolicyShow, ExamplePolicyAsJson) {
    const Outcome outcome =
            show({projectFile("examples/device/system_ext/etc/Meta_Audio_Policy.xml"), "--json"});
    ASSERT_EQ(0, outcome.code) << outcome.errors;
    const auto json = nlohmann::json::parse(outcome.output);
    EXPECT_EQ("20240601", json["version"]);
    EXPECT_EQ(14u, json["packages"].size());
    EXPECT_EQ(0, json["packages"]["com.example.radio"]["scene"]);
    EXPECT_EQ(true, json["packages"]["com.example.meet"]["voipApp"]);
    EXPECT_EQ(13u, json["scenes"].size());
    EXPECT_EQ(3u, json["processors"].size());
    EXPECT_EQ(2u, json["detectors"].size());
    EXPECT_EQ(4u, json["unsupportedDevices"].size());
}

TEST(PolicyShow, ExampleMssFileAsTable) {
    const Outcome outcome =
            show({projectFile("examples/device/vendor/etc/Mss_Audio_Configurations.xml")});
    ASSERT_EQ(0, outcome.code) << outcome.errors;
    EXPECT_EQ(0u, outcome.output.find("mss (2)\n  KEY  mssScene  "));
    EXPECT_THAT(outcome.output, HasSubstr("30,330,60,300,110,250,150,210"));
    EXPECT_EQ("", outcome.errors) << "the example is without fault";
}

TEST(PolicyShow, KindOfAFileShowsByItsRootAndHead) {
    const sonorel::test::TempDir dir;
    const struct {
        std::string file;
        const char* output;
        const char* remark;
    } cases[] = {
            {sonorel::test::readFile(projectFile("tests/data/policy/mss.xml")), "mss (3)",
             "unknown parameter SPHERE_COLOUR is ignored"},
            {"<mss-params/>", "mss (0)", "no param in it"},
            {"<filter-conf><param/><filter-name>meta_audio_policy</filter-name><param/>"
             "<version>7</version></filter-conf>",
             "version 7", ""},
    };
    for (const auto& expected : cases) {
        const Outcome outcome = show({dir.write("file.xml", expected.file)});
        EXPECT_EQ(0, outcome.code) << outcome.errors;
        EXPECT_EQ(0u, outcome.output.find(expected.output)) << outcome.output;
        EXPECT_THAT(outcome.errors, HasSubstr(expected.remark));
    }
}

TEST(PolicyShow, LongKeyWidensNoOtherRow) {
    const sonorel::test::TempDir dir;
    std::string file = sonorel::test::generatePolicy({100, 0, 0, 0, 0}, "1");
    const std::string key(10'000, 'k');
    file.insert(file.find("<name>") + 6, key);
    const Outcome outcome = show({dir.write("file.xml", file)});
    EXPECT_EQ(0, outcome.code);
    EXPECT_THAT(outcome.output, HasSubstr(key));
    EXPECT_GT(5 * key.size(), outcome.output.size());
}

TEST(PolicyShow, UnusableFileEndsWithFileAndCause) {
    const std::string folder = projectFile("tests/data/policy/head/");
    const std::pair<std::string, const char*> cases[] = {
            {folder + "missing.xml", "No such file or directory"},
            {folder, "not a regular file"},
            {folder + "truncated.xml", "line 4: "},
            {folder + "wrong-root.xml", "the root element is not filter-conf"},
            {folder + "version-first.xml", "no version behind filter-name"},
    };
    for (const auto& [path, cause] : cases) {
        const Outcome outcome = show({path});
        EXPECT_EQ(2, outcome.code) << path;
        EXPECT_EQ("", outcome.output) << path;
        EXPECT_EQ(0u, outcome.errors.find("sonorelctl: " + path + ": " + cause)) << outcome.errors;
    }
}

// The whole way: host process, files of the example device, another process that asks. The policy
// has more processors than a reply can carry.
TEST(PolicyShow, ServiceAnswersWithItsFilesButForATableThatIsTooLong) {
    const sonorel::test::TempDir dir;
    const std::string root = dir.path("device");
    std::filesystem::copy(projectFile("examples/device"), root,
                          std::filesystem::copy_options::recursive);
    sonorel::test::ChildProcess::Options options;
    options.program = std::string(SONOREL_BIN_DIR) + "/sonoreld";
    options.args = {"--root", root};
    options.env["SONOREL_RUNTIME_DIR"] = dir.path("run");
    const std::vector<std::string> question = {"--json",          "--package", "com.example.meet",
                                               "--package",       "other",     "--device",
                                               "example-car-kit", "--device",  "other"};
    for (const bool isLong : {false, true}) {
        SCOPED_TRACE(isLong);
        if (isLong) {
            (void)dir.write("device/data/qelto/multimedia/Meta_Audio_Policy_Online.xml",
                            sonorel::test::generatePolicy({0, 13, 0, 2000, 2}, "20990101"));
        }
        sonorel::test::ChildProcess host(options);
        ASSERT_TRUE(host.waitForOutput("SonorelService ready")) << host.errors();
        const Outcome outcome = show(question, dir.path("run"));
        EXPECT_EQ(isLong ? 1 : 0, outcome.code) << outcome.errors;
        EXPECT_EQ(isLong ? "sonorelctl: processors: too long for a binder transaction\n" : "",
                  outcome.errors);
        const auto json = nlohmann::json::parse(outcome.output);
        EXPECT_EQ(13u, json["scenes"].size());
        EXPECT_EQ(2u, json["detectors"].size());
        EXPECT_EQ(2u, json["mss"].size());
        EXPECT_EQ(isLong ? 0u : 1u, json.count("processors"));
        EXPECT_EQ(isLong, json["packages"]["com.example.meet"].is_null());
        EXPECT_TRUE(json["packages"]["other"].is_null());
        EXPECT_EQ(!isLong, json["unsupportedDevices"]["example-car-kit"]);
        EXPECT_EQ(false, json["unsupportedDevices"]["other"]);
    }
}

TEST(PolicyShow, WithoutAServiceTheCodeSaysSo) {
    const sonorel::test::TempDir empty;
    EXPECT_EQ(3, show({"--json"}, empty.path()).code);
}

}  // namespace
