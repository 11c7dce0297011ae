#pragma once

#include <string>
#include <system_error>

namespace android::transport {

/** What an errno value means, for a log line. */
inline std::string errorText(int error) {
    return std::generic_category().message(error);
}

}  // namespace android::transport
