#pragma once

#include <utils/Errors.h>
#include <utils/Timers.h>

#include <string>

namespace android {

/**
 * Writes `text` to a descriptor that came from somebody else: a pipe, a socket, a file, a terminal.
 * Whatever its reader does, and whoever else writes to it, the call is back after `within`, with
 * TIMED_OUT when that was too short; part of the text may have been written then. The descriptor's
 * flags, which it shares with its owner, neither matter nor change.
 *
 * BAD_VALUE is the answer to a device other than a terminal or the likes of /dev/null, and the
 * system's refusal that to a terminal which this process may not open.
 *
 * A reader that has gone is the status of a reset connection and no SIGPIPE: DEAD_OBJECT has the
 * number of EPIPE, and would tell the caller that the binder had died.
 */
[[nodiscard]] status_t writeText(int fd, const std::string& text, nsecs_t within);

}  // namespace android
