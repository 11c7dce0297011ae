#include "sonorelctl/Arguments.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace sonorel::ctl {
namespace {

// The error for a text that must be refused.
template <typename T>
std::string refusal(const std::string& text) {
    T value{};
    const T before = value;
    std::string error;
    EXPECT_FALSE(parseArgument(text, &value, &error)) << text;
    EXPECT_EQ(before, value);
    return error;
}

template <typename T>
T accepted(const std::string& text) {
    T value{};
    std::string error;
    EXPECT_TRUE(parseArgument(text, &value, &error)) << error;
    return value;
}

TEST(Arguments, IntegersUpToTheirEnds) {
    EXPECT_EQ(-128, accepted<int8_t>("-128"));
    EXPECT_EQ(127, accepted<int8_t>("127"));
    EXPECT_EQ("'128' is out of range for an integer of 8 bits", refusal<int8_t>("128"));
    EXPECT_EQ(std::numeric_limits<int32_t>::min(), accepted<int32_t>("-2147483648"));
    EXPECT_EQ("'2147483648' is out of range for an integer of 32 bits",
              refusal<int32_t>("2147483648"));
    EXPECT_EQ(std::numeric_limits<int64_t>::max(), accepted<int64_t>("9223372036854775807"));
    for (const char* text : {"", " 1", "1 ", "1x", "0x1", "1.0", "+1", "--1"}) {
        EXPECT_EQ(std::string("'") + text + "' is not an integer of 32 bits",
                  refusal<int32_t>(text));
    }
}

TEST(Arguments, BooleansAreWords) {
    EXPECT_TRUE(accepted<bool>("true"));
    EXPECT_FALSE(accepted<bool>("false"));
    for (const char* text : {"1", "TRUE", "yes", ""})
        refusal<bool>(text);
}

TEST(Arguments, Floats) {
    EXPECT_EQ(0.1F, accepted<float>("0.1"));
    EXPECT_EQ(-2.5e-3F, accepted<float>("-2.5e-3"));
    EXPECT_TRUE(std::isnan(accepted<float>("nan")));
    EXPECT_EQ(-std::numeric_limits<float>::infinity(), accepted<float>("-inf"));
    EXPECT_EQ("'1e39' is out of range for a 32-bit float", refusal<float>("1e39"));
    EXPECT_EQ("'1,2' is not a 32-bit float", refusal<float>("1,2"));
}

TEST(Arguments, Vectors) {
    EXPECT_EQ((std::vector<float>{0.1F, -2, 3}), accepted<std::vector<float>>("0.1,-2,3"));
    EXPECT_EQ((std::vector<int32_t>{7}), accepted<std::vector<int32_t>>("7"));
    EXPECT_EQ(std::vector<float>{}, accepted<std::vector<float>>(""));
    for (const char* text : {",", "1,", ",1", "1,,2", "1, 2", "1;2"}) {
        refusal<std::vector<float>>(text);
    }
}

}  // namespace
}  // namespace sonorel::ctl
