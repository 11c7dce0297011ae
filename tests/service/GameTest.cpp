// The game effect. Its flags are read while the library loads, so each combination of them runs as
// a process of its own: SONOREL_PROPERTIES names the combination's property file.

#include <cstdlib>

#include "service/ServiceHarness.h"
#include "stores/RawDatabase.h"
#include "support/Wait.h"

namespace sonorel::test {

namespace {

// Only game-true-true.prop has both the feature and its switches.
bool isWhole() {
    // Before any thread that could change the environment.
    const char* const file = std::getenv("SONOREL_PROPERTIES");  // NOLINT(concurrency-mt-unsafe)
    const std::string name = file == nullptr ? "" : file;
    const size_t at = name.rfind("game-");
    EXPECT_NE(std::string::npos, at) << "run it by ctest, which names the combination";
    return at != std::string::npos && name.substr(at) == "game-true-true.prop";
}

class Game : public ServiceTest {
protected:
    int32_t get(const std::string& pkgName) {
        int32_t value = 99;
        EXPECT_TRUE(mService->getFastGameEffectOn(pkgName, &value).isOk());
        return value;
    }
    int32_t set(const std::string& pkgName, int32_t value) {
        int32_t result = 99;
        EXPECT_TRUE(mService->setFastGameEffectOn(pkgName, value, &result).isOk());
        return result;
    }
    std::string load() {
        mService->awaitStoreWrites();
        std::string text = "keep";
        EXPECT_TRUE(mService->loadPkgSwitchInFastSql(&text).isOk());
        return text;
    }
    void sync(const std::string& list) { EXPECT_TRUE(mService->syncGameListInfo(list).isOk()); }
};

// The combinations in which the feature is not whole.
TEST_F(Game, AbsentOrInert) {
    if (isWhole()) GTEST_SKIP() << "the feature is there";
    start();
    addClient(1);
    mEvents.clear();
    sync("com.example.racer 1\n");
    EXPECT_EQ("", load());
    EXPECT_EQ(-1, set("com.example.racer", 1));
    EXPECT_EQ(-1, get("com.example.racer"));
    EXPECT_TRUE(mEvents.lines().empty());
    EXPECT_EQ(0U, mCapture.count("FastGameEffect: make fgedatabase init"));
    EXPECT_TRUE(
            mCapture.contains("FastGameEffect: syncGameListInfoInt: multimedia list vek update, "
                              "moduleInfoStr: com.example.racer 1"));
}

TEST_F(Game, SwitchReachesClientCacheAndStore) {
    if (!isWhole()) GTEST_SKIP() << "the feature is not whole";
    start();
    EXPECT_EQ(1U, mCapture.count("FastGameEffect: make fgedatabase init"));
    addClient(1, [](int32_t, const CallbackData&, CallbackData* out) { out->status = 3; });
    mEvents.clear();
    EXPECT_EQ(-1, set("com.example.racer", 1)) << "not listed yet";
    sync(R"({"com.example.racer": 1, "com.example.shooter": 1})");
    EXPECT_EQ(-1, get("com.example.racer")) << "the cache follows at the next load";
    EXPECT_EQ(R"({"com.example.racer":0,"com.example.shooter":0})", load());
    EXPECT_EQ(0, get("com.example.racer"));
    EXPECT_TRUE(mEvents.lines().empty());

    EXPECT_EQ(3, set("com.example.racer", 2));
    EXPECT_EQ((std::vector<std::string>{
                      "client 1 event 25 two-way pkgName=com.example.racer renderMode=2"}),
              mEvents.takeLines());
    EXPECT_EQ(2, get("com.example.racer"));
    EXPECT_EQ(R"({"com.example.racer":2,"com.example.shooter":0})", load());

    // Without a client the switch is kept all the same.
    ASSERT_TRUE(mService->unregisterClient(1).isOk());
    EXPECT_EQ(-1, set("com.example.shooter", 5));
    EXPECT_EQ(R"({"com.example.racer":2,"com.example.shooter":5})", load());
}

TEST_F(Game, ValuesComeBackWithTheirPackageAndFollowTheUser) {
    if (!isWhole()) GTEST_SKIP() << "the feature is not whole";
    start();
    addClient(1, [](int32_t, const CallbackData&, CallbackData* out) { out->status = 0; });
    sync("a 1\nb 1\n");
    (void)load();
    EXPECT_EQ(0, set("a", 7));
    mService->awaitStoreWrites();
    sync("b 1\n");
    EXPECT_EQ(R"({"a":-1,"b":0})", load());
    EXPECT_EQ(-1, set("a", 1)) << "left the list";
    sync("a 1\nb 1\n");
    EXPECT_EQ(R"({"a":7,"b":0})", load());

    EXPECT_EQ(0, set("b", 4));
    ASSERT_TRUE(mService->setCurrentUserID(10).isOk());  // the write for b still belongs to user 0
    EXPECT_EQ(R"({"a":0,"b":0})", load());
    EXPECT_EQ(0, set("a", 9));
    ASSERT_TRUE(mService->setCurrentUserID(0).isOk());
    EXPECT_EQ(R"({"a":7,"b":4})", load());
    ASSERT_TRUE(mService->setCurrentUserID(10).isOk());
    EXPECT_EQ(R"({"a":9,"b":0})", load());
}

// The database is locked by another program: a reload finds what waits for it, and takes back no
// switch that was set meanwhile.
TEST_F(Game, ReloadsKeepWhatIsNotStoredYet) {
    if (!isWhole()) GTEST_SKIP() << "the feature is not whole";
    start();
    sync("a 1\nb 1\n");
    (void)load();
    android::RawDatabase other(mRoot.path("data/qelto/multimedia/meta.db"));
    other.run("BEGIN IMMEDIATE");
    EXPECT_EQ(-1, set("a", 1)) << "no renderer";
    EXPECT_EQ(-1, set("a", 7));
    std::string text;
    EXPECT_TRUE(mService->loadPkgSwitchInFastSql(&text).isOk());
    EXPECT_EQ(R"({"a":7,"b":0})", text);
    EXPECT_EQ(7, get("a"));
    sync("a 1\nb 1\n");
    EXPECT_EQ(7, get("a"));
    EXPECT_EQ("0", other.query("SELECT max(value) FROM FGE_INFO"));
    other.run("ROLLBACK");
    EXPECT_TRUE(eventually([&] {
        mService->awaitStoreWrites();
        return other.query("SELECT max(value) FROM FGE_INFO") == "7";
    }));
}

TEST_F(Game, StrangersGetMinusOne) {
    start();
    sync("a 1\n");
    (void)load();
    const ScopedCaller stranger(kStrangerUid);
    EXPECT_EQ(-1, get("a"));
    EXPECT_EQ(99, set("a", 1));
}

}  // namespace

}  // namespace sonorel::test
