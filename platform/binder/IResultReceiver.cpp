#include <binder/IResultReceiver.h>

#include <binder/Parcel.h>

namespace android {

class BpResultReceiver : public BpInterface<IResultReceiver> {
public:
    explicit BpResultReceiver(const sp<IBinder>& remote) : BpInterface(remote) {}

    void send(int32_t resultCode) override {
        Parcel data;
        data.writeInterfaceToken(IResultReceiver::descriptor);
        data.writeInt32(resultCode);
        // A receiver that has gone wants no result.
        (void)remote()->transact(OP_SEND, data, nullptr, IBinder::FLAG_ONEWAY);
    }
};

IMPLEMENT_META_INTERFACE(ResultReceiver, "com.android.internal.os.IResultReceiver")

status_t BnResultReceiver::onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                      uint32_t flags) {
    if (code != OP_SEND) return BBinder::onTransact(code, data, reply, flags);
    if (!data.checkInterface(this)) return BAD_TYPE;
    int32_t resultCode = 0;
    if (const status_t status = data.readInt32(&resultCode); status != OK) return status;
    send(resultCode);
    return reply->writeNoException();
}

}  // namespace android
