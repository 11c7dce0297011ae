#include "policy/MssConfigurationFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "policy/XmlDocument.h"
#include "support/ProjectFile.h"

namespace {

using android::MssRemark;
using android::MssTables;
using android::XmlDocument;
using ::testing::Each;
using ::testing::ElementsAre;
using Kind = MssRemark::Kind;

class MssFile : public ::testing::Test {
protected:
    using Row = float[android::kMssParamValueCount];
    const Row& row(int scene, android::mssParamInfoType type) const {
        return mTables->mMssAudioParamInfoMap.at(scene)->params[type];
    }

    const XmlDocument mDocument =
            XmlDocument::readFile(sonorel::test::projectFile("tests/data/policy/mss.xml"));
    std::vector<MssRemark> mRemarks;
    const std::unique_ptr<MssTables> mTables = android::readMssTables(mDocument.root(), &mRemarks);
};

TEST_F(MssFile, ValueOfTheFirstAttributeIsTheScene) {
    ASSERT_EQ(3u, mTables->mMssAudioParamInfoMap.size());
    EXPECT_EQ(1, mTables->mMssAudioParamInfoMap.at(1)->mssScene);
    EXPECT_THAT(row(1, android::SPHERE_RADIUS_SPK), ElementsAre(1, 2, 3, 4, 5, 6, 7, 8))
            << "the later element stays, and eight values of nine";
    EXPECT_THAT(row(1, android::SPHERE_ELEVATION), Each(0.0f));
}

TEST_F(MssFile, RepeatedParameterOverwritesWhatItSets) {
    EXPECT_THAT(row(1, android::SPHERE_AZIMUTH), ElementsAre(45, 315, 0, 0, 110, 250, 0, 0));
}

TEST_F(MssFile, UnknownSceneIsTheDefaultOne) {
    EXPECT_EQ(0.5f, row(0, android::SPHERE_SPREAD_DIGITAL)[0]);
}

TEST_F(MssFile, ElementWithoutAttributeIsKeptEmpty) {
    for (const auto& values : mTables->mMssAudioParamInfoMap.at(-1)->params) {
        EXPECT_THAT(values, Each(0.0f));
    }
}

TEST_F(MssFile, RemarksComeInTheOrderOfTheFile) {
    std::vector<std::pair<Kind, std::string>> seen;
    for (const MssRemark& remark : mRemarks)
        seen.emplace_back(remark.kind, remark.subject);
    EXPECT_THAT(seen, ElementsAre(std::pair(Kind::kUnknownParameter, "SPHERE_COLOUR"),
                                  std::pair(Kind::kUnknownScene, "Sphere"),
                                  std::pair(Kind::kNoScene, "")));
}

TEST(MssNames, TablesAreComplete) {
    EXPECT_EQ(2u, android::mssSceneTypeMap.size());
    EXPECT_EQ(static_cast<size_t>(android::MSS_PARAM_INFO_COUNT),
              android::mssParamInfoTypeMap.size());
    EXPECT_EQ(android::SPHERE_SPREAD_ANALOG,
              android::mssParamInfoTypeMap.find("SPHERE_SPREAD_ANALOG")->second);
}

TEST(MssNames, FileWithoutParametersIsAnEmptyTable) {
    std::vector<MssRemark> remarks;
    const XmlDocument document = XmlDocument::readMemory("<any/>", 6, "test.xml");
    const auto tables = android::readMssTables(document.root(), &remarks);
    EXPECT_STREQ("{}", tables->mMssAudioParamInfoMapString.c_str());
}

}  // namespace
