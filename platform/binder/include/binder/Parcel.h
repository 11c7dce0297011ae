#pragma once

#include <android-base/unique_fd.h>
#include <binder/IBinder.h>
#include <binder/IInterface.h>
#include <binder/Parcelable.h>
#include <stddef.h>
#include <stdint.h>
#include <utils/Errors.h>
#include <utils/String16.h>
#include <utils/String8.h>

#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

namespace android {

namespace internal {

template <typename T>
struct IsNullable : std::false_type {};
template <typename T>
struct IsNullable<std::unique_ptr<T>> : std::true_type {};
template <typename T>
struct IsNullable<std::optional<T>> : std::true_type {};

/** The two holders that the interface compiler uses for a value that may be absent. */
template <typename T>
using IfNullable = std::enable_if_t<IsNullable<T>::value>;

}  // namespace internal

/** One object of a parcel: where its record lies, and exactly one of a binder or a descriptor. */
struct ParcelObject {
    size_t position = 0;
    sp<IBinder> binder;
    std::shared_ptr<base::unique_fd> fd;
};

/**
 * The arguments or the results of a call: a flat sequence of values in the platform's byte form,
 * each padded to four bytes, in the machine's byte order, plus the objects that travel with them.
 *
 * Reads are checked against the bytes that are there; a read that fails (NOT_ENOUGH_DATA, BAD_TYPE,
 * BAD_VALUE, UNEXPECTED_NULL) leaves its out-value untouched. A size that comes from the data is
 * checked before anything is allocated for it. Strings are UTF-16 on the wire; a null one has the
 * length -1, as has a null vector.
 *
 * Small parcels live inside the object and cost no allocation. One thread at a time uses a parcel.
 */
class Parcel {
public:
    /** Most bytes of one transaction, and so of a vector that a caller asks a method to fill. */
    static constexpr size_t kMaxTransactionBytes = 1024 * 1024 - 2 * 4096;
    /** Most file descriptors in one parcel; one more fails with -EMFILE. */
    static constexpr size_t kMaxFileDescriptors = 16;

    Parcel() = default;
    ~Parcel();
    Parcel(const Parcel&) = delete;
    Parcel& operator=(const Parcel&) = delete;

    const uint8_t* data() const { return mData; }
    size_t dataSize() const { return mDataSize; }
    /** Bytes from the position to the end; 0 beyond the end. */
    size_t dataAvail() const { return mDataPos < mDataSize ? mDataSize - mDataPos : 0; }
    size_t dataPosition() const { return mDataPos; }
    size_t dataCapacity() const { return mCapacity; }

    /** Cuts the end off, or extends with zeros. */
    status_t setDataSize(size_t size);
    /** Any position is accepted; beyond the end, reads fail and a write fills the gap with zeros.
     */
    void setDataPosition(size_t pos) const { mDataPos = pos; }
    status_t setDataCapacity(size_t size);
    /** Replaces the contents by a copy of these bytes, without objects. */
    status_t setData(const uint8_t* buffer, size_t len);
    /** Appends bytes [start, start + len) of another parcel, with the objects inside the range. */
    status_t appendFrom(const Parcel* parcel, size_t start, size_t len);

    bool hasFileDescriptors() const;
    /** Empties the parcel and lets its objects go. */
    void freeData();

    /** The first error of a write, which later writes do not clear; OK when there was none. */
    status_t errorCheck() const { return mError; }
    void setError(status_t error) { mError = error; }

    /** Starts a call: policy word, work source, header, descriptor. */
    status_t writeInterfaceToken(const String16& interface);
    status_t writeInterfaceToken(const char16_t* descriptor, size_t len);
    /** Reads a call's start; false when the header or the descriptor is not the expected one. */
    bool enforceInterface(const String16& interface) const;
    bool enforceInterface(const char16_t* descriptor, size_t len) const;
    bool checkInterface(IBinder* binder) const;

    // Raw bytes. In-place pointers stay valid until the parcel is written or freed.
    status_t write(const void* data, size_t len);
    status_t writeUnpadded(const void* data, size_t len);
    /** Room for `len` bytes, padded with zeros; null on failure. */
    void* writeInplace(size_t len);
    status_t read(void* outData, size_t len) const;
    const void* readInplace(size_t len) const;

    status_t writeInt32(int32_t val) { return writeValue(val); }
    status_t writeUint32(uint32_t val) { return writeValue(val); }
    status_t writeInt64(int64_t val) { return writeValue(val); }
    status_t writeUint64(uint64_t val) { return writeValue(val); }
    status_t writeFloat(float val) { return writeValue(val); }
    status_t writeDouble(double val) { return writeValue(val); }
    status_t writeBool(bool val) { return writeValue<int32_t>(val ? 1 : 0); }
    status_t writeByte(int8_t val) { return writeValue<int32_t>(val); }
    status_t writeChar(char16_t val) { return writeValue<int32_t>(val); }

