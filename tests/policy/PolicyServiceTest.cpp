// The policy section of the service: which copy is loaded, what the log says, what a load leaves
// behind, what the queries answer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "service/ServiceHarness.h"
#include "service/ServiceLog.h"
#include "support/ProjectFile.h"

namespace {

using android::String8;
using sonorel::test::LogLine;
using sonorel::test::projectFile;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

constexpr char kSystemCopy[] = "system_ext/etc/Meta_Audio_Policy.xml";
constexpr char kOnlineCopy[] = "data/qelto/multimedia/Meta_Audio_Policy_Online.xml";
constexpr char kMssFile[] = "Mss_Audio_Configurations.xml";
constexpr char kBroken[] = "<filter-conf><filter-name>meta_audio_policy</filter-name><vers";

std::string policy(const std::string& version, const std::string& items) {
    return "<filter-conf><filter-name>meta_audio_policy</filter-name><version>" + version +
           "</version>" + items + "</filter-conf>";
}

std::string package(const std::string& name) {
    return "<MetaAudioItem><name>" + name + "</name><scene>3</scene></MetaAudioItem>";
}

std::string device(const std::string& name) {
    return "<UnsupportDeviceItem><name>" + name + "</name></UnsupportDeviceItem>";
}

class PolicyService : public sonorel::test::ServiceTest {
protected:
    void systemCopy(const std::string& text) { (void)mRoot.write(kSystemCopy, text); }
    void onlineCopy(const std::string& text) { (void)mRoot.write(kOnlineCopy, text); }
    void remove(const std::string& file) { std::filesystem::remove_all(mRoot.path(file)); }

    // The lines of one method, as "D text", since the last call.
    std::vector<std::string> takeLines(const std::vector<std::string>& methods) {
        std::vector<std::string> lines;
        for (const LogLine& line : mCapture.lines()) {
            if (line.tag != android::kLogTag) continue;
            for (const std::string& method : methods) {
                if (line.message.rfind(method + ":", 0) != 0 &&
                    line.message.rfind(method + ",", 0) != 0) {
                    continue;
                }
                const char* priorities = "??VDIWEFS";
                lines.push_back(priorities[line.priority] + (" " + line.message));
            }
        }
        mCapture.clear();
        return lines;
    }

