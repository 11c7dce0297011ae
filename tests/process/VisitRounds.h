#pragma once

#include "process/ProcessTest.h"

namespace sonorel::test {

// Client processes that come, get a callback, and are killed all at once, again and again. What the
// service holds for a client must be gone with it.
class VisitRounds : public ProcessTest {
protected:
    // The first of the rounds shows what a quiet service holds after one crowd has been; the last
    // must not show more.
    void run(int rounds, int clients);

private:
    void runRound(int clients);
    // The figures once every descriptor of the crowd is closed.
    ProcessFigures settledFigures();

    long mQuietDescriptors = 0;
};

}  // namespace sonorel::test