    status_t readInt32(int32_t* outVal) const { return readValue(outVal); }
    status_t readUint32(uint32_t* outVal) const { return readValue(outVal); }
    status_t readInt64(int64_t* outVal) const { return readValue(outVal); }
    status_t readUint64(uint64_t* outVal) const { return readValue(outVal); }
    status_t readFloat(float* outVal) const { return readValue(outVal); }
    status_t readDouble(double* outVal) const { return readValue(outVal); }
    status_t readBool(bool* outVal) const;
    status_t readByte(int8_t* outVal) const;
    status_t readChar(char16_t* outVal) const;

    // The value, or zero when there is none.
    int32_t readInt32() const { return readOrZero<int32_t>(); }
    uint32_t readUint32() const { return readOrZero<uint32_t>(); }
    int64_t readInt64() const { return readOrZero<int64_t>(); }
    uint64_t readUint64() const { return readOrZero<uint64_t>(); }
    float readFloat() const { return readOrZero<float>(); }
    double readDouble() const { return readOrZero<double>(); }
    bool readBool() const { return readOrZero<int32_t>() != 0; }
    int8_t readByte() const { return static_cast<int8_t>(readOrZero<int32_t>()); }
    char16_t readChar() const { return static_cast<char16_t>(readOrZero<int32_t>()); }

    status_t writeCString(const char* str);
    const char* readCString() const;

    status_t writeString8(const String8& str);
    String8 readString8() const;
    status_t readString8(String8* outStr) const;

    status_t writeString16(const String16& str);
    status_t writeString16(const char16_t* str, size_t len);
    template <typename Nullable, typename = internal::IfNullable<Nullable>>
    status_t writeString16(const Nullable& str) {
        return str ? writeString16(*str) : writeInt32(-1);
    }
    String16 readString16() const;
    status_t readString16(String16* outStr) const;
    template <typename Nullable, typename = internal::IfNullable<Nullable>>
    status_t readString16(Nullable* outStr) const {
        return readNullable(outStr, [this](auto* v) { return this->readString16(v); });
    }
    /** Null on failure, for a null string, and at a position that no writer leaves. */
    const char16_t* readString16Inplace(size_t* outLen) const;

    /** Converts as libutils does; BAD_VALUE for text that it refuses. */
    status_t writeUtf8AsUtf16(const std::string& str);
    template <typename Nullable, typename = internal::IfNullable<Nullable>>
    status_t writeUtf8AsUtf16(const Nullable& str) {
        return str ? writeUtf8AsUtf16(*str) : writeInt32(-1);
    }
    /** Converts as libutils does: a lone surrogate is left out. */
    status_t readUtf8FromUtf16(std::string* outStr) const;
    template <typename Nullable, typename = internal::IfNullable<Nullable>>
    status_t readUtf8FromUtf16(Nullable* outStr) const {
        return readNullable(outStr, [this](auto* v) { return this->readUtf8FromUtf16(v); });
    }

    status_t writeNoException();
    /** Skips a reply's head and returns its exception code; negative for every failure. */
    int32_t readExceptionCode() const;

    status_t writeParcelable(const Parcelable& parcelable);
    template <typename T>
    status_t writeNullableParcelable(const std::unique_ptr<T>& parcelable) {
        return parcelable ? writeParcelable(*parcelable) : writeInt32(0);
    }
    template <typename T>
    status_t writeNullableParcelable(const std::optional<T>& parcelable) {
        return parcelable ? writeParcelable(*parcelable) : writeInt32(0);
    }
    status_t readParcelable(Parcelable* outParcelable) const;
    template <typename T>
    status_t readParcelable(std::unique_ptr<T>* outParcelable) const {
        return readNullableParcelable(outParcelable, [] { return std::make_unique<T>(); });
    }
    template <typename T>
    status_t readParcelable(std::optional<T>* outParcelable) const {
        return readNullableParcelable(outParcelable, [] { return std::make_optional<T>(); });
    }

    // Binders. A null one may be written; readStrongBinder answers it with UNEXPECTED_NULL.
    status_t writeStrongBinder(const sp<IBinder>& val);
    sp<IBinder> readStrongBinder() const;
    status_t readStrongBinder(sp<IBinder>* outVal) const;
    status_t readNullableStrongBinder(sp<IBinder>* outVal) const;
    template <typename T>
    status_t readStrongBinder(sp<T>* outVal) const;
    template <typename T>
    status_t readNullableStrongBinder(sp<T>* outVal) const;

