#include <gtest/gtest.h>
#include <media/stagefright/foundation/AHandler.h>
#include <media/stagefright/foundation/AMessage.h>
#include <media/stagefright/foundation/AString.h>

#include <cmath>
#include <cstring>
#include <string>

namespace android {
namespace {

TEST(AMessage, EntriesOfEveryType) {
    const sp<AMessage> msg = new AMessage;
    const sp<AMessage> inner = new AMessage;
    int target = 0;
    msg->setWhat(7);
    msg->setInt32("i32", -1);
    msg->setInt64("i64", int64_t{1} << 40);
    msg->setSize("size", 3);
    msg->setFloat("float", 0.1F);
    msg->setDouble("double", 0.1);
    msg->setPointer("pointer", &target);
    msg->setString("string", "text");
    msg->setString("part", "text", 2);
    msg->setString("astring", AString("own"));
    msg->setObject("object", inner);
    msg->setMessage("message", inner);
    msg->setRect("rect", 1, 2, 3, 4);
    EXPECT_EQ(12U, msg->countEntries());

    int32_t i32 = 0;
    int64_t i64 = 0;
    size_t size = 0;
    float f = 0;
    double d = 0;
    void* pointer = nullptr;
    AString string;
    sp<RefBase> object;
    sp<AMessage> message;
    EXPECT_TRUE(msg->findInt32("i32", &i32) && i32 == -1);
    EXPECT_TRUE(msg->findInt64("i64", &i64) && i64 == int64_t{1} << 40);
    EXPECT_TRUE(msg->findSize("size", &size) && size == 3);
    EXPECT_TRUE(msg->findFloat("float", &f) && f == 0.1F);
    EXPECT_TRUE(msg->findDouble("double", &d) && d == 0.1);
    EXPECT_TRUE(msg->findPointer("pointer", &pointer) && pointer == &target);
    EXPECT_TRUE(msg->findString("string", &string) && string == "text");
    EXPECT_TRUE(msg->findString("part", &string) && string == "te");
    EXPECT_TRUE(msg->findString("astring", &string) && string == "own");
    EXPECT_TRUE(msg->findObject("object", &object) && object == inner);
    EXPECT_TRUE(msg->findMessage("message", &message) && message == inner);
    int32_t r[4]{};
    EXPECT_TRUE(msg->findRect("rect", &r[0], &r[1], &r[2], &r[3]) && r[0] == 1 && r[3] == 4);
}

TEST(AMessage, MissingAndMistypedEntriesLeaveTheValueAlone) {
    const sp<AMessage> msg = new AMessage;
    msg->setInt64("number", 5);
    msg->setMessage("message", new AMessage);
    int32_t i32 = -1;
    size_t size = 9;
    sp<RefBase> object;
    AString text("kept");
    EXPECT_FALSE(msg->findInt32("number", &i32));
    EXPECT_FALSE(msg->findInt32("absent", &i32));
    EXPECT_FALSE(msg->findSize("number", &size));
    EXPECT_FALSE(msg->findObject("message", &object));
    EXPECT_FALSE(msg->findString("number", &text));
    EXPECT_EQ(-1, i32);
    EXPECT_EQ(9U, size);
    EXPECT_EQ(nullptr, object.get());
    EXPECT_STREQ("kept", text.c_str());
}

TEST(AMessage, SettingAgainReplacesAndClearRemoves) {
    const sp<AMessage> msg = new AMessage(3, nullptr);
    msg->setInt32("a", 1);
    msg->setString("a", "two");
    int32_t number = 0;
    EXPECT_EQ(1U, msg->countEntries());
    EXPECT_FALSE(msg->findInt32("a", &number));
    msg->clear();
    EXPECT_FALSE(msg->contains("a"));
    EXPECT_EQ(3U, msg->what());
}

TEST(AMessage, DupCopiesMessagesAndSharesObjects) {
    const sp<AMessage> inner = new AMessage(1, nullptr);
    inner->setInt32("x", 1);
    const sp<AMessage> msg = new AMessage(2, nullptr);
    msg->setMessage("inner", inner);
    msg->setObject("object", inner);
    msg->setMessage("none", nullptr);
    const sp<AMessage> copy = msg->dup();
    inner->setInt32("x", 2);

    sp<AMessage> copied;
    sp<RefBase> shared;
    int32_t x = 0;
    ASSERT_TRUE(copy->findMessage("inner", &copied));
    ASSERT_TRUE(copied->findInt32("x", &x));
    EXPECT_EQ(1, x);
    EXPECT_TRUE(copy->findObject("object", &shared) && shared == inner);
    EXPECT_EQ(2U, copy->what());
}

TEST(AMessage, DebugStringShowsNestedEntries) {
    const sp<AMessage> inner = new AMessage(2, nullptr);
    inner->setFloat("f", 0.5F);
    const sp<AMessage> msg = new AMessage(1, nullptr);
    msg->setString("s", "v");
    msg->setMessage("m", inner);
    EXPECT_STREQ(
            "AMessage(what = 0x00000001) = {\n"
            "  string s = \"v\"\n"
            "  AMessage m = AMessage(what = 0x00000002) = {\n"
            "    float f = 0.5\n"
            "  }\n"
            "}",
            msg->debugString().c_str());
}

TEST(AString, EditsAndSearches) {
    AString s("  one two ");
    s.trim();
    EXPECT_STREQ("one two", s.c_str());
    EXPECT_EQ(4, s.find("two"));
    EXPECT_EQ(-1, s.find("one", 1));
    s.append(3);
    s.insert("<", 1, 0);
    s.erase(1, 4);
    EXPECT_STREQ("<two3", s.c_str());
    EXPECT_TRUE(s.startsWith("<t") && s.endsWith("o3") && !s.endsWith("longer than it"));
    EXPECT_STREQ("wo", AString(s, 2, 2).c_str());
    EXPECT_EQ(300U, AStringPrintf("%300s", "").size());
    EXPECT_TRUE(AString("a") < AString("b"));
}

}  // namespace
}  // namespace android
