// A setting through the service, in process, to its acknowledged write, in turns with the least
// that SQLite needs for such a row with the same settings.

#include <memory>

#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cstdlib>

#include "Processes.h"
#include "Timing.h"
#include "service/SonorelService.h"
#include "support/TempDir.h"

namespace sonorel::bench {
namespace {

class BareRow {
public:
    explicit BareRow(const std::string& path) {
        check(sqlite3_open(path.c_str(), &mConnection));
        for (const char* sql :
             {"PRAGMA journal_mode = WAL", "PRAGMA synchronous = NORMAL",
              "CREATE TABLE T(user INTEGER, device INTEGER, is_on INTEGER, mode INTEGER,"
              " seeded INTEGER, PRIMARY KEY(user, device)) STRICT, WITHOUT ROWID",
              "INSERT INTO T VALUES(0, 1, 0, 0, 1)"}) {
            check(sqlite3_exec(mConnection, sql, nullptr, nullptr, nullptr));
        }
        check(sqlite3_prepare_v2(mConnection,
                                 "UPDATE T SET is_on = ? WHERE user = 0 AND device = 1", -1,
                                 &mUpdate, nullptr));
    }
    ~BareRow() {
        (void)sqlite3_finalize(mUpdate);
        (void)sqlite3_close(mConnection);
    }
    BareRow(const BareRow&) = delete;
    BareRow& operator=(const BareRow&) = delete;

    void set(bool on) {
        check(sqlite3_bind_int(mUpdate, 1, on ? 1 : 0));
        require(sqlite3_step(mUpdate) == SQLITE_DONE, sqlite3_errmsg(mConnection));
        check(sqlite3_reset(mUpdate));
    }

private:
    void check(int result) { require(result == SQLITE_OK, sqlite3_errmsg(mConnection)); }

    sqlite3* mConnection = nullptr;
    sqlite3_stmt* mUpdate = nullptr;
};

void setMetaAudioOnToAcknowledgedWrite(benchmark::State& state) {
    constexpr int kBatch = 50;
    const test::DeviceRoot root;
    const test::TempDir folder;
    (void)setenv("SONOREL_DEVICE_ROOT", root.path().c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
    require(chdir(root.path().c_str()) == 0, root.path());
    BareRow bare(folder.path("bare.db"));
    const android::sp<android::SonorelService> service = android::SonorelService::testInstantiate();
    std::vector<int64_t> bareTimes;
    std::vector<int64_t> serviceTimes;
    int32_t status = 0;
    for (auto _ : state) {
        for (int i = 0; i < kBatch; ++i) {
            const int64_t start = now();
            bare.set((i & 1) != 0);
            bareTimes.push_back(now() - start);
        }
        for (int i = 0; i < kBatch; ++i) {
            const int64_t start = now();
            require(service->setMetaAudioOn((i & 1) != 0, &status).isOk(), "setting");
            serviceTimes.push_back(now() - start);
        }
    }
    for (const auto& [name, share] : {std::pair{"p50", 0.5}, std::pair{"p99", 0.99}}) {
        const double bareTime = micros(percentile(bareTimes, share));
        const double serviceTime = micros(percentile(serviceTimes, share));
        state.counters[std::string("bare_us_") + name] = bareTime;
        state.counters[std::string("service_us_") + name] = serviceTime;
        state.counters[std::string("ratio_") + name] = serviceTime / bareTime;
    }
}
BENCHMARK(setMetaAudioOnToAcknowledgedWrite)->UseRealTime()->MinTime(1.0);

}  // namespace
}  // namespace sonorel::bench
