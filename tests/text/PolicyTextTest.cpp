#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qelto/PolicyText.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <nlohmann/json.hpp>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace android {
namespace {

using Json = nlohmann::ordered_json;
using ::testing::ElementsAre;

std::vector<std::string> keysOf(const Json& object) {
    std::vector<std::string> keys;
    for (const auto& item : object.items())
        keys.push_back(item.key());
    return keys;
}

std::string textOf(const String8& text) {
    return {text.c_str(), text.length()};
}

uint32_t bitsOf(float number) {
    uint32_t bits = 0;
    memcpy(&bits, &number, sizeof(bits));
    return bits;
}

float fromBits(uint32_t bits) {
    float number = 0;
    memcpy(&number, &bits, sizeof(number));
    return number;
}

TEST(PolicyText, PackageRecordHasItsFieldsInOrder) {
    MetaAudioInfo info;
    info.pos[0] = 0.1f;
    info.pos[2] = -0.5f;
    info.scene = 3;
    info.denyFast = true;
    info.name = String8("com.example.player");
    String8 out("old");
    MetaAudioFormat2String(&info, &out);
    EXPECT_EQ(textOf(out),
              R"({"pos":[0.1,0,-0.5],"reserved0":0,"scene":3,"fadeInStyle":-1,"fadeOutStyle":-1,)"
              R"("reserved1":1,"reserved2":0,"reserved3":false,"denyFast":true,"voipApp":false,)"
              R"("name":"com.example.player"})");
}

TEST(PolicyText, NullRecordsPrintNull) {
    String8 out("old");
    MetaAudioFormat2String(nullptr, &out);
    EXPECT_EQ(textOf(out), "null");
    MetaSceInfForParseXml scene;
    MetaAudioSceMap2String({{-1, nullptr}, {12, &scene}}, &out);
    const Json map = Json::parse(textOf(out));
    EXPECT_THAT(keysOf(map), ElementsAre("-1", "12"));
    EXPECT_TRUE(map["-1"].is_null());
    EXPECT_EQ(map["12"]["SceTyp"], -1);
}

TEST(PolicyText, EmptyMapsPrintBraces) {
    const auto expectBraces = [](auto convert) {
        String8 out("old");
        convert(&out);
        EXPECT_EQ(textOf(out), "{}");
    };
    expectBraces([](String8* out) { MetaAudioSceMap2String({}, out); });
    expectBraces([](String8* out) { DynamicProcessorInfMap2String({}, out); });
    expectBraces([](String8* out) { AudioDetectorInfMap2String({}, out); });
    expectBraces([](String8* out) { MssAudioParamInfoMap2String({}, out); });
    MetaAudioSceMap2String({}, nullptr);
}

TEST(PolicyText, SceneRecord) {
    MetaSceInfForParseXml scene;
    scene.SceTyp = 3;
    scene.HomePosTyp = 1;
    scene.Priority = 2;
    scene.IsTransient = true;
    scene.FadeTimeLen = 300;
    scene.CrosFadeTimeLen = 0.25f;
    for (int i = 0; i < 3; ++i) {
        scene.HomePosIntelligentMode[i] = static_cast<float>(i);
        scene.HomePosCustomMode[i] = static_cast<float>(10 + i);
        scene.HomePosIntelligentModeSpk[i] = static_cast<float>(20 + i);
        scene.HomePosCustomModeSpk[i] = static_cast<float>(30 + i);
    }
    String8 out;
    MetaAudioSceMap2String({{3, &scene}}, &out);
    EXPECT_EQ(textOf(out),
              R"({"3":{"SceTyp":3,"HomePosTyp":1,"Priority":2,"IsTransient":true,)"
              R"("FadeTimeLen":300,"CrosFadeTimeLen":0.25,"HomePosIntelligentMode":[0,1,2],)"
              R"("HomePosCustomMode":[10,11,12],"HomePosIntelligentModeSpk":[20,21,22],)"
              R"("HomePosCustomModeSpk":[30,31,32]}})");
}

TEST(PolicyText, ProcessorAndDetectorRecords) {
    DynamicProcessorInf processor;
    processor.ratio = 4;
    processor.softKnee = true;
    processor.procValue_dB = 0.5f;
    String8 out;
    DynamicProcessorInfMap2String({{String8("drc"), &processor}}, &out);
    Json map = Json::parse(textOf(out));
    EXPECT_THAT(
            keysOf(map["drc"]),
            ElementsAre("ratio", "threshold_dB", "kneeWidth_dB", "hardLimitGate", "softKnee",
                        "enableSidechain", "attackTime_mSec", "releaseTime_mSec", "outputGain_dB",
                        "gainReduction", "gainReduction_dB", "detectGate_dB", "thresholdMax_dB",
                        "thresholdMin_dB", "recValue_dB", "procValue_dB", "name"));
    EXPECT_EQ(map["drc"]["ratio"], 4);
    EXPECT_EQ(map["drc"]["softKnee"], true);
    EXPECT_EQ(map["drc"]["hardLimitGate"], false);
    EXPECT_EQ(map["drc"]["procValue_dB"], 0.5);
    EXPECT_EQ(map["drc"]["name"], "invalid");

    AudioDetectorInf detector;
    detector.detect_dB = true;
    detector.detectMode = 1;
    AudioDetectorInfMap2String({{String8("det"), &detector}}, &out);
    map = Json::parse(textOf(out));
    EXPECT_THAT(keysOf(map["det"]),
                ElementsAre("detect_dB", "clampToUnityMax", "detectMode", "attackTime_mSec",
                            "releaseTime_mSec", "lPFilterAlpha", "name"));
    EXPECT_EQ(map["det"]["detect_dB"], true);
    EXPECT_EQ(map["det"]["detectMode"], 1);
}

TEST(PolicyText, FloatsThatJsonHasNoNumberFor) {
    MssParamInfoFromXML info;
    const float infinity = std::numeric_limits<float>::infinity();
    const float row[] = {std::numeric_limits<float>::quiet_NaN(), infinity, -infinity, -0.0f};
    memcpy(info.params[SPHERE_AZIMUTH], row, sizeof(row));
    String8 out;
    MssAudioParamInfoMap2String({{0, &info}}, &out);
    const Json params = Json::parse(textOf(out))["0"]["params"];
    ASSERT_EQ(params.size(), 10u);
    EXPECT_EQ(params[9].dump(), R"(["NaN","Infinity","-Infinity",-0.0,0,0,0,0])");
}

// Nine digits name any float; the text may be shorter, never longer.
TEST(PolicyText, FloatsReadBackBitForBit) {
    std::mt19937 random(20240601);
    for (int round = 0; round < 500; ++round) {
        MssParamInfoFromXML info;
        std::vector<float> written;
        for (auto& row : info.params) {
            for (float& number : row) {
                do
                    number = fromBits(static_cast<uint32_t>(random()));
                while (!std::isfinite(number));
                written.push_back(number);
            }
        }
        String8 out;
        MssAudioParamInfoMap2String({{0, &info}}, &out);
        const std::string text = textOf(out);
        ASSERT_TRUE(Json::accept(text)) << text;
        std::istringstream numbers(text.substr(text.find("[[") + 2));
        for (const float expected : written) {
            std::string token;
            while (token.empty())
                std::getline(numbers, token, ',');
            token.erase(0, token.find_first_not_of('['));
            token.erase(std::min(token.find(']'), token.size()));
            ASSERT_EQ(bitsOf(strtof(token.c_str(), nullptr)), bitsOf(expected)) << token;
            char nineDigits[32];
            const int length = snprintf(nineDigits, sizeof(nineDigits), "%.9g", expected);
            ASSERT_LE(token.size(), static_cast<size_t>(length)) << token;
        }
    }
}

TEST(PolicyText, AnyBytesGiveValidJson) {
    const auto nameOf = [](const std::string& bytes) {
        MetaAudioInfo info;
        info.name = String8(bytes.data(), bytes.size());
        String8 out;
        MetaAudioFormat2String(&info, &out);
        return Json::parse(textOf(out))["name"].get<std::string>();
    };
    for (const std::string& kept :
         {std::string("quote\" back\\ tab\t line\n\r bell\a"), std::string("nul\0inside", 10),
          std::string(
                  "\x7f \xC3\xA9 \xE2\x82\xAC \xF0\x9F\x8E\xA7 \xEF\xBF\xBF \xF4\x8F\xBF\xBF")}) {
        EXPECT_EQ(nameOf(kept), kept);
    }
    const std::string bad = "\xEF\xBF\xBD";
    EXPECT_EQ(nameOf("a\xFFz"), "a" + bad + "z");
    EXPECT_EQ(nameOf("cut \xE2\x82"), "cut " + bad + bad);
    EXPECT_EQ(nameOf("\xC0\xAF"), bad + bad) << "overlong";
    EXPECT_EQ(nameOf("\xED\xA0\x80"), bad + bad + bad) << "surrogate";
    EXPECT_EQ(nameOf("\xF4\x90\x80\x80"), bad + bad + bad + bad) << "past the last code point";

    std::mt19937 random(7);
    for (int round = 0; round < 2000; ++round) {
        std::string bytes(random() % 12, '\0');
        for (char& byte : bytes)
            byte = static_cast<char>(random());
        EXPECT_NO_THROW((void)nameOf(bytes));
        AudioDetectorInf detector;
        String8 out;
        AudioDetectorInfMap2String({{String8(bytes.data(), bytes.size()), &detector}}, &out);
        EXPECT_TRUE(Json::accept(textOf(out)));
    }
}

}  // namespace
}  // namespace android
