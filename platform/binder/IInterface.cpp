#include <memory>

#include <binder/IInterface.h>

namespace android {

// The pointer's constness is the platform's signature; counting references needs it gone.
sp<IBinder> IInterface::asBinder(const IInterface* interface) {
    return interface == nullptr ? nullptr : const_cast<IInterface*>(interface)->onAsBinder();
}

sp<IBinder> IInterface::asBinder(const sp<IInterface>& interface) {
    return asBinder(interface.get());
}

}  // namespace android
