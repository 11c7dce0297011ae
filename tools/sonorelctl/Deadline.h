#pragma once

#include "Verb.h"

namespace sonorel::ctl {

// Runs `action` and returns what it returned. When it takes longer than the globals allow, says so
// and leaves the process with kExitTimedOut: a call that does not come back cannot be ended.
int runWithin(const Globals& globals, const Action& action);

// Says that no answer came in time, and leaves the process with kExitTimedOut.
[[noreturn]] void leaveTimedOut(const Globals& globals);

}  // namespace sonorel::ctl
