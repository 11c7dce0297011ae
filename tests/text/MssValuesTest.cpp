#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qelto/PolicyText.h>

#include <array>
#include <string>

#include "support/LogCapture.h"

namespace android {
namespace {

using sonorel::test::LogCapture;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

// Four values, the last one beyond what the call may touch.
struct Read {
    std::array<float, 4> values{-9, -9, -9, -9};
    int set = 0;

    explicit Read(const char* text) {
        set = mssAudioParamInfoStringToArray(text, values.data(), 3);
    }
};

TEST(MssValues, SeparatorsAreCommasAndBlanks) {
    for (const char* text : {"1.5,-2,30", "1.5 -2 30", " 1.5 , -2 ,\n\t30 ", "+1.5,-2e0,3E1",
                             "1.5,-2,30,4,5", "1.5,-2,30,", "1.5,-2,30,x"}) {
        const LogCapture log;
        const Read read(text);
        EXPECT_THAT(read.values, ElementsAre(1.5f, -2, 30, -9)) << text;
        EXPECT_EQ(read.set, 3) << text;
        EXPECT_THAT(log.messages(), ElementsAre()) << text;
    }
}

TEST(MssValues, FewerValuesLeaveTheRest) {
    EXPECT_THAT(Read("7").values, ElementsAre(7, -9, -9, -9));
    EXPECT_EQ(Read("").set, 0);
    EXPECT_EQ(Read(" \n").set, 0);
    EXPECT_EQ(Read(nullptr).set, 0);
    EXPECT_EQ(mssAudioParamInfoStringToArray("1", nullptr, 8), 0);
    float untouched = -9;
    EXPECT_EQ(mssAudioParamInfoStringToArray("1", &untouched, 0), 0);
    EXPECT_EQ(mssAudioParamInfoStringToArray("1", &untouched, -1), 0);
    EXPECT_EQ(untouched, -9);
}

TEST(MssValues, BrokenItemsKeepTheirPlaceAndAreLoggedOnce) {
    for (const char* broken : {"", "x", "1x", "0x10", "1e99", "nan", "inf", "-", "+", "1.2.3"}) {
        const LogCapture log;
        const Read read((std::string("1,") + broken + ",3").c_str());
        EXPECT_THAT(read.values, ElementsAre(1, -9, 3, -9)) << broken;
        EXPECT_EQ(read.set, 2) << broken;
        EXPECT_THAT(log.messages(), ElementsAre(HasSubstr("1 values left"))) << broken;
    }
    const LogCapture log;
    EXPECT_THAT(Read(",,").values, ElementsAre(-9, -9, -9, -9));
    EXPECT_EQ(log.lines().size(), 1u);
}

}  // namespace
}  // namespace android