    // File descriptors.
    /** With `takeOwnership` the parcel closes `fd`, on failure too; else it keeps a duplicate. */
    status_t writeFileDescriptor(int fd, bool takeOwnership = false);
    status_t writeDupFileDescriptor(int fd);
    status_t writeUniqueFileDescriptor(const base::unique_fd& fd);
    /** The parcel's descriptor, which the parcel closes; BAD_TYPE when there is none. */
    int readFileDescriptor() const;
    /** A duplicate that is the caller's. */
    status_t readUniqueFileDescriptor(base::unique_fd* outFd) const;

    // Vectors. The templates take the nullable forms: unique_ptr or optional of the vector.
    status_t writeByteVector(const std::vector<int8_t>& val);
    status_t writeByteVector(const std::vector<uint8_t>& val);
    status_t writeInt32Vector(const std::vector<int32_t>& val);
    status_t writeInt64Vector(const std::vector<int64_t>& val);
    status_t writeUint64Vector(const std::vector<uint64_t>& val);
    status_t writeFloatVector(const std::vector<float>& val);
    status_t writeDoubleVector(const std::vector<double>& val);
    status_t writeBoolVector(const std::vector<bool>& val);
    status_t writeCharVector(const std::vector<char16_t>& val);
    status_t writeString16Vector(const std::vector<String16>& val);
    status_t writeUtf8VectorAsUtf16Vector(const std::vector<std::string>& val);
    status_t writeStrongBinderVector(const std::vector<sp<IBinder>>& val);

    status_t readByteVector(std::vector<int8_t>* outVal) const;
    status_t readByteVector(std::vector<uint8_t>* outVal) const;
    status_t readInt32Vector(std::vector<int32_t>* outVal) const;
    status_t readInt64Vector(std::vector<int64_t>* outVal) const;
    status_t readUint64Vector(std::vector<uint64_t>* outVal) const;
    status_t readFloatVector(std::vector<float>* outVal) const;
    status_t readDoubleVector(std::vector<double>* outVal) const;
    status_t readBoolVector(std::vector<bool>* outVal) const;
    status_t readCharVector(std::vector<char16_t>* outVal) const;
    status_t readString16Vector(std::vector<String16>* outVal) const;
    status_t readUtf8VectorFromUtf16Vector(std::vector<std::string>* outVal) const;
    status_t readStrongBinderVector(std::vector<sp<IBinder>>* outVal) const;

#define SONOREL_NULLABLE_VECTOR(WRITE, READ)                                    \
    template <typename Nullable, typename = internal::IfNullable<Nullable>>     \
    status_t WRITE(const Nullable& val) {                                       \
        return val ? WRITE(*val) : writeInt32(-1);                              \
    }                                                                           \
    template <typename Nullable, typename = internal::IfNullable<Nullable>>     \
    status_t READ(Nullable* outVal) const {                                     \
        return readNullable(outVal, [this](auto* v) { return this->READ(v); }); \
    }
    SONOREL_NULLABLE_VECTOR(writeByteVector, readByteVector)
    SONOREL_NULLABLE_VECTOR(writeInt32Vector, readInt32Vector)
    SONOREL_NULLABLE_VECTOR(writeInt64Vector, readInt64Vector)
    SONOREL_NULLABLE_VECTOR(writeUint64Vector, readUint64Vector)
    SONOREL_NULLABLE_VECTOR(writeFloatVector, readFloatVector)
    SONOREL_NULLABLE_VECTOR(writeDoubleVector, readDoubleVector)
    SONOREL_NULLABLE_VECTOR(writeBoolVector, readBoolVector)
    SONOREL_NULLABLE_VECTOR(writeCharVector, readCharVector)
    SONOREL_NULLABLE_VECTOR(writeString16Vector, readString16Vector)
    SONOREL_NULLABLE_VECTOR(writeUtf8VectorAsUtf16Vector, readUtf8VectorFromUtf16Vector)
    SONOREL_NULLABLE_VECTOR(writeStrongBinderVector, readStrongBinderVector)
#undef SONOREL_NULLABLE_VECTOR

    template <typename T>
    status_t writeParcelableVector(const std::vector<T>& val);
    template <typename T>
    status_t readParcelableVector(std::vector<T>* outVal) const;

    /** Tells a method how large a vector its caller wants filled. */
    template <typename T>
    status_t writeVectorSize(const std::vector<T>& val) {
        return writeSize(val.size());
    }
    template <typename Nullable, typename = internal::IfNullable<Nullable>>
    status_t writeVectorSize(const Nullable& val) {
        return val ? writeSize(val->size()) : writeInt32(-1);
    }
    /**
     * Gives `outVal` the size that the caller asked for, elements at their defaults. No data backs
     * that size, so one above kMaxTransactionBytes fails with NO_MEMORY.
     */
    template <typename T>
    status_t resizeOutVector(std::vector<T>* outVal) const;
    template <typename Nullable, typename = internal::IfNullable<Nullable>>
    status_t resizeOutVector(Nullable* outVal) const;

