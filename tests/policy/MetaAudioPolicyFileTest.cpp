#include "policy/MetaAudioPolicyFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qelto/PolicyText.h>

#include <cmath>
#include <cstdlib>
#include <random>

#include "support/ProjectFile.h"
#include "support/TempDir.h"
#include "tests/policy/GeneratedPolicy.h"

namespace {

using android::MetaAudioInfo;
using android::MetaPolicyHead;
using android::PolicyTables;
using android::String8;
using android::XmlDocument;
using sonorel::test::projectFile;
using ::testing::ElementsAre;
using Fault = MetaPolicyHead::Fault;

TEST(MetaPolicyHead, FirstFaultIsNamed) {
    const struct {
        const char* file;
        Fault fault;
        std::optional<std::string> filterName;
        const char* version;
    } cases[] = {
            {"good", Fault::kNone, "meta_audio_policy_extra", "20240601"},
            {"cdata", Fault::kNone, "meta_audio_policy", "20240601"},
            {"empty-version", Fault::kNone, "meta_audio_policy", ""},
            {"missing", Fault::kNoDocument, {}, ""},
            {"empty", Fault::kNoDocument, {}, ""},
            {"not-xml", Fault::kNoDocument, {}, ""},
            {"truncated", Fault::kNoDocument, {}, ""},
            {"bad-utf8", Fault::kNoDocument, {}, ""},
            {"wrong-root", Fault::kWrongRoot, {}, ""},
            {"no-filter-name", Fault::kNoFilterName, {}, ""},
            {"wrong-filter-name", Fault::kWrongFilterName, "meta_audio_polic", ""},
            {"empty-filter-name", Fault::kWrongFilterName, "", ""},
            {"version-first", Fault::kNoVersion, "meta_audio_policy", ""},
            {"attribute-version", Fault::kNoVersion, "meta_audio_policy", ""},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.file);
        const MetaPolicyHead head = android::readMetaPolicyHead(XmlDocument::readFile(
                projectFile("tests/data/policy/head/" + std::string(expected.file) + ".xml")));
        EXPECT_EQ(expected.fault, head.fault);
        EXPECT_EQ(expected.filterName, head.filterName);
        EXPECT_EQ(expected.version, head.version);
    }
}

TEST(MetaPolicyVersion, IsTextOfEightCharacters) {
    const struct {
        const char* version;
        const char* held;
        bool accepted;
    } cases[] = {
            {"20240101", "20240101", true},
            {"202401019", "20240101x", true},
            {"20240101", "20240102", false},
            {"9", "20250101", true},
            {"20250101", "9", false},
            {"", "0", false},
            {"", "", true},
            {"2024", "20240101", false},
            {"2024010\xff", "20240101", true},
    };
    for (const auto& expected : cases) {
        EXPECT_EQ(expected.accepted,
                  android::isMetaPolicyVersionAtLeast(expected.version, expected.held))
                << expected.version << " against " << expected.held;
    }
}

// The tables of tests/data/policy/items.xml.
class PolicyItems : public ::testing::Test {
protected:
    const MetaAudioInfo* package(const char* name) const {
        return mTables->mPkgMetaInfoVec.valueFor(String8(name));
    }

    const XmlDocument mDocument = XmlDocument::readFile(projectFile("tests/data/policy/items.xml"));
    const std::unique_ptr<PolicyTables> mTables = android::readPolicyTables(mDocument.root());
};

TEST_F(PolicyItems, PackageTakesTheLastElementOfEachName) {
    const MetaAudioInfo* full = package("com.example.full");
    ASSERT_NE(nullptr, full);
    EXPECT_EQ(3, full->scene);
    EXPECT_THAT(full->pos, ElementsAre(0.5f, -1.25f, 20.0f));
    EXPECT_EQ(1, full->fadeInStyle);
    EXPECT_EQ(2, full->fadeOutStyle);
    EXPECT_TRUE(full->denyFast);
    EXPECT_FALSE(full->voipApp) << "only the exact word is true";
    EXPECT_EQ(1, full->reserved1);
}

TEST_F(PolicyItems, PackageKeepsInitialValuesAndBelongsToSceneZero) {
    const MetaAudioInfo* bare = package("com.example.bare");
    ASSERT_NE(nullptr, bare);
    EXPECT_EQ(0, bare->scene);
    EXPECT_EQ(-1, bare->fadeInStyle);
    EXPECT_THAT(bare->pos, ElementsAre(0.0f, 0.0f, 0.0f)) << "two parts are no position";
}

TEST_F(PolicyItems, PackagesWithoutAUsableNameAreDropped) {
    std::vector<std::string> names;
    for (size_t i = 0; i < mTables->mPkgMetaInfoVec.size(); ++i) {
        names.emplace_back(mTables->mPkgMetaInfoVec.keyAt(i).c_str());
        EXPECT_STREQ(names.back().c_str(), mTables->mPkgMetaInfoVec.valueAt(i)->name.c_str());
    }
    EXPECT_THAT(names, ElementsAre("com.example.bare", "com.example.full", "com.example.mixed",
                                   "com.example.odd", "com.example.twice"));
    EXPECT_EQ(2, package("com.example.twice")->scene) << "the later item stays";
    EXPECT_EQ(nullptr, package("com.example.FULL"));
}