    bool isListed(const std::string& packageName) {
        return mService->getMetaInfoByPkgName(String8(packageName.c_str())) != "null";
    }
    bool isUnsupported(const std::string& name) {
        bool unsupported = false;
        EXPECT_TRUE(mService->isUnsupportDevice(name, &unsupported).isOk());
        return unsupported;
    }
    bool update() {
        bool reloaded = false;
        EXPECT_TRUE(mService->checkAndUpdatePolicy(&reloaded).isOk());
        return reloaded;
    }
    std::string sceneMap() {
        std::string text = "left over";
        EXPECT_TRUE(mService->getMetaAudioSceMap(&text).isOk());
        return text;
    }
    std::string mssMap() {
        std::string text = "left over";
        EXPECT_TRUE(mService->getMssParamInfoMap(&text).isOk());
        return text;
    }
};

TEST_F(PolicyService, NewerCopyIsLoadedAndATieGoesToTheSystemCopy) {
    const char* const kAbsent = "";
    const struct {
        const char* online;
        const char* system;
        const char* loaded;
    } cases[] = {
            {kAbsent, kAbsent, "none"},           {kBroken, kAbsent, "none"},
            {"20240101", kAbsent, "online"},      {kAbsent, kBroken, "none"},
            {kBroken, kBroken, "none"},           {"20240101", kBroken, "online"},
            {kAbsent, "20240601", "system"},      {kBroken, "20240601", "system"},
            {"20240101", "20240601", "system"},   {"20240601", "20240601", "system"},
            {"202406019", "20240601x", "system"}, {"20250101", "20240601", "online"},
            {"9", "20240601", "online"},
    };
    const auto write = [this](const char* file, const char* content, const char* marker) {
        remove(file);
        if (content[0] == '<') (void)mRoot.write(file, content);
        if (content[0] != '<' && content[0] != '\0') {
            (void)mRoot.write(file, policy(content, package(marker)));
        }
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(std::string(expected.online) + " against " + expected.system);
        write(kOnlineCopy, expected.online, "online");
        write(kSystemCopy, expected.system, "system");
        restart();
        EXPECT_EQ(std::string("online") == expected.loaded, isListed("online"));
        EXPECT_EQ(std::string("system") == expected.loaded, isListed("system"));
    }
}

TEST_F(PolicyService, StartLogsTheChoiceOfANewerOnlineCopy) {
    onlineCopy(policy("20250101", "<MetaAudioSceParam><SceTyp>3</SceTyp></MetaAudioSceParam>"));
    systemCopy(policy("20240101", ""));
    start();
    const auto lines = takeLines({"isNeedUpdateMetaPolicyXML", "loadMetaAudioXml"});
    ASSERT_EQ(11u, lines.size());
    const std::vector<std::string> choice(lines.begin(), lines.begin() + 8);
    EXPECT_THAT(
            choice,
            ElementsAre(
                    "D isNeedUpdateMetaPolicyXML:meta audio policy file need update check path = "
                    "data/qelto/multimedia/Meta_Audio_Policy_Online.xml",
                    "D isNeedUpdateMetaPolicyXML: Meta Audio Policy xml file xmlName = "
                    "meta_audio_policy",
                    "D isNeedUpdateMetaPolicyXML: mMetaAudioPolicyVersion is 20250101",
                    "D isNeedUpdateMetaPolicyXML:meta audio policy file need update check path = "
                    "system_ext/etc/Meta_Audio_Policy.xml",
                    "D isNeedUpdateMetaPolicyXML: Meta Audio Policy xml file xmlName = "
                    "meta_audio_policy",
                    "E isNeedUpdateMetaPolicyXML:Meta_Audio_Policy.xml has not correct version, is "
                    "vek update xml = 0",
                    "E loadMetaAudioXml:meta audio policy file XML_NEED_TO_UPDATE_ROM_FILE",
                    "D loadMetaAudioXml:meta audio policy file loadMetaAudioXml path = "
                    "data/qelto/multimedia/Meta_Audio_Policy_Online.xml"));
    EXPECT_EQ(
            "D loadMetaAudioXml: MetaAudioSceMap2String from path = "
            "data/qelto/multimedia/Meta_Audio_Policy_Online.xml, mMetaAudioSceMap.size = 1, "
            "info = " +
                    sceneMap(),
            lines[8]);
    EXPECT_EQ("D loadMetaAudioXml: mDynamicProcessorInfMap.size = 0, DynamicProcessorParams = {}",
              lines[9]);
    EXPECT_EQ("D loadMetaAudioXml: mMetaAudioSceMap.size = 0, AudioDetectorParams = {}", lines[10]);
}

TEST_F(PolicyService, EachFaultOfACopyHasItsLine) {
    const std::pair<std::string, const char*> cases[] = {
            {"no-filter-name", "E isNeedUpdateMetaPolicyXML:doesnot find Node filter name"},
            {"not-xml", "E isNeedUpdateMetaPolicyXML:meta audio policy file not exsit"},
            {"wrong-root", "E isNeedUpdateMetaPolicyXML:root Node is not filter-conf"},
            {"wrong-filter-name", "E isNeedUpdateMetaPolicyXML: filter name is wrong"},
            {"version-first",
             "E isNeedUpdateMetaPolicyXML:Meta_Audio_Policy.xml has not correct version, is vek "
             "update xml = 1"},
    };
    start();
    for (const auto& [file, line] : cases) {
        onlineCopy(sonorel::test::readFile(
                projectFile("tests/data/policy/head/" + std::string(file) + ".xml")));
        (void)takeLines({});
        EXPECT_FALSE(update()) << file;
        EXPECT_EQ(line, takeLines({"isNeedUpdateMetaPolicyXML"}).back()) << file;
    }
}

TEST_F(PolicyService, FolderInPlaceOfAFileIsNoCopy) {
    std::filesystem::create_directories(mRoot.path(kOnlineCopy));
    start();
    EXPECT_FALSE(update());
    const auto lines = mCapture.lines();
    EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [](const LogLine& line) {
        return line.priority == ANDROID_LOG_DEBUG && line.tag == android::kLogTag &&
               line.message == std::string(kOnlineCopy) + ": not a regular file";
    }));
}

