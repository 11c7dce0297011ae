// Short forms of the soaks, so that every build of sonoreld goes through them.

#include <memory>

#include "process/PolicyRounds.h"
#include "process/StormRounds.h"
#include "process/VisitRounds.h"

namespace sonorel::test {
namespace {

using Visit = VisitRounds;
using Policy = PolicyRounds;
using Storm = StormRounds;

TEST_F(Visit, KilledClientsLeaveNothingBehind) {
    run(3, 10);
}

TEST_F(Storm, EightCallersMixAllMethods) {
    run(1000);
}

TEST_F(Policy, FileThatIsReplacedDuringReloadsIsServed) {
    replaceDuringReloads(10, 3);
}

}  // namespace
}  // namespace sonorel::test