TEST_F(PolicyItems, MalformedNumbersConvertAsFarAsTheyGo) {
    const MetaAudioInfo* odd = package("com.example.odd");
    ASSERT_NE(nullptr, odd);
    EXPECT_EQ(0, odd->scene);
    EXPECT_TRUE(std::isnan(odd->pos[0]));
    EXPECT_EQ(INFINITY, odd->pos[1]);
    EXPECT_EQ(0.0f, odd->pos[2]);
    EXPECT_EQ(0, odd->fadeInStyle) << "an empty element is an empty text";
    EXPECT_EQ(12, odd->fadeOutStyle);
    EXPECT_FALSE(odd->denyFast);
}

TEST_F(PolicyItems, SpeakerPositionsFollowTheOrderOfTheFile) {
    ASSERT_EQ(2u, mTables->mMetaAudioSceMap.size());
    const android::MetaSceInfForParseXml& scene = *mTables->mMetaAudioSceMap.at(1);
    EXPECT_TRUE(scene.IsTransient) << "any integer but 0";
    EXPECT_EQ(150.5f, scene.CrosFadeTimeLen);
    EXPECT_THAT(scene.HomePosIntelligentMode, ElementsAre(0.0f, 0.0f, 1.0f));
    EXPECT_THAT(scene.HomePosIntelligentModeSpk, ElementsAre(0.0f, 0.5f, 1.0f));
    EXPECT_THAT(scene.HomePosCustomMode, ElementsAre(30.0f, 0.0f, 1.0f));
    EXPECT_THAT(scene.HomePosCustomModeSpk, ElementsAre(30.0f, 0.0f, 1.0f))
            << "the headphone element came last";
}

TEST_F(PolicyItems, LaterSceneReplacesTheWholeEarlierOne) {
    const android::MetaSceInfForParseXml& scene = *mTables->mMetaAudioSceMap.at(2);
    EXPECT_EQ(0, scene.Priority);
    EXPECT_FALSE(scene.IsTransient);
    EXPECT_THAT(scene.HomePosCustomModeSpk, ElementsAre(-1.0f, -1.0f, -1.0f));
}

TEST_F(PolicyItems, EveryDeviceNameIsListedOnce) {
    EXPECT_THAT(mTables->mUnsupportDeviceSet,
                ElementsAre(String8(""), String8("device-a"), String8("device-b"),
                            String8("device-d")));
}

TEST_F(PolicyItems, ProcessorTakesEveryField) {
    ASSERT_EQ(2u, mTables->mDynamicProcessorInfMap.size()) << "an item without a name is none";
    const android::DynamicProcessorInf& full =
            *mTables->mDynamicProcessorInfMap.at(String8("full"));
    EXPECT_EQ(4.0f, full.ratio);
    EXPECT_EQ(-18.0f, full.threshold_dB);
    EXPECT_EQ(6.0f, full.kneeWidth_dB);
    EXPECT_TRUE(full.hardLimitGate);
    EXPECT_TRUE(full.softKnee);
    EXPECT_FALSE(full.enableSidechain) << "1 is not the word";
    EXPECT_EQ(5.0f, full.attackTime_mSec);
    EXPECT_EQ(120.0f, full.releaseTime_mSec);
    EXPECT_EQ(1.5f, full.outputGain_dB);
    EXPECT_EQ(0.25f, full.gainReduction);
    EXPECT_EQ(-12.0f, full.gainReduction_dB);
    EXPECT_EQ(-70.0f, full.detectGate_dB);
    EXPECT_EQ(-6.0f, full.thresholdMax_dB);
    EXPECT_EQ(-40.0f, full.thresholdMin_dB);
    EXPECT_EQ(0.75f, full.recValue_dB);
    EXPECT_EQ(0.125f, full.procValue_dB);
    EXPECT_STREQ("full", full.name.c_str());
    EXPECT_FALSE(mTables->mDynamicProcessorInfMap.at(String8("bare"))->softKnee)
            << "a fallback is for text that cannot be had, not for an element that is not there";
}

TEST_F(PolicyItems, DetectorTakesEveryField) {
    ASSERT_EQ(2u, mTables->mAudioDetectorInfMap.size());
    const android::AudioDetectorInf& full = *mTables->mAudioDetectorInfMap.at(String8("full"));
    EXPECT_TRUE(full.detect_dB);
    EXPECT_TRUE(full.clampToUnityMax);
    EXPECT_EQ(2, full.detectMode);
    EXPECT_EQ(5.5f, full.attackTime_mSec);
    EXPECT_EQ(120.0f, full.releaseTime_mSec);
    EXPECT_EQ(0.3f, full.lPFilterAlpha);
    EXPECT_STREQ("full", full.name.c_str());
    EXPECT_FALSE(mTables->mAudioDetectorInfMap.at(String8("bare"))->detect_dB);
}

