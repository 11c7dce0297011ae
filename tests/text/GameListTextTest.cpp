#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qelto/GameListText.h>

#include <climits>
#include <map>
#include <string>
#include <vector>

#include "support/LogCapture.h"

namespace android {
namespace {

using sonorel::test::LogCapture;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;

struct Parsed {
    std::map<std::string, int> map{{"stale", 1}};
    std::vector<std::string> pkgs{"stale"};
    std::vector<std::string> log;

    explicit Parsed(const std::string& text) {
        const LogCapture capture;
        FastEffectString2PkgMapAndVec(String8(text.data(), text.size()), map, pkgs);
        log = capture.messages();
    }
};

TEST(GameListText, JsonObject) {
    const Parsed list(R"(  {"b.game": 1, "a.game": 0, "c.game": -1})");
    EXPECT_THAT(list.map, ElementsAre(Pair("a.game", 0), Pair("b.game", 1), Pair("c.game", -1)));
    EXPECT_THAT(list.pkgs, ElementsAre("b.game", "a.game", "c.game"));
    EXPECT_THAT(list.log, IsEmpty());
    EXPECT_EQ(Parsed("\xEF\xBB\xBF{\"a\":1}").map.size(), 1u) << "byte order mark";
}

TEST(GameListText, Lines) {
    const Parsed list("# games\r\n\r\nb.game 1\r\n\ta.game\t0  \n  # more\nc.game -1");
    EXPECT_THAT(list.map, ElementsAre(Pair("a.game", 0), Pair("b.game", 1), Pair("c.game", -1)));
    EXPECT_THAT(list.pkgs, ElementsAre("b.game", "a.game", "c.game"));
    EXPECT_THAT(list.log, IsEmpty());
}

TEST(GameListText, NamedTwiceCountsOnceWithTheLaterValue) {
    for (const char* text : {R"({"a":1,"b":2,"a":3})", "a 1\nb 2\na 3"}) {
        const Parsed list(text);
        EXPECT_THAT(list.map, ElementsAre(Pair("a", 3), Pair("b", 2))) << text;
        EXPECT_THAT(list.pkgs, ElementsAre("a", "b")) << text;
    }
}

TEST(GameListText, EmptyTextsGiveNothing) {
    for (const char* text : {"", " \n\t", "{}", "# nothing"}) {
        const Parsed list(text);
        EXPECT_THAT(list.map, IsEmpty()) << text;
        EXPECT_THAT(list.pkgs, IsEmpty()) << text;
        EXPECT_THAT(list.log, IsEmpty()) << text;
    }
}

TEST(GameListText, UnusableEntriesAreLeftOutAndLoggedOnce) {
    for (const char* text :
         {R"({"x":null,"a":1,"y":true,"z":"1","v":1.5,"w":{"in":1},"u":[1,{"in":2}],"b":2})",
          R"({"a":1,"x":2147483648,"y":-2147483649,"z":99999999999999999999,"b":2})",
          "a 1\nx\nx one\nx 1 2\nx 2147483648\nx -99999999999\nx 0x1\nb 2"}) {
        const Parsed list(text);
        EXPECT_THAT(list.map, ElementsAre(Pair("a", 1), Pair("b", 2))) << text;
        EXPECT_THAT(list.pkgs, ElementsAre("a", "b")) << text;
        EXPECT_THAT(list.log, ElementsAre(HasSubstr("2 packages read"))) << text;
    }
    const Parsed limits("a 2147483647\nb -2147483648");
    EXPECT_THAT(limits.map, ElementsAre(Pair("a", INT_MAX), Pair("b", INT_MIN)));
}

TEST(GameListText, BrokenJsonGivesWhatStoodBefore) {
    for (const char* text :
         {R"({"a":1,"b":2)", R"({"a":1,"b":2,})", R"({"a":1,"b":2 "c":3})", R"({"a":1,"b":2} tail)",
          "{\"a\":1,\"b\":2,\"\xFF\":3}", R"({"a":1,"b":2,"c":1e999,"d":4})"}) {
        const Parsed list(text);
        EXPECT_THAT(list.map, ElementsAre(Pair("a", 1), Pair("b", 2))) << text;
        EXPECT_THAT(list.log, ElementsAre(HasSubstr("not JSON from byte"))) << text;
    }
    for (const char* text : {"[1,2]", R"([{"a":1}])", "[]"}) {
        EXPECT_THAT(Parsed(text).map, IsEmpty()) << text;
    }
    EXPECT_THAT(Parsed("[1,2]").log, ElementsAre(HasSubstr("skipped")));
}

TEST(GameListText, DeepNestingIsCutOff) {
    for (const char* opening : {"[", "{\"x\":"}) {
        std::string text = R"({"a":1,"deep":)";
        while (text.size() < size_t{1024} * 1024)
            text += opening;
        const Parsed list(text);
        EXPECT_THAT(list.map, ElementsAre(Pair("a", 1)));
        EXPECT_THAT(list.log, ::testing::Contains(HasSubstr("nested deeper")));
    }
}

TEST(GameListText, MapTextReadsBack) {
    const std::map<std::string, int> map{{"", 1},
                                         {"a.game", INT_MIN},
                                         {"quote\" back\\ line\n \xC3\xA9", INT_MAX},
                                         {std::string("nul\0inside", 10), 0}};
    String8 text("old");
    FastEffectPkgSwitchMap2String(map, &text);
    EXPECT_EQ(Parsed(std::string(text.c_str(), text.length())).map, map);
    FastEffectPkgSwitchMap2String({}, &text);
    EXPECT_STREQ(text.c_str(), "{}");
    FastEffectPkgSwitchMap2String({{"b", 2}, {"a", -1}}, &text);
    EXPECT_STREQ(text.c_str(), R"({"a":-1,"b":2})");
    FastEffectPkgSwitchMap2String(map, nullptr);
}

}  // namespace
}  // namespace android
