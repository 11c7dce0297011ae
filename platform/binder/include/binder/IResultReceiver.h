#pragma once

#include <binder/IInterface.h>

namespace android {

/** Takes the result of a shell command, one-way. */
class IResultReceiver : public IInterface {
public:
    DECLARE_META_INTERFACE(ResultReceiver)

    virtual void send(int32_t resultCode) = 0;

    enum { OP_SEND = IBinder::FIRST_CALL_TRANSACTION };
};

class BnResultReceiver : public BnInterface<IResultReceiver> {
public:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                        uint32_t flags = 0) override;
};

}  // namespace android
