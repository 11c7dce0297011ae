#pragma once

#include <cstdint>

namespace sonorel::ctl {

// The name of a callback event, null for a number that the service does not send.
const char* eventName(int32_t event);

}  // namespace sonorel::ctl
