#pragma once

#include "Verb.h"

namespace sonorel::ctl {

// Runs `action` and returns what it returned. When it takes longer than the globals allow, says so
// and leaves the process with kExitTimedOut: a call that does not come back cannot be ended.
int runWithin(const Globals& globals, const Action& action);

}  // namespace sonorel::ctl
