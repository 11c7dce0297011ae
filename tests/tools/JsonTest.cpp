#include "sonorelctl/Json.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include "sonorelctl/Events.h"
#include "support/TempDir.h"

namespace sonorel::ctl {
namespace {

using qelto::halvend::CallbackData;

uint32_t bitsOf(float value) {
    uint32_t bits = 0;
    memcpy(&bits, &value, sizeof(bits));
    return bits;
}

TEST(Json, FloatsReadBackToTheSameBits) {
    EXPECT_EQ("[0.1,-0.0,3.0]", toLine(toJson(std::vector<float>{0.1F, -0.0F, 3})));
    std::mt19937 random(1);
    for (int i = 0; i < 100000; ++i) {
        const auto bits = static_cast<uint32_t>(random());
        float value = 0;
        memcpy(&value, &bits, sizeof(value));
        if (value != value || value - value != 0) continue;
        const std::string text = toLine(toJson(value));
        ASSERT_EQ(bits, bitsOf(strtof(text.c_str(), nullptr))) << text;
        // Readers that know only doubles get the same float too.
        ASSERT_EQ(bits, bitsOf(static_cast<float>(strtod(text.c_str(), nullptr)))) << text;
    }
}

TEST(Json, WhatJsonCannotHoldBecomesText) {
    using Limits = std::numeric_limits<float>;
    EXPECT_EQ(R"(["nan","inf","-inf"])",
              toLine(toJson(std::vector<float>{Limits::quiet_NaN(), Limits::infinity(),
                                               -Limits::infinity()})));
    EXPECT_EQ("\"a\xEF\xBF\xBD\"", toLine(toJson(std::string("a\xff"))));
}

TEST(Json, RecordHasEveryFieldInOrder) {
    EXPECT_EQ(R"({"status":-1,"enable":false,"mode":0,"pkgName":"","scene":0,"intValue":0,)"
              R"("spMode":0,"isPlaying":false,"playState":0,"data":[],"intValue2":0,"strValue":"",)"
              R"("splitScreenEnabled":false,"splitScreenParam1":0,"splitScreenParam2":0,)"
              R"("strValue2":"","mssEnable":false,"renderMode":0,"gains":[]})",
              toLine(toJson(CallbackData())));
}

TEST(Json, FieldsAreSetFromText) {
    CallbackData data;
    std::string error;
    for (const char* text : {"status=0", "enable=true", "mode=-2", "pkgName=a=b", "gains=1,0.5"}) {
        EXPECT_TRUE(setField(text, &data, &error)) << error;
    }
    EXPECT_EQ(0, data.status);
    EXPECT_TRUE(data.enable);
    EXPECT_EQ(-2, data.mode);
    EXPECT_EQ("a=b", data.pkgName);
    EXPECT_EQ((std::vector<float>{1, 0.5F}), data.gains);

    EXPECT_FALSE(setField("mode=128", &data, &error));
    EXPECT_EQ("mode: '128' is out of range for an integer of 8 bits", error);
    EXPECT_EQ(-2, data.mode);
    EXPECT_FALSE(setField("colour=1", &data, &error));
    EXPECT_EQ("the record has no field 'colour'", error);
    EXPECT_FALSE(setField("status", &data, &error));
    EXPECT_EQ("'status' is not FIELD=VALUE", error);
}

TEST(Events, AreThoseOfTheInterface) {
    const std::string text = test::readFile(SONOREL_CLIENT_AIDL);
    const std::regex constant(R"(const int (CB_\w+) = (\d+);)");
    int count = 0;
    for (std::sregex_iterator it(text.begin(), text.end(), constant), end; it != end; ++it) {
        EXPECT_STREQ((*it)[1].str().c_str(), eventName(std::stoi((*it)[2])));
        ++count;
    }
    EXPECT_EQ(26, count);
    for (const int event : {-1, 22, 27})
        EXPECT_EQ(nullptr, eventName(event));
}

}  // namespace
}  // namespace sonorel::ctl
