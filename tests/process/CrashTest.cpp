#include <memory>

#include "process/CrashRounds.h"

namespace sonorel::test {
namespace {

using Crash = CrashRounds;

TEST_F(Crash, KilledServiceLosesNoAcknowledgedSetting) {
    run(10, 1);
}

}  // namespace
}  // namespace sonorel::test
