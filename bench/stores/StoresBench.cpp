#include <benchmark/benchmark.h>
#include <qelto/FgeDatabase.h>
#include <qelto/MetaInfoSqliteUtil.h>
#include <qelto/MssDatabase.h>
#include <sqlite3.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "support/TempDir.h"

using android::FgeDatabase;
using android::MetaInfoSqliteUtil;
using android::MssDatabase;
using android::sp;
using sonorel::test::TempDir;

namespace {

void require(int result, const char* what) {
    if (result == SQLITE_OK || result == SQLITE_DONE || result == SQLITE_ROW) return;
    fprintf(stderr, "%s: %s\n", what, sqlite3_errstr(result));
    abort();
}

// The least that SQLite itself needs for the same row, with the same settings.
class BareUpdate {
public:
    BareUpdate(const std::string& path, const char* synchronous) {
        require(sqlite3_open_v2(path.c_str(), &mConnection,
                                SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX,
                                nullptr),
                "open");
        run("PRAGMA journal_mode = WAL");
        run(std::string("PRAGMA synchronous = ") + synchronous);
        run("CREATE TABLE T(user_id INTEGER NOT NULL, device INTEGER NOT NULL, is_on INTEGER,"
            " mode INTEGER, seeded INTEGER, PRIMARY KEY(user_id, device)) STRICT, WITHOUT ROWID");
        run("INSERT INTO T VALUES(0, 0, 0, 0, 0)");
        require(sqlite3_prepare_v3(mConnection,
                                   "UPDATE T SET is_on = ?3 WHERE user_id = ?1 AND device = ?2", -1,
                                   SQLITE_PREPARE_PERSISTENT, &mUpdate, nullptr),
                "prepare");
    }
    ~BareUpdate() {
        (void)sqlite3_finalize(mUpdate);
        (void)sqlite3_close(mConnection);
    }
    BareUpdate(const BareUpdate&) = delete;
    BareUpdate& operator=(const BareUpdate&) = delete;

    void set(bool on) {
        (void)sqlite3_bind_int(mUpdate, 1, 0);
        (void)sqlite3_bind_int(mUpdate, 2, 0);
        (void)sqlite3_bind_int(mUpdate, 3, on ? 1 : 0);
        require(sqlite3_step(mUpdate), "update");
        (void)sqlite3_reset(mUpdate);
    }

private:
    void run(const std::string& sql) {
        require(sqlite3_exec(mConnection, sql.c_str(), nullptr, nullptr, nullptr), sql.c_str());
    }

    sqlite3* mConnection = nullptr;
    sqlite3_stmt* mUpdate = nullptr;
};

std::vector<std::string> makePackages(int64_t count) {
    std::vector<std::string> packages;
    packages.reserve(static_cast<size_t>(count));
    for (int64_t i = 0; i < count; ++i) {
        packages.push_back("com.example.game.number" + std::to_string(i));
    }
    return packages;
}

sp<MetaInfoSqliteUtil> makeStore(const std::string& path) {
    return new MetaInfoSqliteUtil(path, "META_INFO", 14, 1.5f, 0);
}

// Both sides in turns within one run, so that they meet the same disk and the same neighbours; the
// two counters are microseconds a write, `ratio` is the store's over the bare update's.
void writeAgainstBareUpdate(benchmark::State& state) {
    using Clock = std::chrono::steady_clock;
    constexpr int kBatch = 50;
    const TempDir folder;
    BareUpdate bare(folder.path("bare.db"), "NORMAL");
    const auto store = makeStore(folder.path("meta.db"));
    store->setMetaAudioOn(true, 0);

    Clock::duration bareTime{};
    Clock::duration storeTime{};
    for (auto _ : state) {
        const auto start = Clock::now();
        for (int i = 0; i < kBatch; ++i)
            bare.set((i & 1) != 0);
        const auto middle = Clock::now();
        for (int i = 0; i < kBatch; ++i)
            store->setMetaAudioOn((i & 1) != 0, 0);
        const auto end = Clock::now();
        bareTime += middle - start;
        storeTime += end - middle;
    }
    const double writes = static_cast<double>(state.iterations()) * kBatch;
    const auto micros = [writes](Clock::duration time) {
        return std::chrono::duration<double, std::micro>(time).count() / writes;
    };
    state.counters["bare_us"] = micros(bareTime);
    state.counters["store_us"] = micros(storeTime);
    state.counters["ratio"] = micros(storeTime) / micros(bareTime);
}
BENCHMARK(writeAgainstBareUpdate)->UseRealTime()->MinTime(1.0);

void bareUpdateSyncedEachTime(benchmark::State& state) {
    const TempDir folder;
    BareUpdate bare(folder.path("bare.db"), "FULL");
    bool on = false;
    for (auto _ : state)
        bare.set(on = !on);
}
BENCHMARK(bareUpdateSyncedEachTime)->UseRealTime();

void readOn(benchmark::State& state) {
    const TempDir folder;
    const auto store = makeStore(folder.path("meta.db"));
    for (auto _ : state)
        benchmark::DoNotOptimize(store->getMetaAudioOn(-2));
}
BENCHMARK(readOn);

// What start-up pays for all three stores on a file of state.range(0) packages, check included.
void openThreeStores(benchmark::State& state) {
    const TempDir folder;
    const std::string path = folder.path("meta.db");
    const std::vector<std::string> packages = makePackages(state.range(0));
    {
        const sp<FgeDatabase> games = new FgeDatabase(path);
        games->updateDataBase(packages, {});
    }
    for (auto _ : state) {
        const auto meta = makeStore(path);
        const sp<MssDatabase> mss = new MssDatabase(path);
        const sp<FgeDatabase> games = new FgeDatabase(path);
        benchmark::DoNotOptimize(meta->needInitDefaultHomePos());
    }
}
BENCHMARK(openThreeStores)->Arg(0)->Arg(5000)->Unit(benchmark::kMicrosecond)->UseRealTime();

void updatePackageList(benchmark::State& state) {
    const TempDir folder;
    const sp<FgeDatabase> games = new FgeDatabase(folder.path("meta.db"));
    const std::vector<std::string> packages = makePackages(state.range(0));
    bool all = false;
    for (auto _ : state) {
        all = !all;
        games->updateDataBase(all ? packages : std::vector<std::string>(), {});
    }
}
BENCHMARK(updatePackageList)->Arg(100)->Arg(5000)->Unit(benchmark::kMicrosecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
