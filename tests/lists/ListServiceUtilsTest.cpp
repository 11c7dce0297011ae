#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qelto/ListServiceUtils.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "support/LogCapture.h"
#include "support/ScopedEnv.h"
#include "support/TempDir.h"

namespace android {
namespace {

using sonorel::test::LogCapture;
using sonorel::test::ScopedEnv;
using sonorel::test::TempDir;

constexpr const char* kList = "mss-whitelist";

class ListServiceUtilsTest : public ::testing::Test {
protected:
    std::string write(const std::string& content) {
        return mRoot.write(std::string("data/qelto/multimedia/lists/") + kList + ".list", content);
    }

    // The value, or "(none)".
    static std::string look(const char* key, const char* list = kList) {
        std::array<char, 256> value{};
        value.fill('#');
        const int found = ListServiceUtils::getInstance().getListValueByName(
                list, key, value.data(), value.size());
        if (found == 0) {
            EXPECT_STREQ(value.data(), "");
        }
        return found != 0 ? value.data() : "(none)";
    }

    const TempDir mRoot;
    const ScopedEnv mEnv{"SONOREL_DEVICE_ROOT", mRoot.path()};
};

TEST_F(ListServiceUtilsTest, ReadsKeysAndValues) {
    write("# com.example.comment 9\n"
          "com.example.one 1\n"
          "  com.example.tabs \t 17  \r\n"
          "\n"
          "com.example.empty\n"
          "com.example.words two words # and no comment\n"
          "com.example.one 3\n"
          "com.example.last 5");
    EXPECT_EQ(look("com.example.one"), "3") << "the later line counts";
    EXPECT_EQ(look("com.example.tabs"), "17");
    EXPECT_EQ(look("com.example.empty"), "");
    EXPECT_EQ(look("com.example.words"), "two words # and no comment");
    EXPECT_EQ(look("com.example.last"), "5");
    EXPECT_EQ(look("com.example.on"), "(none)");
    EXPECT_EQ(look("#"), "(none)");
    EXPECT_EQ(look(""), "(none)");
}

TEST_F(ListServiceUtilsTest, SeesEveryEditAtTheNextLookUp) {
    EXPECT_EQ(look("a"), "(none)");
    const std::string path = write("a 1\n");
    EXPECT_EQ(look("a"), "1");
    // Same size and, with luck, the same clock tick.
    for (int i = 0; i < 200; ++i) {
        write("a " + std::to_string(i % 10) + "\n");
        ASSERT_EQ(look("a"), std::to_string(i % 10));
    }
    // An old file is not read again, but its replacement by another old one is seen.
    const timespec old[2] = {{1000, 0}, {1000, 0}};
    const std::string other = mRoot.write("other", "a 77\n");
    ASSERT_EQ(utimensat(AT_FDCWD, other.c_str(), old, 0), 0);
    ASSERT_EQ(rename(other.c_str(), path.c_str()), 0);
    EXPECT_EQ(look("a"), "77");
    ASSERT_EQ(unlink(path.c_str()), 0);
    EXPECT_EQ(look("a"), "(none)");
}

TEST_F(ListServiceUtilsTest, NeverOverrunsTheBuffer) {
    write("long 12345678\nfits 1234567\n");
    auto& lists = ListServiceUtils::getInstance();
    std::array<char, 9> value{};
    value.fill('#');
    const LogCapture log;
    EXPECT_EQ(lists.getListValueByName(kList, "long", value.data(), 8), 0);
    EXPECT_EQ(value[0], '\0') << "half a value may mean something else";
    EXPECT_EQ(value[8], '#');
    EXPECT_TRUE(log.contains("has 8 bytes, there is room for 7"));
    EXPECT_NE(lists.getListValueByName(kList, "fits", value.data(), 8), 0);
    EXPECT_STREQ(value.data(), "1234567");
    EXPECT_EQ(value[8], '#');
    value[0] = '#';
    EXPECT_EQ(lists.getListValueByName(kList, "fits", value.data(), 0), 0);
    EXPECT_EQ(lists.getListValueByName(kList, "fits", value.data(), -1), 0);
    EXPECT_EQ(value[0], '#');
    EXPECT_EQ(lists.getListValueByName(kList, "fits", nullptr, 8), 0);
    EXPECT_EQ(lists.getListValueByName(kList, nullptr, value.data(), 8), 0);
    EXPECT_EQ(lists.getListValueByName(nullptr, "fits", value.data(), 8), 0);
}

TEST_F(ListServiceUtilsTest, ListNamesCannotLeaveTheFolder) {
    mRoot.write("data/qelto/multimedia/secret.list", "key 1\n");
    mRoot.write("data/qelto/multimedia/lists/sub/in.list", "key 1\n");
    mRoot.write("data/qelto/multimedia/lists/.hidden.list", "key 1\n");
    const std::string tooLong(300, 'a');
    for (const char* name : {"../secret", "sub/in", "/data/qelto/multimedia/secret", ".hidden",
                             "..", "", "a b", tooLong.c_str()}) {
        const LogCapture log;
        EXPECT_EQ(look("key", name), "(none)") << name;
        EXPECT_TRUE(log.contains("refused list name")) << name;
    }
}

TEST_F(ListServiceUtilsTest, WhatIsNoFileIsLoggedAndDoesNotHang) {
    const std::string path = write("a 1\n");
    ASSERT_EQ(unlink(path.c_str()), 0);
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    {
        const LogCapture log;
        EXPECT_EQ(look("a"), "(none)");
        EXPECT_TRUE(log.contains(std::string("/data/qelto/multimedia/lists/") + kList + ".list"));
    }
    ASSERT_EQ(unlink(path.c_str()), 0);
    ASSERT_EQ(mkdir(path.c_str(), 0700), 0);
    EXPECT_EQ(look("a"), "(none)");
    ASSERT_EQ(rmdir(path.c_str()), 0);
    write(std::string(size_t{5} * 1024 * 1024, 'a') + " 1\n");
    EXPECT_EQ(look("a"), "(none)");
    write("a 2\n");
    EXPECT_EQ(look("a"), "2");
}

TEST_F(ListServiceUtilsTest, LooksUpFromManyThreadsWhileTheListIsReplaced) {
    const std::string path = write("a 1\nb 1\n");
    std::atomic<bool> done{false};
    std::vector<std::thread> readers;
    readers.reserve(3);
    for (int i = 0; i < 3; ++i) {
        readers.emplace_back([&done] {
            while (!done) {
                const std::string value = look("b");
                EXPECT_TRUE(value == "1" || value == "22") << value;
            }
        });
    }
    for (int i = 0; i < 300; ++i) {
        const std::string next = mRoot.write("next", i % 2 == 0 ? "b 22\n" : "a 1\nb 1\n");
        ASSERT_EQ(rename(next.c_str(), path.c_str()), 0);
    }
    done = true;
    for (std::thread& reader : readers)
        reader.join();
}

}  // namespace
}  // namespace android
