#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <properties/PropertyFile.h>
#include <qelto/DevicePath.h>

#include <array>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "support/ChildProcess.h"
#include "support/LogCapture.h"
#include "support/ScopedEnv.h"
#include "support/TempDir.h"

using sonorel::loadPropertyFile;
using sonorel::test::ChildProcess;
using sonorel::test::LogCapture;
using sonorel::test::ScopedEnv;
using sonorel::test::TempDir;

namespace {

struct Text {
    int length;
    std::string text;
};

bool operator==(const Text& a, const Text& b) {
    return a.length == b.length && a.text == b.text;
}

Text get(const char* key, const char* defaultValue) {
    // One byte more than the contract, to see that it is not touched.
    std::array<char, PROPERTY_VALUE_MAX + 1> value{};
    value.fill('#');
    const int length = property_get(key, value.data(), defaultValue);
    EXPECT_EQ('#', value.back());
    return {length, value.data()};
}

TEST(PropertyGet, ValueDefaultAndEmpty) {
    ASSERT_EQ(0, property_set("test.get", "value"));
    EXPECT_EQ((Text{5, "value"}), get("test.get", "other"));
    EXPECT_EQ((Text{5, "other"}), get("test.get.absent", "other"));
    EXPECT_EQ((Text{0, ""}), get("test.get.absent", nullptr));
    // An empty value counts as none.
    ASSERT_EQ(0, property_set("test.get", ""));
    EXPECT_EQ((Text{5, "other"}), get("test.get", "other"));
    EXPECT_EQ((Text{1, "d"}), get(nullptr, "d"));
}

TEST(PropertyGet, LongestValueFitsAndLongerDefaultIsCut) {
    const std::string longest(PROPERTY_VALUE_MAX - 1, 'x');
    ASSERT_EQ(0, property_set("test.long", longest.c_str()));
    EXPECT_EQ((Text{PROPERTY_VALUE_MAX - 1, longest}), get("test.long", nullptr));
    EXPECT_EQ((Text{PROPERTY_VALUE_MAX - 1, longest}),
              get("test.long.absent", (longest + "yz").c_str()));
}

TEST(PropertySet, RefusedValuesLeaveTheOldOne) {
    LogCapture log;
    const std::string tooLong(PROPERTY_VALUE_MAX, 'x');
    ASSERT_EQ(0, property_set("test.set", "old"));
    EXPECT_NE(0, property_set("test.set", tooLong.c_str()));
    EXPECT_TRUE(log.contains("test.set has 92 bytes"));
    EXPECT_EQ((Text{3, "old"}), get("test.set", nullptr));
    for (const char* name : {"", ".a", "a.", "a b", "a=b"}) {
        EXPECT_NE(0, property_set(name, "v")) << name;
        EXPECT_TRUE(log.contains(std::string("\"") + name + "\" is no property name"));
    }
    EXPECT_NE(0, property_set(nullptr, "v"));
}

TEST(PropertyGetBool, WordsAndDefault) {
    const std::vector<std::pair<const char*, int>> cases{
            {"1", 1},     {"y", 1},   {"yes", 1},     {"on", 1},  {"true", 1},
            {"0", 0},     {"n", 0},   {"no", 0},      {"off", 0}, {"false", 0},
            {"TRUE", -1}, {" 1", -1}, {"truely", -1}, {"2", -1},  {"", -1}};
    for (const auto& [value, expected] : cases) {
        ASSERT_EQ(0, property_set("test.bool", value));
        EXPECT_EQ(expected, property_get_bool("test.bool", -1)) << value;
    }
    EXPECT_EQ(1, property_get_bool("test.bool.absent", 1));
    EXPECT_EQ(0, property_get_bool(nullptr, 0));
}

TEST(PropertyGetInt, BasesRangeAndDefault) {
    struct Case {
        const char* value;
        int32_t narrow;
        int64_t wide;
    };
    constexpr int kDefault = -7;
    constexpr int64_t kMax64 = std::numeric_limits<int64_t>::max();
    for (const Case& c : std::vector<Case>{{"12", 12, 12},
                                           {"-3", -3, -3},
                                           {"0x1f", 31, 31},
                                           {"010", 8, 8},
                                           {"5ms", 5, 5},
                                           {"2147483647", 2147483647, 2147483647},
                                           {"2147483648", kDefault, 2147483648},
                                           {"-2147483649", kDefault, -2147483649},
                                           {"9223372036854775807", kDefault, kMax64},
                                           {"9223372036854775808", kDefault, kDefault},
                                           {"x", kDefault, kDefault},
                                           {"", kDefault, kDefault}}) {
        ASSERT_EQ(0, property_set("test.int", c.value));
        EXPECT_EQ(c.narrow, property_get_int32("test.int", kDefault)) << c.value;
        EXPECT_EQ(c.wide, property_get_int64("test.int", kDefault)) << c.value;
    }
}

TEST(PropertyFile, GoodLinesCountAndBrokenOnesAreNamed) {
    TempDir dir;
    const std::string path = dir.write("p.prop",
                                       "# comment\n\n  test.file.a = one two \r\n"
                                       "no equals sign\n=nameless\n"
                                       "test.file.b=x=y\ntest.file.long=" +
                                               std::string(92, 'v') + "\ntest.file.c=last");
    LogCapture log;
    std::string error;
    ASSERT_TRUE(loadPropertyFile(path, &error)) << error;
    EXPECT_EQ("one two", get("test.file.a", "").text);
    EXPECT_EQ("x=y", get("test.file.b", "").text);
    EXPECT_EQ("last", get("test.file.c", "").text);
    EXPECT_EQ("", get("test.file.long", "").text);
    EXPECT_TRUE(log.contains(path + ":4: no '='"));
    EXPECT_TRUE(log.contains(path + ":5: \"\" is no property name"));
    EXPECT_TRUE(log.contains(path + ":7: the value of test.file.long has 92 bytes"));
    EXPECT_EQ(3U, log.lines().size());
}

TEST(PropertyFile, UnreadableFilesSayWhy) {
    TempDir dir;
    std::string error;
    EXPECT_FALSE(loadPropertyFile(dir.path("absent"), &error));
    EXPECT_EQ(dir.path("absent") + ": No such file or directory", error);
    EXPECT_FALSE(loadPropertyFile(dir.path(), &error));
    EXPECT_EQ(dir.path() + ": Is a directory", error);
    EXPECT_FALSE(loadPropertyFile("/dev/zero", &error));
    EXPECT_EQ("/dev/zero: larger than a property file may be", error);
}

TEST(PropertyFile, BytesOfAnyKindAreNoProperties) {
    TempDir dir;
    const std::string path = dir.write("bytes", std::string("a=\0b\n\0=c\n\xff\xfe=d\n", 13));
    LogCapture log;
    std::string error;
    EXPECT_TRUE(loadPropertyFile(path, &error));
    EXPECT_EQ(3U, log.lines().size());
}

std::string readBy(const std::map<std::string, std::string>& env, std::string* outErrors) {
    ChildProcess child({std::string(SONOREL_BIN_DIR) + "/property_reader", {}, env, {}, ""});
    EXPECT_TRUE(child.wait());
    *outErrors = child.errors();
    return child.output();
}

TEST(PropertyEnvironment, FilesAreReadBeforeMainAndTheLaterWins) {
    TempDir root;
    root.write("build.prop", "ro.both=root\nro.root=1\n");
    const std::string extra = root.write("extra", "ro.both=extra\n");
    std::string errors;
    EXPECT_EQ("ro.both=extra\nro.root=1\nro.none=(default)\n",
              readBy({{"SONOREL_DEVICE_ROOT", root.path()},
                      {"SONOREL_PROPERTIES", extra},
                      {"KEYS", "ro.both ro.root ro.none"}},
                     &errors));
    EXPECT_EQ("", errors);
}

TEST(PropertyEnvironment, AbsentFiles) {
    TempDir root;
    std::string errors;
    // A root need not have a build.prop; a file that was named must be there.
    EXPECT_EQ("a=(default)\n",
              readBy({{"SONOREL_DEVICE_ROOT", root.path()}, {"KEYS", "a"}}, &errors));
    EXPECT_EQ("", errors);
    EXPECT_EQ("a=(default)\n",
              readBy({{"SONOREL_PROPERTIES", root.path("absent")}, {"KEYS", "a"}}, &errors));
    EXPECT_NE(std::string::npos, errors.find(root.path("absent") + ": No such file"));
}

TEST(Properties, ReadersAndWritersAtOnce) {
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            const std::string own = "test.threads." + std::to_string(t);
            for (int i = 0; i < 500; ++i) {
                ASSERT_EQ(0, property_set(own.c_str(), std::to_string(i).c_str()));
                ASSERT_EQ(i, property_get_int32(own.c_str(), -1));
                ASSERT_EQ(0, property_set("test.threads.shared", i % 2 == 0 ? "aaaa" : "bbbb"));
                const std::string shared = get("test.threads.shared", "").text;
                ASSERT_TRUE(shared == "aaaa" || shared == "bbbb") << shared;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

TEST(DevicePath, IsTakenAsItStandsWithoutARoot) {
    const ScopedEnv root("SONOREL_DEVICE_ROOT", "");
    EXPECT_EQ("/data//a/../b", android::mapDevicePath("/data//a/../b"));
    EXPECT_EQ("vendor/etc", android::mapDevicePath("vendor/etc"));
}

TEST(DevicePath, AbsolutePathsStayBelowTheRoot) {
    const ScopedEnv root("SONOREL_DEVICE_ROOT", "/some/root/");
    EXPECT_EQ("/some/root/data/db", android::mapDevicePath("/data/db"));
    EXPECT_EQ("/some/root/etc/", android::mapDevicePath("/a/../../../etc/"));
    EXPECT_EQ("/some/root/", android::mapDevicePath("/"));
    EXPECT_EQ("vendor/../etc", android::mapDevicePath("vendor/../etc"));
    EXPECT_EQ("", android::mapDevicePath(""));
    const ScopedEnv real("SONOREL_DEVICE_ROOT", "/");
    EXPECT_EQ("/data/db", android::mapDevicePath("/data/db"));
}

}  // namespace
