#include <memory>

#define LOG_TAG "Parcel"

#include <binder/Parcel.h>

#include <log/log.h>
#include <utils/Unicode.h>

#include <algorithm>
#include <cstring>

// Strings and vectors: values that bring their own size.

namespace android {

namespace {

bool isAscii(const std::string& text) {
    uint8_t all = 0;
    for (const char c : text)
        all |= static_cast<uint8_t>(c);
    return all < 0x80;
}

bool isAscii(const char16_t* text, size_t len) {
    uint16_t all = 0;
    for (size_t i = 0; i < len; ++i)
        all |= text[i];
    return all < 0x80;
}

}  // namespace

status_t Parcel::writeSize(size_t size) {
    return size > INT32_MAX ? failWrite(BAD_VALUE) : writeInt32(static_cast<int32_t>(size));
}

status_t Parcel::readSize(size_t elementBytes, size_t* outSize) const {
    int32_t size = 0;
    if (const status_t status = readInt32(&size); status != OK) return status;
    if (size < 0) return UNEXPECTED_NULL;
    if (static_cast<size_t>(size) > dataAvail() / elementBytes) return NOT_ENOUGH_DATA;
    *outSize = static_cast<size_t>(size);
    return OK;
}

status_t Parcel::readOutVectorSize(size_t elementBytes, size_t* outSize) const {
    int32_t size = 0;
    if (const status_t status = readInt32(&size); status != OK) return status;
    if (size < 0) return UNEXPECTED_NULL;
    if (static_cast<size_t>(size) > kMaxTransactionBytes / elementBytes) {
        ALOGW("Refused an out-vector of %d elements", size);
        return NO_MEMORY;
    }
    *outSize = static_cast<size_t>(size);
    return OK;
}

// ---- Strings ----

status_t Parcel::writeCString(const char* str) {
    return write(str, std::strlen(str) + 1);
}

const char* Parcel::readCString() const {
    const size_t avail = dataAvail();
    if (avail == 0) return nullptr;
    const void* end = std::memchr(mData + mDataPos, 0, avail);
    if (end == nullptr) return nullptr;
    const size_t len = static_cast<const uint8_t*>(end) - (mData + mDataPos);
    return static_cast<const char*>(readInplace(len + 1));
}

status_t Parcel::writeString8(const String8& str) {
    if (const status_t status = writeSize(str.bytes()); status != OK) return status;
    return write(str.c_str(), str.bytes() + 1);
}

status_t Parcel::readString8(String8* outStr) const {
    int32_t size = 0;
    if (const status_t status = readInt32(&size); status != OK) return status;
    if (size < 0) return UNEXPECTED_NULL;
    const auto* text = static_cast<const char*>(readInplace(static_cast<size_t>(size) + 1));
    if (text == nullptr) return NOT_ENOUGH_DATA;
    if (text[size] != '\0') return BAD_VALUE;
    return outStr->setTo(text, static_cast<size_t>(size));
}

String8 Parcel::readString8() const {
    String8 text;
    (void)readString8(&text);  // the empty string is this form's answer to a failure
    return text;
}

status_t Parcel::writeString16(const String16& str) {
    return writeString16(str.string(), str.size());
}

status_t Parcel::writeString16(const char16_t* str, size_t len) {
    if (str == nullptr) return writeInt32(-1);
    if (mDataPos % 4 != 0) return failWrite(BAD_VALUE);
    if (const status_t status = writeSize(len); status != OK) return status;
    auto* room = static_cast<char16_t*>(writeInplace((len + 1) * sizeof(char16_t)));
    if (room == nullptr) return mError;
    std::memcpy(room, str, len * sizeof(char16_t));
    std::memset(room + len, 0, sizeof(char16_t));
    return OK;
}

status_t Parcel::readString16Span(const char16_t** outText, size_t* outLen) const {
    if (mDataPos % 4 != 0) return BAD_VALUE;
    int32_t size = 0;
    if (const status_t status = readInt32(&size); status != OK) return status;
    if (size < 0) return UNEXPECTED_NULL;
    const size_t bytes = (static_cast<size_t>(size) + 1) * sizeof(char16_t);
    const auto* text = static_cast<const char16_t*>(readInplace(bytes));
    if (text == nullptr) return NOT_ENOUGH_DATA;
    if (text[size] != 0) return BAD_VALUE;
    *outText = text;
    *outLen = static_cast<size_t>(size);
    return OK;
}

const char16_t* Parcel::readString16Inplace(size_t* outLen) const {
    const char16_t* text = nullptr;
    return readString16Span(&text, outLen) == OK ? text : nullptr;
}

status_t Parcel::readString16(String16* outStr) const {
    size_t len = 0;
    const char16_t* text = nullptr;
    if (const status_t status = readString16Span(&text, &len); status != OK) return status;
    return outStr->setTo(text, len);
}

String16 Parcel::readString16() const {
    String16 text;
    (void)readString16(&text);  // the empty string is this form's answer to a failure
    return text;
}

status_t Parcel::writeUtf8AsUtf16(const std::string& str) {
    if (mDataPos % 4 != 0) return failWrite(BAD_VALUE);
    const bool ascii = isAscii(str);
    const auto* text = reinterpret_cast<const uint8_t*>(str.data());
    const ssize_t len =
            ascii ? static_cast<ssize_t>(str.size()) : utf8_to_utf16_length(text, str.size());
    if (len < 0) return failWrite(BAD_VALUE);
    if (const status_t status = writeSize(len); status != OK) return status;
    auto* room = static_cast<char16_t*>(writeInplace((len + 1) * sizeof(char16_t)));
    if (room == nullptr) return mError;
    if (ascii) {
        std::copy(text, text + len, room);
        room[len] = 0;
    } else {
        utf8_to_utf16(text, str.size(), room, len + 1);
    }
    return OK;
}

status_t Parcel::readUtf8FromUtf16(std::string* outStr) const {
    size_t len = 0;
    const char16_t* text = nullptr;
    if (const status_t status = readString16Span(&text, &len); status != OK) return status;
    if (isAscii(text, len)) {
        outStr->resize(len);
        std::transform(text, text + len, outStr->begin(),
                       [](char16_t c) { return static_cast<char>(c); });
        return OK;
    }
    const ssize_t bytes = utf16_to_utf8_length(text, len);
    if (bytes < 0) return BAD_VALUE;
    outStr->resize(bytes + 1);
    utf16_to_utf8(text, len, outStr->data(), bytes + 1);
    outStr->resize(bytes);
    return OK;
}

// ---- Vectors ----

template <typename T>
status_t Parcel::writeFlatVector(const std::vector<T>& val) {
    static_assert(std::is_arithmetic_v<T>);
    if (val.size() > INT32_MAX / sizeof(T)) return failWrite(BAD_VALUE);
    if (const status_t status = writeSize(val.size()); status != OK) return status;
    return write(val.data(), val.size() * sizeof(T));
}

template <typename T>
status_t Parcel::readFlatVector(std::vector<T>* outVal) const {
    size_t size = 0;
    if (const status_t status = readSize(sizeof(T), &size); status != OK) return status;
    const void* bytes = readInplace(size * sizeof(T));
    if (bytes == nullptr) return NOT_ENOUGH_DATA;  // the padding of small elements is missing
    outVal->resize(size);
    if (size != 0) std::memcpy(outVal->data(), bytes, size * sizeof(T));
    return OK;
}

status_t Parcel::writeByteVector(const std::vector<int8_t>& val) {
    return writeFlatVector(val);
}
status_t Parcel::writeByteVector(const std::vector<uint8_t>& val) {
    return writeFlatVector(val);
}
status_t Parcel::writeInt32Vector(const std::vector<int32_t>& val) {
    return writeFlatVector(val);
}
status_t Parcel::writeInt64Vector(const std::vector<int64_t>& val) {
    return writeFlatVector(val);
}
status_t Parcel::writeUint64Vector(const std::vector<uint64_t>& val) {
    return writeFlatVector(val);
}
status_t Parcel::writeFloatVector(const std::vector<float>& val) {
    return writeFlatVector(val);
}
status_t Parcel::writeDoubleVector(const std::vector<double>& val) {
    return writeFlatVector(val);
}

status_t Parcel::readByteVector(std::vector<int8_t>* outVal) const {
    return readFlatVector(outVal);
}
status_t Parcel::readByteVector(std::vector<uint8_t>* outVal) const {
    return readFlatVector(outVal);
}
status_t Parcel::readInt32Vector(std::vector<int32_t>* outVal) const {
    return readFlatVector(outVal);
}
status_t Parcel::readInt64Vector(std::vector<int64_t>* outVal) const {
    return readFlatVector(outVal);
}
status_t Parcel::readUint64Vector(std::vector<uint64_t>* outVal) const {
    return readFlatVector(outVal);
}
status_t Parcel::readFloatVector(std::vector<float>* outVal) const {
    return readFlatVector(outVal);
}
status_t Parcel::readDoubleVector(std::vector<double>* outVal) const {
    return readFlatVector(outVal);
}

status_t Parcel::writeBoolVector(const std::vector<bool>& val) {
    return writeEach(val, [this](bool element) { return writeBool(element); });
}
status_t Parcel::writeCharVector(const std::vector<char16_t>& val) {
    return writeEach(val, [this](char16_t element) { return writeChar(element); });
}
status_t Parcel::writeString16Vector(const std::vector<String16>& val) {
    return writeEach(val, [this](const String16& element) { return writeString16(element); });
}
status_t Parcel::writeUtf8VectorAsUtf16Vector(const std::vector<std::string>& val) {
    return writeEach(val, [this](const std::string& element) { return writeUtf8AsUtf16(element); });
}
status_t Parcel::writeStrongBinderVector(const std::vector<sp<IBinder>>& val) {
    return writeEach(val,
                     [this](const sp<IBinder>& element) { return writeStrongBinder(element); });
}

// std::vector<bool> has no elements to point at.
status_t Parcel::readBoolVector(std::vector<bool>* outVal) const {
    size_t size = 0;
    if (const status_t status = readSize(sizeof(int32_t), &size); status != OK) return status;
    outVal->resize(size);
    for (size_t i = 0; i < size; ++i)
        (*outVal)[i] = readBool();
    return OK;
}
status_t Parcel::readCharVector(std::vector<char16_t>* outVal) const {
    return readEach(outVal, [this](char16_t* element) { return readChar(element); });
}
status_t Parcel::readString16Vector(std::vector<String16>* outVal) const {
    return readEach(outVal, [this](String16* element) { return readString16(element); });
}
status_t Parcel::readUtf8VectorFromUtf16Vector(std::vector<std::string>* outVal) const {
    return readEach(outVal, [this](std::string* element) { return readUtf8FromUtf16(element); });
}
status_t Parcel::readStrongBinderVector(std::vector<sp<IBinder>>* outVal) const {
    return readEach(outVal, [this](sp<IBinder>* element) { return readStrongBinder(element); });
}

}  // namespace android