TEST_F(PolicyService, FailedUpdateKeepsTheTablesAndDisarmsTheNextLoad) {
    systemCopy(policy("20240601", package("system")));
    start();
    (void)takeLines({});
    EXPECT_FALSE(update());
    EXPECT_THAT(
            takeLines({"checkAndUpdatePolicy", "isNeedUpdateMetaPolicyXML", "loadMetaAudioXml"}),
            ElementsAre(HasSubstr("need update check path"),
                        "E isNeedUpdateMetaPolicyXML:meta audio policy file not exsit",
                        "E checkAndUpdatePolicy: Need not update meta policy xml",
                        "D checkAndUpdatePolicy: *_aidl_return = 0"));
    mService->loadMetaAudioXml();
    EXPECT_THAT(takeLines({"loadMetaAudioXml"}),
                ElementsAre("E loadMetaAudioXml:meta audio policy file need not to update"));
    EXPECT_TRUE(isListed("system"));
}

TEST_F(PolicyService, EqualOnlineVersionReloads) {
    systemCopy(policy("20240601", package("system")));
    start();
    onlineCopy(policy("20240601", package("online")));
    EXPECT_TRUE(update());
    EXPECT_TRUE(isListed("online"));
    EXPECT_FALSE(isListed("system")) << "a load replaces what was there";
    EXPECT_TRUE(update());
    onlineCopy(policy("20240531", package("older")));
    EXPECT_FALSE(update());
    EXPECT_TRUE(isListed("online"));
}

TEST_F(PolicyService, LoadAfterACompletedOneReadsTheSystemCopyUnlessItIsOlder) {
    systemCopy(policy("20240601", package("first")));
    start();
    systemCopy(policy("20240601", package("second")));
    mService->loadMetaAudioXml();
    EXPECT_TRUE(isListed("second"));

    onlineCopy(policy("20250101", package("online")));
    EXPECT_TRUE(update());
    (void)takeLines({});
    mService->loadMetaAudioXml();
    EXPECT_THAT(takeLines({"loadMetaAudioXml"}),
                ElementsAre("E loadMetaAudioXml:meta audio policy file need not to update"));
    EXPECT_TRUE(isListed("online"));
}

TEST_F(PolicyService, FailedSystemCheckDoesNotUndoAnAcceptedOnlineCopy) {
    systemCopy(policy("20240601", ""));
    start();
    onlineCopy(policy("20250101", package("online")));
    EXPECT_TRUE(mService->isNeedUpdateMetaPolicyXML(true));
    EXPECT_FALSE(mService->isNeedUpdateMetaPolicyXML(false));
    mService->loadMetaAudioXml();
    EXPECT_TRUE(isListed("online"));
}