    // ---- For the host transport ----
    //
    // An object is a record of kObjectRecordBytes in the data, which holds its type and no pointer
    // or number, and a slot in ipcObjects(), ordered by position. A binder's record is followed by
    // one word. A null binder is a record without a slot. A read takes the object from the slot at
    // its position; the bytes of the record decide nothing but whether it is null. How an object
    // is named between processes is the transport's matter.

    static constexpr size_t kObjectRecordBytes = 24;

    const std::vector<ParcelObject>& ipcObjects() const {
        return mObjects;
    }
    const uint8_t* ipcData() const {
        return mData;
    }
    size_t ipcDataSize() const {
        return mDataSize;
    }

    using ReleaseFunction = void (*)(const uint8_t* data, size_t size, void* cookie);

    /**
     * Refers to received bytes without copying them. `data` must be aligned to four bytes and stay
     * until `release` is called, once: when the parcel is freed, refilled or first written to.
     * BAD_VALUE when the slots are not in order or not inside the data; then the parcel is empty
     * and `release` was called.
     */
    status_t ipcSetDataReference(const uint8_t* data, size_t size,
                                 std::vector<ParcelObject> objects, ReleaseFunction release,
                                 void* cookie);

private:
    template <typename T>
    status_t writeValue(T val) {
        static_assert(std::is_arithmetic_v<T> && sizeof(T) % 4 == 0);
        if (mDataPos <= mDataSize && mDataPos + sizeof(T) <= mCapacity && mObjects.empty()) {
            __builtin_memcpy(mData + mDataPos, &val, sizeof(T));
            finishWrite(sizeof(T));
            return OK;
        }
        return writeUnpadded(&val, sizeof(T));
    }
    template <typename T>
    status_t readValue(T* outVal) const {
        static_assert(std::is_arithmetic_v<T> && sizeof(T) % 4 == 0);
        if (dataAvail() < sizeof(T)) return NOT_ENOUGH_DATA;
        __builtin_memcpy(outVal, mData + mDataPos, sizeof(T));
        mDataPos += sizeof(T);
        return OK;
    }
    template <typename T>
    T readOrZero() const {
        T val = 0;
        (void)readValue(&val);  // zero is this form's answer to missing data
        return val;
    }
    template <typename Nullable, typename Read>
    status_t readNullable(Nullable* outVal, Read read) const;
    template <typename Nullable, typename Make>
    status_t readNullableParcelable(Nullable* outVal, Make make) const;

    void finishWrite(size_t len) {
        mDataPos += len;
        if (mDataPos > mDataSize) mDataSize = mDataPos;
    }
    status_t failWrite(status_t error);
    uint8_t* reserve(size_t len);
    status_t grow(size_t capacity);
    void releaseStorage();
    void dropObjects(size_t begin, size_t end);
    size_t fileDescriptorCount() const;

    status_t writeSize(size_t size);
    status_t readString16Span(const char16_t** outText, size_t* outLen) const;
    /** A vector's size whose elements have at least `elementBytes` each in the data. */
    status_t readSize(size_t elementBytes, size_t* outSize) const;
    status_t readOutVectorSize(size_t elementBytes, size_t* outSize) const;
    status_t writeObject(uint32_t type, ParcelObject object);
    const ParcelObject* findObject(size_t position) const;
    status_t readBinder(sp<IBinder>* outVal) const;

    template <typename T>
    status_t writeFlatVector(const std::vector<T>& val);
    template <typename T>
    status_t readFlatVector(std::vector<T>* outVal) const;
    template <typename T, typename Write>
    status_t writeEach(const std::vector<T>& val, Write write);
    template <typename T, typename Read>
    status_t readEach(std::vector<T>* outVal, Read read) const;

    static constexpr size_t kInlineBytes = 256;

    uint8_t* mData = mInline;
    size_t mDataSize = 0;
    // Bytes that may be written at mData; 0 while the data is the transport's.
    size_t mCapacity = kInlineBytes;
    mutable size_t mDataPos = 0;
    status_t mError = OK;
    ReleaseFunction mRelease = nullptr;
    void* mReleaseCookie = nullptr;
    std::vector<ParcelObject> mObjects;
    alignas(8) uint8_t mInline[kInlineBytes];
};

}  // namespace android

#include <binder/ParcelTemplates.h>
