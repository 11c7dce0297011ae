#pragma once

#include "process/ProcessTest.h"

namespace sonorel::test {

// Eight caller processes that mix all methods, with headset changes and user switches among them,
// while clients are registered; afterwards the service holds settings as on the first day.
class StormRounds : public ProcessTest {
protected:
    void run(int callsEach);
};

}  // namespace sonorel::test
