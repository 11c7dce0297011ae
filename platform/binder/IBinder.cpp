#include <binder/IBinder.h>

#include <binder/IInterface.h>
#include <binder/IResultReceiver.h>
#include <binder/IShellCallback.h>
#include <binder/Parcel.h>

namespace android {

sp<IInterface> IBinder::queryLocalInterface(const String16& /*descriptor*/) {
    return nullptr;
}

bool IBinder::checkSubclass(const void* /*subclassId*/) const {
    return false;
}

BBinder* IBinder::localBinder() {
    return nullptr;
}

BpBinder* IBinder::remoteBinder() {
    return nullptr;
}

status_t IBinder::shellCommand(const sp<IBinder>& target, int in, int out, int err,
                               Vector<String16>& args, const sp<IShellCallback>& callback,
                               const sp<IResultReceiver>& resultReceiver) {
    Parcel data;
    for (const int fd : {in, out, err}) {
        if (const status_t status = data.writeFileDescriptor(fd); status != OK) return status;
    }
    data.writeInt32(static_cast<int32_t>(args.size()));
    for (const String16& arg : args)
        data.writeString16(arg);
    data.writeStrongBinder(IInterface::asBinder(callback));
    data.writeStrongBinder(IInterface::asBinder(resultReceiver));
    if (data.errorCheck() != OK) return data.errorCheck();
    Parcel reply;
    return target->transact(SHELL_COMMAND_TRANSACTION, data, &reply);
}

}  // namespace android
