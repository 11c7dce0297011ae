#pragma once

// The bodies of Parcel's member templates; included by binder/Parcel.h only.

#include <utility>

namespace android {

namespace internal {

template <typename T>
void assignNullable(std::unique_ptr<T>* holder, T value) {
    *holder = std::make_unique<T>(std::move(value));
}

template <typename T>
void assignNullable(std::optional<T>* holder, T value) {
    *holder = std::move(value);
}

template <typename T>
T nullableValue(const std::unique_ptr<T>*);
template <typename T>
T nullableValue(const std::optional<T>*);

}  // namespace internal

template <typename Nullable, typename Read>
status_t Parcel::readNullable(Nullable* outVal, Read read) const {
    const size_t start = mDataPos;
    int32_t size = 0;
    if (const status_t status = readInt32(&size); status != OK) return status;
    if (size == -1) {
        outVal->reset();
        return OK;
    }
    mDataPos = start;
    decltype(internal::nullableValue(outVal)) value;
    if (const status_t status = read(&value); status != OK) return status;
    internal::assignNullable(outVal, std::move(value));
    return OK;
}

template <typename Nullable, typename Make>
status_t Parcel::readNullableParcelable(Nullable* outVal, Make make) const {
    const size_t start = mDataPos;
    int32_t present = 0;
    if (const status_t status = readInt32(&present); status != OK) return status;
    if (present == 0) {
        outVal->reset();
        return OK;
    }
    mDataPos = start;
    Nullable value = make();
    if (const status_t status = readParcelable(&*value); status != OK) return status;
    *outVal = std::move(value);
    return OK;
}

template <typename T>
status_t Parcel::readNullableStrongBinder(sp<T>* outVal) const {
    sp<IBinder> binder;
    if (const status_t status = readNullableStrongBinder(&binder); status != OK) return status;
    sp<T> interface = interface_cast<T>(binder);
    if (binder != nullptr && interface == nullptr) return UNKNOWN_ERROR;
    *outVal = std::move(interface);
    return OK;
}

template <typename T>
status_t Parcel::readStrongBinder(sp<T>* outVal) const {
    sp<T> interface;
    if (const status_t status = readNullableStrongBinder(&interface); status != OK) return status;
    if (interface == nullptr) return UNEXPECTED_NULL;
    *outVal = std::move(interface);
    return OK;
}

template <typename T>
status_t Parcel::writeParcelableVector(const std::vector<T>& val) {
    return writeEach(val, [this](const T& element) { return writeParcelable(element); });
}

template <typename T>
status_t Parcel::readParcelableVector(std::vector<T>* outVal) const {
    return readEach(outVal, [this](T* element) { return readParcelable(element); });
}

template <typename T>
status_t Parcel::resizeOutVector(std::vector<T>* outVal) const {
    size_t size = 0;
    if (const status_t status = readOutVectorSize(sizeof(T), &size); status != OK) return status;
    outVal->clear();
    outVal->resize(size);
    return OK;
}

template <typename Nullable, typename>
status_t Parcel::resizeOutVector(Nullable* outVal) const {
    return readNullable(outVal, [this](auto* vector) { return this->resizeOutVector(vector); });
}

template <typename T, typename Write>
status_t Parcel::writeEach(const std::vector<T>& val, Write write) {
    if (const status_t status = writeSize(val.size()); status != OK) return status;
    for (const auto& element : val) {
        if (const status_t status = write(element); status != OK) return status;
    }
    return OK;
}

// Every element has at least one word in the data, so the vector cannot outgrow what was sent.
template <typename T, typename Read>
status_t Parcel::readEach(std::vector<T>* outVal, Read read) const {
    size_t size = 0;
    if (const status_t status = readSize(sizeof(int32_t), &size); status != OK) return status;
    std::vector<T> elements(size);
    for (auto& element : elements) {
        if (const status_t status = read(&element); status != OK) return status;
    }
    outVal->swap(elements);
    return OK;
}

}  // namespace android
