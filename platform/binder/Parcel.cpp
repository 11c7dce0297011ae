#include <memory>

#define LOG_TAG "Parcel"

#include <binder/Parcel.h>

#include <binder/Status.h>
#include <fcntl.h>
#include <log/log.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace android {

namespace {

using base::unique_fd;

// Positions and sizes stay far from overflow, and fit the words that carry them.
constexpr size_t kMaxParcelBytes = INT32_MAX;

constexpr size_t padded(size_t len) {
    return (len + 3) & ~static_cast<size_t>(3);
}

// What starts every call: "gather violations", nobody to charge the work to, and a marker.
constexpr int32_t kStrictModeWord = INT32_MIN;
constexpr int32_t kNoWorkSource = -1;
constexpr int32_t kHeader = B_PACK_CHARS('S', 'Y', 'S', 'T');

constexpr uint32_t kBinderType = B_PACK_CHARS('s', 'b', '*', 0x85);
constexpr uint32_t kDescriptorType = B_PACK_CHARS('f', 'd', '*', 0x85);

// The record of an object in the data. It carries no address and no number of this process.
struct ObjectRecord {
    uint32_t type;
    uint32_t flags;
    uint64_t zeros[2];
};
static_assert(sizeof(ObjectRecord) == Parcel::kObjectRecordBytes);

constexpr int32_t kUndeclaredStability = 0;
constexpr int32_t kSystemStability = 0x0c;

// A stranger's text for a log line: short and on one line.
std::string printable(const char16_t* text, size_t len) {
    constexpr size_t kMost = 100;
    if (text == nullptr) return "(none)";
    std::string result(std::min(len, kMost), '?');
    std::transform(text, text + result.size(), result.begin(),
                   [](char16_t c) { return c > u' ' && c < 0x7f ? static_cast<char>(c) : '?'; });
    return result;
}

unique_fd duplicate(int fd) {
    return unique_fd(::fcntl(fd, F_DUPFD_CLOEXEC, 0));
}

}  // namespace

Parcel::~Parcel() {
    releaseStorage();
}

// Gives the storage back; the members that describe it are the caller's to set.
void Parcel::releaseStorage() {
    if (mRelease != nullptr) {
        const ReleaseFunction release = mRelease;
        mRelease = nullptr;
        release(mData, mDataSize, mReleaseCookie);
    } else if (mData != mInline) {
        ::free(mData);
    }
}

void Parcel::freeData() {
    releaseStorage();
    mData = mInline;
    mCapacity = kInlineBytes;
    mDataSize = 0;
    mDataPos = 0;
    mError = OK;
    mObjects.clear();
}

status_t Parcel::failWrite(status_t error) {
    if (mError == OK) mError = error;
    return error;
}

// Moves the bytes into storage of this parcel with at least `capacity` bytes.
status_t Parcel::grow(size_t capacity) {
    if (capacity > kMaxParcelBytes) return failWrite(BAD_VALUE);
    if (mRelease != nullptr && capacity <= kInlineBytes) {
        std::memcpy(mInline, mData, mDataSize);
        releaseStorage();
        mData = mInline;
        mCapacity = kInlineBytes;
        return OK;
    }
    const bool owned = mRelease == nullptr && mData != mInline;
    auto* storage = static_cast<uint8_t*>(owned ? ::realloc(mData, capacity) : ::malloc(capacity));
    if (storage == nullptr) return failWrite(NO_MEMORY);
    if (!owned) {
        if (mDataSize != 0) std::memcpy(storage, mData, mDataSize);
        if (mRelease != nullptr) releaseStorage();
    }
    mData = storage;
    mCapacity = capacity;
    return OK;
}

// Room for `len` bytes at the position; the caller fills it and calls finishWrite.
uint8_t* Parcel::reserve(size_t len) {
    if (len > kMaxParcelBytes || mDataPos > kMaxParcelBytes - len) {
        (void)failWrite(BAD_VALUE);  // the null pointer tells
        return nullptr;
    }
    const size_t end = mDataPos + len;
    const size_t needed = std::max(end, mDataSize);
    if (needed > mCapacity || mRelease != nullptr) {
        const size_t roomy =
                std::min(std::max(needed + needed / 2, 2 * kInlineBytes), kMaxParcelBytes);
        if (grow(needed <= kInlineBytes ? kInlineBytes : roomy) != OK) return nullptr;
    }
    if (mDataPos > mDataSize) std::memset(mData + mDataSize, 0, mDataPos - mDataSize);
    if (!mObjects.empty() && mDataPos < mDataSize) dropObjects(mDataPos, end);
    return mData + mDataPos;
}

