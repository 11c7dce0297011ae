#pragma once

#include <binder/Parcel.h>
#include <stdint.h>
#include <utils/Errors.h>
#include <utils/String8.h>

#include <ostream>
#include <string>

namespace android::binder {

/**
 * The outcome of a method of an interface: ok, an exception with a message, a service-specific
 * error, or a transport error. It is the first thing in a reply. A transport error is never in a
 * parcel: writing it returns it, so that the transport carries it.
 */
class Status final {
public:
    enum Exception {
        EX_NONE = 0,
        EX_SECURITY = -1,
        EX_BAD_PARCELABLE = -2,
        EX_ILLEGAL_ARGUMENT = -3,
        EX_NULL_POINTER = -4,
        EX_ILLEGAL_STATE = -5,
        EX_NETWORK_MAIN_THREAD = -6,
        EX_UNSUPPORTED_OPERATION = -7,
        EX_SERVICE_SPECIFIC = -8,
        EX_PARCELABLE = -9,

        /** An ok answer behind a header that a native caller skips. */
        EX_HAS_REPLY_HEADER = -128,
        /** Only in memory: the call did not arrive or was not answered. */
        EX_TRANSACTION_FAILED = -129,
    };

    static Status ok();
    static Status fromExceptionCode(int32_t exceptionCode);
    static Status fromExceptionCode(int32_t exceptionCode, const String8& message);
    static Status fromExceptionCode(int32_t exceptionCode, const char* message);
    static Status fromServiceSpecificError(int32_t serviceSpecificErrorCode);
    static Status fromServiceSpecificError(int32_t serviceSpecificErrorCode,
                                           const String8& message);
    static Status fromServiceSpecificError(int32_t serviceSpecificErrorCode, const char* message);
    /** Ok for OK, else a transport error. */
    static Status fromStatusT(status_t status);

    static std::string exceptionToString(int32_t exceptionCode);

    Status() = default;
    Status(int32_t exceptionCode, int32_t errorCode);
    Status(int32_t exceptionCode, int32_t errorCode, const String8& message);

    /** Reads the head of a reply. On failure the status is a transport error too. */
    status_t readFromParcel(const Parcel& parcel);
    status_t writeToParcel(Parcel* parcel) const;

    void setException(int32_t exceptionCode, const String8& message);
    void setServiceSpecificError(int32_t serviceSpecificErrorCode, const String8& message);
    void setFromStatusT(status_t status);

    [[nodiscard]] bool isOk() const { return mException == EX_NONE; }
    [[nodiscard]] int32_t exceptionCode() const { return mException; }
    [[nodiscard]] const String8& exceptionMessage() const { return mMessage; }
    /** OK unless the call failed in the transport. */
    [[nodiscard]] status_t transactionError() const {
        return mException == EX_TRANSACTION_FAILED ? mErrorCode : OK;
    }
    /** 0 unless the method answered a service-specific error. */
    [[nodiscard]] int32_t serviceSpecificErrorCode() const {
        return mException == EX_SERVICE_SPECIFIC ? mErrorCode : 0;
    }
    [[nodiscard]] String8 toString8() const;

private:
    int32_t mException = EX_NONE;
    // Meaning depends on mException: a status_t, or the service's own code.
    int32_t mErrorCode = 0;
    String8 mMessage;
};

std::ostream& operator<<(std::ostream& stream, const Status& status);

}  // namespace android::binder
