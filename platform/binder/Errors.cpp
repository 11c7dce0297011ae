#include <utils/Errors.h>

#include <string>
#include <system_error>

namespace android {

// Declared by libutils, whose Debian build lacks it.
std::string statusToString(status_t status) {
    switch (status) {
        case OK:
            return "No error";
        case UNKNOWN_ERROR:
            return "UNKNOWN_ERROR";
        case BAD_TYPE:
            return "BAD_TYPE";
        case FAILED_TRANSACTION:
            return "FAILED_TRANSACTION";
        case FDS_NOT_ALLOWED:
            return "FDS_NOT_ALLOWED";
        case UNEXPECTED_NULL:
            return "UNEXPECTED_NULL";
        case NOT_ENOUGH_DATA:
            return "NOT_ENOUGH_DATA";
        case DEAD_OBJECT:
            return "DEAD_OBJECT";
        case UNKNOWN_TRANSACTION:
            return "UNKNOWN_TRANSACTION";
        default:
            return std::generic_category().message(-status) + " (" + std::to_string(status) + ")";
    }
}

}  // namespace android