// An object whose record is overwritten no longer travels.
void Parcel::dropObjects(size_t begin, size_t end) {
    mObjects.erase(std::remove_if(mObjects.begin(), mObjects.end(),
                                  [=](const ParcelObject& object) {
                                      return object.position < end &&
                                             object.position + kObjectRecordBytes > begin;
                                  }),
                   mObjects.end());
}

status_t Parcel::setDataSize(size_t size) {
    if (size > kMaxParcelBytes) return failWrite(BAD_VALUE);
    if (size > mCapacity || mRelease != nullptr) {
        if (const status_t status = grow(std::max(size, mDataSize)); status != OK) return status;
    }
    if (size > mDataSize) std::memset(mData + mDataSize, 0, size - mDataSize);
    if (size < mDataSize && !mObjects.empty()) dropObjects(size, mDataSize);
    mDataSize = size;
    mDataPos = std::min(mDataPos, size);
    return OK;
}

status_t Parcel::setDataCapacity(size_t size) {
    return size > mCapacity ? grow(std::max(size, mDataSize)) : OK;
}

status_t Parcel::setData(const uint8_t* buffer, size_t len) {
    freeData();
    if (const status_t status = writeUnpadded(buffer, len); status != OK) return status;
    mDataPos = 0;
    return OK;
}

status_t Parcel::appendFrom(const Parcel* parcel, size_t start, size_t len) {
    if (start > parcel->mDataSize || len > parcel->mDataSize - start) return BAD_VALUE;
    if (len == 0) return OK;
    std::vector<ParcelObject> objects;
    size_t descriptors = fileDescriptorCount();
    const size_t base = mDataPos;
    for (const ParcelObject& object : parcel->mObjects) {
        if (object.position < start || object.position + kObjectRecordBytes > start + len) continue;
        if (object.fd != nullptr && ++descriptors > kMaxFileDescriptors) return failWrite(-EMFILE);
        objects.push_back({object.position - start + base, object.binder, object.fd});
    }
    uint8_t* room = reserve(len);
    if (room == nullptr) return mError;
    std::memmove(room, parcel->mData + start, len);  // may be this parcel itself
    finishWrite(len);
    mObjects.insert(mObjects.end(), objects.begin(), objects.end());
    std::sort(mObjects.begin(), mObjects.end(),
              [](const auto& a, const auto& b) { return a.position < b.position; });
    return OK;
}

status_t Parcel::ipcSetDataReference(const uint8_t* data, size_t size,
                                     std::vector<ParcelObject> objects, ReleaseFunction release,
                                     void* cookie) {
    freeData();
    bool valid = size <= kMaxParcelBytes && reinterpret_cast<uintptr_t>(data) % 4 == 0;
    size_t end = 0;
    for (const ParcelObject& object : objects) {
        valid = valid && object.position >= end && object.position <= size &&
                size - object.position >= kObjectRecordBytes &&
                (object.binder != nullptr) != (object.fd != nullptr);
        if (!valid) break;
        end = object.position + kObjectRecordBytes;
    }
    if (!valid) {
        release(data, size, cookie);
        return BAD_VALUE;
    }
    mData = const_cast<uint8_t*>(data);  // never written: the capacity is 0
    mDataSize = size;
    mCapacity = 0;
    mObjects = std::move(objects);
    mRelease = release;
    mReleaseCookie = cookie;
    return OK;
}

// ---- Raw bytes ----

void* Parcel::writeInplace(size_t len) {
    if (len > kMaxParcelBytes) {
        (void)failWrite(BAD_VALUE);  // the null pointer tells
        return nullptr;
    }
    const size_t total = padded(len);
    uint8_t* room = reserve(total);
    if (room == nullptr) return nullptr;
    if (total != len) std::memset(room + total - 4, 0, 4);
    finishWrite(total);
    return room;
}

