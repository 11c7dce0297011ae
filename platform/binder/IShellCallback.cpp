#include <binder/IShellCallback.h>

#include <android-base/unique_fd.h>
#include <binder/Parcel.h>

namespace android {

class BpShellCallback : public BpInterface<IShellCallback> {
public:
    explicit BpShellCallback(const sp<IBinder>& remote) : BpInterface(remote) {}

    int openFile(const String16& path, const String16& seLinuxContext,
                 const String16& mode) override {
        Parcel data;
        data.writeInterfaceToken(IShellCallback::descriptor);
        data.writeString16(path);
        data.writeString16(seLinuxContext);
        data.writeString16(mode);
        Parcel reply;
        const status_t status = remote()->transact(OP_OPEN_OUTPUT_FILE, data, &reply);
        if (status != OK) return status;
        base::unique_fd fd;
        if (reply.readExceptionCode() != 0 || reply.readInt32() == 0) return UNKNOWN_ERROR;
        const status_t read = reply.readUniqueFileDescriptor(&fd);
        return read != OK ? read : fd.release();
    }
};

IMPLEMENT_META_INTERFACE(ShellCallback, "com.android.internal.os.IShellCallback")

status_t BnShellCallback::onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                     uint32_t flags) {
    if (code != OP_OPEN_OUTPUT_FILE) return BBinder::onTransact(code, data, reply, flags);
    if (!data.checkInterface(this)) return BAD_TYPE;
    String16 path;
    String16 context;
    String16 mode;
    for (String16* text : {&path, &context, &mode}) {
        if (const status_t status = data.readString16(text); status != OK) return status;
    }
    const int fd = openFile(path, context, mode);
    if (const status_t status = reply->writeNoException(); status != OK) return status;
    reply->writeInt32(fd >= 0 ? 1 : 0);
    return fd >= 0 ? reply->writeFileDescriptor(fd, /*takeOwnership=*/true) : OK;
}

}  // namespace android
