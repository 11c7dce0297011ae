#pragma once

#include <optional>

#include "process/ProcessTest.h"

namespace sonorel::test {

// Client processes that come, get a callback, and are killed all at once, again and again. What the
// service holds for a client must be gone with it.
class VisitRounds : public ProcessTest {
protected:
    // A first quarter of the rounds warms up; after the rest the service must hold no more than it
    // did then. Its heap is asked only where a growth, in bytes, is named: that needs a preloaded
    // library, which a sanitizer's build does not bear.
    void run(int rounds, int clients, std::optional<long> toleratedHeapGrowth = std::nullopt);

private:
    void runRound(int clients);
    long heapInUse();

    long mQuietDescriptors = 0;
};

}  // namespace sonorel::test