TEST_F(PolicyItems, TextsAreThoseOfTheConverters) {
    String8 text;
    android::MetaAudioSceMap2String(mTables->mMetaAudioSceMap, &text);
    EXPECT_STREQ(text.c_str(), mTables->mMetaAudioSceString.c_str());
    android::DynamicProcessorInfMap2String(mTables->mDynamicProcessorInfMap, &text);
    EXPECT_STREQ(text.c_str(), mTables->mDynamicProcessorInfString.c_str());
    android::AudioDetectorInfMap2String(mTables->mAudioDetectorInfMap, &text);
    EXPECT_STREQ(text.c_str(), mTables->mAudioDetectorInfString.c_str());
}

std::unique_ptr<PolicyTables> tablesOf(const std::string& xml) {
    const XmlDocument document = XmlDocument::readMemory(xml.data(), xml.size(), "test.xml");
    return android::readPolicyTables(document.root());
}

TEST(PolicyTables, RootWithoutChildrenIsNoPolicyButTextAloneIsAnEmptyOne) {
    EXPECT_EQ(nullptr, tablesOf(""));
    EXPECT_EQ(nullptr, tablesOf("<filter-conf/>"));
    EXPECT_EQ(nullptr, tablesOf("<filter-conf></filter-conf>"));
    const auto empty = tablesOf("<filter-conf> </filter-conf>");
    ASSERT_NE(nullptr, empty);
    EXPECT_EQ(0u, empty->mPkgMetaInfoVec.size());
    EXPECT_STREQ("{}", empty->mMetaAudioSceString.c_str());
}

TEST(PolicyTables, ManyPackagesInNoOrderAreAllFound) {
    const auto tables = tablesOf(sonorel::test::generatePolicy({100'000, 0, 100'000, 0, 0}, "1"));
    ASSERT_NE(nullptr, tables);
    EXPECT_EQ(100'000u, tables->mPkgMetaInfoVec.size());
    EXPECT_EQ(100'000u, tables->mUnsupportDeviceSet.size());
    for (size_t i = 1; i < tables->mPkgMetaInfoVec.size(); ++i) {
        ASSERT_LT(tables->mPkgMetaInfoVec.keyAt(i - 1), tables->mPkgMetaInfoVec.keyAt(i));
    }
}

TEST(ParseItems, NullIsLeftAlone) {
    const XmlDocument document = XmlDocument::readFile(projectFile("tests/data/policy/items.xml"));
    const xmlNode* child = document.root()->children;
    MetaAudioInfo package;
    android::parseMetaAudioItem(nullptr, &package);
    android::parseMetaAudioItem(child, nullptr);
    android::parseMetaAudioSceParam(nullptr, nullptr);
    android::parseDynamicProcessorParamItem(child, nullptr);
    android::parseAudioDetectorParamItem(child, nullptr);
    android::parseUnsupportDeviceItem(nullptr, nullptr);
    EXPECT_EQ(-1, package.scene);
}

// The loader reads short decimals by itself; each must come out as the C library has it.
TEST(ParseItems, DecimalsAreThoseOfTheLibraryToTheLastBit) {
    std::vector<std::string> texts{"-0",
                                   "0.1",
                                   ".5",
                                   "5.",
                                   "-",
                                   "",
                                   "-.",
                                   "1.2.3",
                                   "+1",
                                   " 1",
                                   "0x1p3",
                                   "1e5",
                                   "1e",
                                   "inf",
                                   "nan",
                                   "16777217",
                                   "1e-50",
                                   "--1",
                                   "1 2",
                                   "\t-2",
                                   "1-2",
                                   "999999999999999",
                                   "9999999999999999",
                                   "0.1234567890123456789"};
    std::mt19937 random(20240601);
    for (int i = 0; i < 20'000; ++i) {
        std::string text = random() % 2 == 0 ? "-" : "";
        for (size_t left = random() % 18; left > 0; --left) {
            text += static_cast<char>('0' + random() % 10);
            if (random() % 8 == 0) text += '.';
        }
        texts.push_back(text);
    }
    for (const std::string& text : texts) {
        const std::string xml = "<a><pos>0," + text + "," + text + ",</pos></a>";
        const XmlDocument document = XmlDocument::readMemory(xml.data(), xml.size(), "test.xml");
        ASSERT_TRUE(document) << text;
        MetaAudioInfo package;
        android::parseMetaAudioItem(document.root()->children, &package);
        const float expected = static_cast<float>(std::strtod(text.c_str(), nullptr));
        ASSERT_EQ(0, memcmp(&expected, &package.pos[1], sizeof(expected))) << text;
        ASSERT_EQ(0, memcmp(&expected, &package.pos[2], sizeof(expected))) << text;
    }
}

}  // namespace