TEST_F(PolicyService, VersionCountsFromTheCheckAndALoadThatFailsKeepsTheTables) {
    systemCopy(policy("20240601", package("system")));
    start();
    for (const char* unusable : {"", kBroken, "<filter-conf/>"}) {
        SCOPED_TRACE(unusable);
        systemCopy(policy("20240601", ""));
        ASSERT_TRUE(mService->isNeedUpdateMetaPolicyXML(false));
        systemCopy(unusable);
        (void)takeLines({});
        mService->loadMetaAudioXml();
        EXPECT_THAT(takeLines({"loadMetaAudioXml"}),
                    ElementsAre("D loadMetaAudioXml:meta audio policy file loadMetaAudioXml path = "
                                "system_ext/etc/Meta_Audio_Policy.xml"));
        EXPECT_TRUE(isListed("system"));
        mService->loadMetaAudioXml();
        EXPECT_THAT(takeLines({"loadMetaAudioXml"}),
                    ElementsAre("E loadMetaAudioXml:meta audio policy file need not to update"));
    }
    systemCopy(policy("20260101", ""));
    ASSERT_TRUE(mService->isNeedUpdateMetaPolicyXML(false));
    onlineCopy(policy("20250101", ""));
    EXPECT_FALSE(update()) << "the version of a copy that was never loaded is held";
}

TEST_F(PolicyService, TableThatFitsNoTransactionIsTold) {
    std::string items;
    for (int i = 0; i < 2000; ++i) {
        items += "<DynamicProcessorParamItem><name>" + std::to_string(i) +
                 "</name></DynamicProcessorParamItem>";
    }
    systemCopy(policy("1", items));
    start();
    EXPECT_THAT(takeLines({"loadMetaAudioXml"}).back(),
                MatchesRegex("E loadMetaAudioXml: mDynamicProcessorInfString takes [0-9]+ bytes of "
                             "the 1040384 that a binder transaction can carry: .*"));
}

TEST_F(PolicyService, DeviceNamesOnlyGrow) {
    systemCopy(policy("1", device("first")));
    start();
    onlineCopy(policy("2", device("second")));
    EXPECT_TRUE(isUnsupported("first"));
    EXPECT_FALSE(isUnsupported("second"));
    ASSERT_TRUE(update());
    EXPECT_TRUE(isUnsupported("first"));
    EXPECT_TRUE(isUnsupported("second"));
    for (const char* other : {"First", "firs", "first ", ""}) {
        EXPECT_FALSE(isUnsupported(other)) << other;
    }
}

TEST_F(PolicyService, BeforeAnyLoadEveryTextIsEmpty) {
    remove(kSystemCopy);
    start();
    EXPECT_EQ("", sceneMap());
    EXPECT_EQ("", mssMap());
    std::string text = "left over";
    EXPECT_TRUE(mService->getDynamicProcessorInfMap(&text).isOk());
    EXPECT_EQ("", text);
    text = "left over";
    EXPECT_TRUE(mService->getAudioDetectorInfMap(&text).isOk());
    EXPECT_EQ("", text);
    EXPECT_FALSE(isUnsupported("any"));
    EXPECT_TRUE(mService->getMetaInfoByPkgName("any", &text).isOk());
    EXPECT_EQ("null", text);
}

