#include <memory>

#include "process/StormRounds.h"

namespace sonorel::test {

namespace {

constexpr int kCallers = 8;

const std::vector<std::string>& fullProduct() {
    static const std::vector<std::string> sArgs = {
            "--property", "ro.qelto.audio.support.meta_audio_speaker=true",
            "--property", "ro.qelto.audio.support.mss=1",
            "--property", "ro.qelto.audio.support.low_latency_game_effect=true",
            "--property", "ro.qelto.audio.support.low_latency_game_effect.show_ui=true"};
    return sArgs;
}

}  // namespace

void StormRounds::run(int callsEach) {
    ASSERT_NO_FATAL_FAILURE(start(fullProduct()));
    for (const int8_t id : {0, 1, 3, 4, 5})
        (void)addClient(id);  // the registration keeps it

    std::vector<std::unique_ptr<ChildProcess>> callers;
    callers.reserve(kCallers);
    for (int i = 0; i < kCallers; ++i) {
        callers.push_back(std::make_unique<ChildProcess>(
                peer({"storm", std::to_string(100 + i), std::to_string(callsEach)})));
    }
    for (const auto& caller : callers) {
        const auto end = caller->wait(20 * kEventDeadline);
        ASSERT_TRUE(end.has_value());
        EXPECT_TRUE(end->exited && end->code == 0) << caller->errors();
    }

    EXPECT_TRUE(mService->setCurrentUserID(0).isOk());
    expectServes();
    stop();
    EXPECT_EQ(0U, mRoot.damagedDatabases());
    ASSERT_NO_FATAL_FAILURE(start(fullProduct()));
    std::vector<float> stored(3);
    EXPECT_TRUE(mService->getCurrentPosWithDev(7, &stored, -1).isOk());
    expectServes();
}

}  // namespace sonorel::test