status_t Parcel::write(const void* data, size_t len) {
    void* room = writeInplace(len);
    if (room == nullptr) return mError;
    if (len != 0) std::memcpy(room, data, len);
    return OK;
}

status_t Parcel::writeUnpadded(const void* data, size_t len) {
    uint8_t* room = reserve(len);
    if (room == nullptr) return mError;
    if (len != 0) std::memcpy(room, data, len);
    finishWrite(len);
    return OK;
}

const void* Parcel::readInplace(size_t len) const {
    if (len > kMaxParcelBytes || padded(len) > dataAvail()) return nullptr;
    const void* data = mData + mDataPos;
    mDataPos += padded(len);
    return data;
}

status_t Parcel::read(void* outData, size_t len) const {
    const void* data = readInplace(len);
    if (data == nullptr) return NOT_ENOUGH_DATA;
    if (len != 0) std::memcpy(outData, data, len);
    return OK;
}

status_t Parcel::readBool(bool* outVal) const {
    int32_t word = 0;
    const status_t status = readValue(&word);
    if (status == OK) *outVal = word != 0;
    return status;
}

status_t Parcel::readByte(int8_t* outVal) const {
    int32_t word = 0;
    const status_t status = readValue(&word);
    if (status == OK) *outVal = static_cast<int8_t>(word);
    return status;
}

status_t Parcel::readChar(char16_t* outVal) const {
    int32_t word = 0;
    const status_t status = readValue(&word);
    if (status == OK) *outVal = static_cast<char16_t>(word);
    return status;
}

// ---- The start of a call and of a reply ----

status_t Parcel::writeInterfaceToken(const String16& interface) {
    return writeInterfaceToken(interface.string(), interface.size());
}

status_t Parcel::writeInterfaceToken(const char16_t* descriptor, size_t len) {
    if (const status_t status = writeInt32(kStrictModeWord); status != OK) return status;
    if (const status_t status = writeInt32(kNoWorkSource); status != OK) return status;
    if (const status_t status = writeInt32(kHeader); status != OK) return status;
    return writeString16(descriptor, len);
}

bool Parcel::enforceInterface(const String16& interface) const {
    return enforceInterface(interface.string(), interface.size());
}

bool Parcel::enforceInterface(const char16_t* descriptor, size_t len) const {
    int32_t policy = 0;
    int32_t workSource = 0;
    int32_t header = 0;
    if (readInt32(&policy) != OK || readInt32(&workSource) != OK || readInt32(&header) != OK) {
        ALOGW("Call without an interface token: %zu bytes", mDataSize);
        return false;
    }
    if (header != kHeader) {
        ALOGW("Call with header 0x%08x instead of 0x%08x", header, kHeader);
        return false;
    }
    size_t seenLen = 0;
    const char16_t* seen = readString16Inplace(&seenLen);
    if (seen != nullptr && seenLen == len &&
        std::memcmp(seen, descriptor, len * sizeof(char16_t)) == 0) {
        return true;
    }
    ALOGW("Call for interface \"%s\" reached an object of \"%s\"", printable(seen, seenLen).c_str(),
          printable(descriptor, len).c_str());
    return false;
}

bool Parcel::checkInterface(IBinder* binder) const {
    return enforceInterface(binder->getInterfaceDescriptor());
}

status_t Parcel::writeNoException() {
    return writeInt32(binder::Status::EX_NONE);
}

int32_t Parcel::readExceptionCode() const {
    binder::Status status;
    (void)status.readFromParcel(*this);  // a failure is in the status too
    return status.exceptionCode();
}

// ---- Records ----

status_t Parcel::writeParcelable(const Parcelable& parcelable) {
    if (const status_t status = writeInt32(1); status != OK) return status;
    return parcelable.writeToParcel(this);
}

status_t Parcel::readParcelable(Parcelable* outParcelable) const {
    int32_t present = 0;
    if (const status_t status = readInt32(&present); status != OK) return status;
    if (present == 0) return UNEXPECTED_NULL;
    return outParcelable->readFromParcel(this);
}

// ---- Objects ----

bool Parcel::hasFileDescriptors() const {
    return fileDescriptorCount() != 0;
}

size_t Parcel::fileDescriptorCount() const {
    return std::count_if(mObjects.begin(), mObjects.end(),
                         [](const ParcelObject& object) { return object.fd != nullptr; });
}