TEST_F(PolicyService, QueriesLogTheirTextAndTheOneInProcessDoesNot) {
    systemCopy(policy(
            "1", package("com.example.a") +
                         "<MetaAudioSceParam><SceTyp>3</SceTyp></MetaAudioSceParam>"
                         "<DynamicProcessorParamItem><name>p</name></DynamicProcessorParamItem>"
                         "<AudioDetectorParamItem><name>d</name></AudioDetectorParamItem>"));
    (void)mRoot.write(std::string("odm/etc/") + kMssFile, "<a><param s='sphere'/></a>");
    start();
    using Query = android::binder::Status (android::SonorelService::*)(std::string*);
    const struct {
        const char* method;
        const char* member;
        const char* key;
        Query query;
    } queries[] = {
            {"getMetaAudioSceMap", "mMetaAudioSceString",
             "\"3\":", &android::SonorelService::getMetaAudioSceMap},
            {"getDynamicProcessorInfMap", "mDynamicProcessorInfString",
             "\"p\":", &android::SonorelService::getDynamicProcessorInfMap},
            {"getAudioDetectorInfMap", "mAudioDetectorInfString",
             "\"d\":", &android::SonorelService::getAudioDetectorInfMap},
            {"getMssParamInfoMap", "mMssAudioParamInfoMapString",
             "\"1\":", &android::SonorelService::getMssParamInfoMap},
    };
    for (const auto& expected : queries) {
        (void)takeLines({});
        std::string text = "left over";
        EXPECT_TRUE((mService.get()->*expected.query)(&text).isOk());
        EXPECT_THAT(text, HasSubstr(expected.key));
        EXPECT_THAT(takeLines({expected.method}),
                    ElementsAre(std::string("D ") + expected.method + ": " + expected.member +
                                " = " + text));
    }
    std::string text = "left over";
    EXPECT_TRUE(mService->getMetaInfoByPkgName("com.example.a", &text).isOk());
    EXPECT_THAT(text, HasSubstr("com.example.a"));
    EXPECT_THAT(takeLines({"getMetaInfoByPkgName"}),
                ElementsAre("D getMetaInfoByPkgName, " + text));
    EXPECT_EQ(text, mService->getMetaInfoByPkgName(String8("com.example.a")).c_str());
    EXPECT_FALSE(isListed("com.example.A"));
    EXPECT_THAT(takeLines({"getMetaInfoByPkgName"}), IsEmpty());
}

// ---- The sound-separation configuration

TEST_F(PolicyService, FirstReadableFolderHasTheMssFile) {
    (void)mRoot.write(std::string("vendor/etc/") + kMssFile, "<a><param s='default'/></a>");
    (void)mRoot.write(std::string("my_product/etc/") + kMssFile, "<a><param s='sphere'/></a>");
    start();
    EXPECT_THAT(takeLines({"loadMssAudioXml"}),
                ElementsAre("D loadMssAudioXml: mss audio params config file path = "
                            "/my_product/etc/Mss_Audio_Configurations.xml",
                            "D loadMssAudioXml: mMssAudioParamInfoMapString from path = "
                            "/my_product/etc/Mss_Audio_Configurations.xml, mMetaAudioSceMap.size = "
                            "1, info = " +
                                    mssMap()));
    EXPECT_THAT(mssMap(), HasSubstr("\"1\":"));
}

TEST_F(PolicyService, MssRemarksAreLoggedInOrder) {
    (void)mRoot.write(std::string("odm/etc/") + kMssFile,
                      sonorel::test::readFile(projectFile("tests/data/policy/mss.xml")));
    start();
    EXPECT_THAT(takeLines({"parseMssAudioParam"}),
                ElementsAre("W parseMssAudioParam, unknown parameter name: SPHERE_COLOUR",
                            "W parseMssAudioParam, unknown mssScene name: Sphere, using default "
                            "params.",
                            "D parseMssAudioParam: mss audio parse params with no mssScene."));
}

TEST_F(PolicyService, UnusableMssFileKeepsTheMapAndAnEmptyOneClearsIt) {
    const std::string file = std::string("system/etc/") + kMssFile;
    (void)mRoot.write(file, "<a><param s='sphere'/></a>");
    start();
    const std::string loaded = mssMap();
    const auto reload = [this] {
        (void)takeLines({});
        mService->loadMssAudioXml();
        return takeLines({"loadMssAudioXml"});
    };
    const char kFailed[] = "D loadMssAudioXml: failed to parse mss audio params config XML file.";
    (void)mRoot.write(file, "<a><param");
    EXPECT_THAT(reload(),
                ElementsAre(HasSubstr("/system/etc/Mss_Audio_Configurations.xml"), kFailed));
    remove(file);
    EXPECT_THAT(reload(),
                ElementsAre("D loadMssAudioXml: mss audio params config file path = ", kFailed));
    EXPECT_EQ(loaded, mssMap());
    (void)mRoot.write(file, "<a/>");
    EXPECT_EQ(2u, reload().size());
    EXPECT_EQ("{}", mssMap());
}

}  // namespace
