#include <binder/Status.h>

#include <string>

namespace android::binder {

Status::Status(int32_t exceptionCode, int32_t errorCode)
        : mException(exceptionCode), mErrorCode(errorCode) {}

Status::Status(int32_t exceptionCode, int32_t errorCode, const String8& message)
        : mException(exceptionCode), mErrorCode(errorCode), mMessage(message) {}

Status Status::ok() {
    return {};
}

Status Status::fromExceptionCode(int32_t exceptionCode) {
    return {exceptionCode, OK};
}

Status Status::fromExceptionCode(int32_t exceptionCode, const String8& message) {
    return {exceptionCode, OK, message};
}

Status Status::fromExceptionCode(int32_t exceptionCode, const char* message) {
    return {exceptionCode, OK, String8(message)};
}

Status Status::fromServiceSpecificError(int32_t serviceSpecificErrorCode) {
    return {EX_SERVICE_SPECIFIC, serviceSpecificErrorCode};
}

Status Status::fromServiceSpecificError(int32_t serviceSpecificErrorCode, const String8& message) {
    return {EX_SERVICE_SPECIFIC, serviceSpecificErrorCode, message};
}

Status Status::fromServiceSpecificError(int32_t serviceSpecificErrorCode, const char* message) {
    return {EX_SERVICE_SPECIFIC, serviceSpecificErrorCode, String8(message)};
}

Status Status::fromStatusT(status_t status) {
    Status result;
    result.setFromStatusT(status);
    return result;
}

std::string Status::exceptionToString(int32_t exceptionCode) {
    switch (exceptionCode) {
        case EX_NONE:
            return "EX_NONE";
        case EX_SECURITY:
            return "EX_SECURITY";
        case EX_BAD_PARCELABLE:
            return "EX_BAD_PARCELABLE";
        case EX_ILLEGAL_ARGUMENT:
            return "EX_ILLEGAL_ARGUMENT";
        case EX_NULL_POINTER:
            return "EX_NULL_POINTER";
        case EX_ILLEGAL_STATE:
            return "EX_ILLEGAL_STATE";
        case EX_NETWORK_MAIN_THREAD:
            return "EX_NETWORK_MAIN_THREAD";
        case EX_UNSUPPORTED_OPERATION:
            return "EX_UNSUPPORTED_OPERATION";
        case EX_SERVICE_SPECIFIC:
            return "EX_SERVICE_SPECIFIC";
        case EX_PARCELABLE:
            return "EX_PARCELABLE";
        case EX_HAS_REPLY_HEADER:
            return "EX_HAS_REPLY_HEADER";
        case EX_TRANSACTION_FAILED:
            return "EX_TRANSACTION_FAILED";
        default:
            return std::to_string(exceptionCode);
    }
}

namespace {

// A block whose first word is its size, that word included.
status_t skipSizedBlock(const Parcel& parcel) {
    const size_t start = parcel.dataPosition();
    int32_t size = 0;
    if (const status_t status = parcel.readInt32(&size); status != OK) return status;
    if (size < 0) return UNKNOWN_ERROR;
    if (static_cast<size_t>(size) > parcel.dataSize() - start) return NOT_ENOUGH_DATA;
    if (size > static_cast<int32_t>(sizeof(int32_t))) parcel.setDataPosition(start + size);
    return OK;
}

status_t readException(const Parcel& parcel, Status* outStatus) {
    int32_t exception = Status::EX_NONE;
    if (const status_t status = parcel.readInt32(&exception); status != OK) return status;
    if (exception == Status::EX_HAS_REPLY_HEADER) {
        *outStatus = Status::ok();
        return skipSizedBlock(parcel);
    }
    if (exception == Status::EX_NONE) {
        *outStatus = Status::ok();
        return OK;
    }

    String16 message;
    if (const status_t status = parcel.readString16(&message); status != OK) return status;
    if (const status_t status = skipSizedBlock(parcel); status != OK) return status;  // stack trace
    int32_t error = OK;
    if (exception == Status::EX_SERVICE_SPECIFIC) {
        if (const status_t status = parcel.readInt32(&error); status != OK) return status;
    } else if (exception == Status::EX_PARCELABLE) {
        if (const status_t status = skipSizedBlock(parcel); status != OK) return status;
    }
    *outStatus = Status(exception, error, String8(message));
    return OK;
}

}  // namespace

status_t Status::readFromParcel(const Parcel& parcel) {
    const status_t status = readException(parcel, this);
    // What only exists in memory must not come from outside, where it could pose as a status.
    if (status == OK && mException == EX_TRANSACTION_FAILED) {
        setFromStatusT(UNKNOWN_ERROR);
        return UNKNOWN_ERROR;
    }
    if (status != OK) setFromStatusT(status);
    return status;
}

status_t Status::writeToParcel(Parcel* parcel) const {
    if (mException == EX_TRANSACTION_FAILED) return mErrorCode;
    status_t status = parcel->writeInt32(mException);
    if (mException == EX_NONE || status != OK) return status;
    status = parcel->writeString16(String16(mMessage));
    if (status != OK) return status;
    status = parcel->writeInt32(0);  // no stack trace
    if (status != OK) return status;
    if (mException == EX_SERVICE_SPECIFIC) return parcel->writeInt32(mErrorCode);
    if (mException == EX_PARCELABLE) return parcel->writeInt32(0);
    return OK;
}

void Status::setException(int32_t exceptionCode, const String8& message) {
    *this = Status(exceptionCode, OK, message);
}

void Status::setServiceSpecificError(int32_t serviceSpecificErrorCode, const String8& message) {
    *this = Status(EX_SERVICE_SPECIFIC, serviceSpecificErrorCode, message);
}

void Status::setFromStatusT(status_t status) {
    if (status == OK) {
        // The usual end of a generated method, on a status that is ok already.
        if (mException != EX_NONE) *this = Status();
        return;
    }
    *this = Status(EX_TRANSACTION_FAILED, status);
}

String8 Status::toString8() const {
    if (isOk()) return String8("No error");
    std::string text =
            "Status(" + std::to_string(mException) + ", " + exceptionToString(mException) + "): '";
    if (mException == EX_SERVICE_SPECIFIC) text += std::to_string(mErrorCode) + ": ";
    if (mException == EX_TRANSACTION_FAILED) text += statusToString(mErrorCode) + ": ";
    text += std::string(mMessage.c_str()) + "'";
    return String8(text.c_str());
}

std::ostream& operator<<(std::ostream& stream, const Status& status) {
    return stream << status.toString8().c_str();
}

}  // namespace android::binder