const ParcelObject* Parcel::findObject(size_t position) const {
    const auto it = std::lower_bound(
            mObjects.begin(), mObjects.end(), position,
            [](const ParcelObject& object, size_t at) { return object.position < at; });
    return it == mObjects.end() || it->position != position ? nullptr : &*it;
}

// Writes the record and, unless it stands for null, keeps the object in its slot.
status_t Parcel::writeObject(uint32_t type, ParcelObject object) {
    const ObjectRecord record = {type, 0, {0, 0}};
    object.position = mDataPos;
    if (const status_t status = write(&record, sizeof(record)); status != OK) return status;
    if (object.binder == nullptr && object.fd == nullptr) return OK;
    const auto after = std::upper_bound(
            mObjects.begin(), mObjects.end(), object.position,
            [](size_t at, const ParcelObject& other) { return at < other.position; });
    mObjects.insert(after, std::move(object));
    return OK;
}

status_t Parcel::writeStrongBinder(const sp<IBinder>& val) {
    ParcelObject object;
    object.binder = val;
    if (const status_t status = writeObject(kBinderType, std::move(object)); status != OK) {
        return status;
    }
    return writeInt32(val == nullptr ? kUndeclaredStability : kSystemStability);
}

status_t Parcel::readBinder(sp<IBinder>* outVal) const {
    constexpr size_t kBytes = kObjectRecordBytes + sizeof(int32_t);
    if (dataAvail() < kBytes) return NOT_ENOUGH_DATA;
    const ParcelObject* object = findObject(mDataPos);
    if (object == nullptr) {
        constexpr ObjectRecord kNull = {kBinderType, 0, {0, 0}};
        if (std::memcmp(mData + mDataPos, &kNull, sizeof(kNull)) != 0) return BAD_TYPE;
        *outVal = nullptr;
    } else {
        if (object->binder == nullptr) return BAD_TYPE;
        *outVal = object->binder;
    }
    mDataPos += kBytes;
    return OK;
}

status_t Parcel::readNullableStrongBinder(sp<IBinder>* outVal) const {
    return readBinder(outVal);
}

status_t Parcel::readStrongBinder(sp<IBinder>* outVal) const {
    sp<IBinder> binder;
    if (const status_t status = readBinder(&binder); status != OK) return status;
    if (binder == nullptr) return UNEXPECTED_NULL;
    *outVal = std::move(binder);
    return OK;
}

sp<IBinder> Parcel::readStrongBinder() const {
    sp<IBinder> binder;
    (void)readBinder(&binder);  // null is this form's answer to a failure
    return binder;
}

status_t Parcel::writeFileDescriptor(int fd, bool takeOwnership) {
    // Kept apart from the caller's: a one-way message may leave after the caller closed its own.
    unique_fd kept = takeOwnership ? unique_fd(fd) : duplicate(fd);
    if (kept.get() < 0) return failWrite(BAD_VALUE);
    if (fileDescriptorCount() >= kMaxFileDescriptors) {
        ALOGW("More than %zu file descriptors in a parcel", kMaxFileDescriptors);
        return failWrite(-EMFILE);
    }
    ParcelObject object;
    object.fd = std::make_shared<unique_fd>(std::move(kept));
    return writeObject(kDescriptorType, std::move(object));
}

status_t Parcel::writeDupFileDescriptor(int fd) {
    return writeFileDescriptor(fd, /*takeOwnership=*/false);
}

status_t Parcel::writeUniqueFileDescriptor(const base::unique_fd& fd) {
    return writeDupFileDescriptor(fd.get());
}

int Parcel::readFileDescriptor() const {
    const ParcelObject* object = findObject(mDataPos);
    if (object == nullptr || object->fd == nullptr) return BAD_TYPE;
    mDataPos += kObjectRecordBytes;
    return object->fd->get();
}

status_t Parcel::readUniqueFileDescriptor(base::unique_fd* outFd) const {
    const int fd = readFileDescriptor();
    if (fd < 0) return BAD_TYPE;
    unique_fd copy = duplicate(fd);
    if (copy.get() < 0) return BAD_VALUE;
    *outFd = std::move(copy);
    return OK;
}

}  // namespace android
