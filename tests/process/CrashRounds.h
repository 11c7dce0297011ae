#pragma once

#include <atomic>
#include <cstdint>
#include <random>

#include "process/ProcessTest.h"

namespace sonorel::test {

// Rounds of kill -9 of sonoreld at a random moment under a stream of settings. After each, the
// database must open clean and hold every setting that was acknowledged.
class CrashRounds : public ProcessTest {
protected:
    void run(int rounds, uint32_t seed);

private:
    // What the store may hold: what was last acknowledged, or what was under way at the end.
    struct Pending {
        int32_t acknowledged = 0;
        int32_t sent = 0;
    };

    void killWhileSetting(std::mt19937& random);
    void setUntilItEnds();
    // One setting of the stream; false when the service has gone.
    bool setOne(int32_t number);
    void checkDatabase();
    void checkSettings();
    static void settle(const char* what, int32_t stored, Pending* pending);

    int32_t mNumber = 0;
    std::atomic<int> mAcknowledged{0};
    // Of the live device, acknowledged once stored.
    Pending mOn;
    Pending mMode;
    Pending mPos;
    // Stored after the answer: a later value may be missing, an earlier one must not come back.
    Pending mDeferred;
};

}  // namespace sonorel::test
