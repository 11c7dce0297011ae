#pragma once

#include <memory>

#include <cstdint>
#include <string>
#include <vector>

#include <binder/Binder.h>
#include <binder/Parcel.h>
#include <utils/String16.h>

namespace sonorel::test {

// A local object that keeps the last request that a proxy sent to it and answers nothing.
class RequestRecorder : public android::BBinder {
public:
    // What interface it claims to be.
    explicit RequestRecorder(const android::String16& descriptor) : mDescriptor(descriptor) {}

    const android::String16& getInterfaceDescriptor() const override { return mDescriptor; }

    uint32_t code() const { return mCode; }
    uint32_t flags() const { return mFlags; }
    bool oneWay() const { return (mFlags & FLAG_ONEWAY) != 0; }
    const std::vector<uint8_t>& bytes() const { return mBytes; }

protected:
    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel*,
                                 uint32_t flags) override {
        mCode = code;
        mFlags = flags;
        mBytes.assign(data.data(), data.data() + data.dataSize());
        return android::OK;
    }

private:
    const android::String16 mDescriptor;
    uint32_t mCode = 0;
    uint32_t mFlags = 0;
    std::vector<uint8_t> mBytes;
};

}  // namespace sonorel::test
