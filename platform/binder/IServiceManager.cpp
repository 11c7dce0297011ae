#include <limits>
#include <memory>

#define LOG_TAG "ServiceManager"

#include <binder/IServiceManager.h>

#include "ServiceManagerWire.h"

#include <binder/IPCThreadState.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <log/log.h>
#include <utils/Condition.h>
#include <utils/Mutex.h>
#include <utils/Timers.h>

#include <algorithm>
#include <vector>

namespace android {

namespace {

constexpr nsecs_t kGetServiceWait = s2ns(5);
// A process without binder threads is not told, so a waiter looks again at growing intervals.
constexpr nsecs_t kFirstLook = ms2ns(50);
constexpr nsecs_t kSlowestLook = s2ns(1);

/** Called by the manager when the awaited service is there. */
class Waiter : public BBinder {
public:
    const String16& getInterfaceDescriptor() const override { return mDescriptor; }

    /** Until the manager called, at most `interval`. */
    void wait(nsecs_t interval) EXCLUDES(mLock) {
        Mutex::Autolock lock(mLock);
        // Woken or not, the caller looks for the service itself.
        if (!mCalled) (void)mCondition.waitRelative(mLock, interval);
        mCalled = false;
    }

protected:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override
            EXCLUDES(mLock) {
        if (code != service_manager::kServiceAdded) {
            return BBinder::onTransact(code, data, reply, flags);
        }
        if (!data.checkInterface(this)) return BAD_TYPE;
        Mutex::Autolock lock(mLock);
        mCalled = true;
        mCondition.signal();
        return OK;
    }

private:
    const String16 mDescriptor{service_manager::kWaiterDescriptor};
    Mutex mLock;
    Condition mCondition;
    bool mCalled GUARDED_BY(mLock) = false;
};

}  // namespace

class BpServiceManager : public BpInterface<IServiceManager> {
public:
    explicit BpServiceManager(const sp<IBinder>& remote) : BpInterface(remote) {}

    sp<IBinder> checkService(const String16& name) const override {
        sp<IBinder> service;
        (void)look(name, &service);  // null is the answer to a failure too
        return service;
    }

    sp<IBinder> getService(const String16& name) const override {
        return await(name, systemTime(SYSTEM_TIME_MONOTONIC) + kGetServiceWait);
    }

    sp<IBinder> waitForService(const String16& name) override {
        return await(name, std::numeric_limits<nsecs_t>::max());
    }

    bool isDeclared(const String16& name) override { return checkService(name) != nullptr; }

    status_t addService(const String16& name, const sp<IBinder>& service, bool allowIsolated,
                        int dumpsysFlags) override {
        Parcel data;
        data.writeInterfaceToken(descriptor);
        data.writeString16(name);
        data.writeStrongBinder(service);
        data.writeBool(allowIsolated);
        data.writeInt32(dumpsysFlags);
        Parcel reply;
        return call(service_manager::kAddService, data, &reply);
    }

    Vector<String16> listServices(int dumpsysFlags) override {
        Parcel data;
        data.writeInterfaceToken(descriptor);
        data.writeInt32(dumpsysFlags);
        Parcel reply;
        std::vector<String16> names;
        if (call(service_manager::kListServices, data, &reply) == OK) {
            (void)reply.readString16Vector(&names);  // none is the answer to a failure too
        }
        Vector<String16> result;
        for (const String16& name : names)
            result.add(name);
        return result;
    }

    bool checkPermission(const String16& permission, pid_t pid, uid_t uid) override {
        Parcel data;
        data.writeInterfaceToken(descriptor);
        data.writeString16(permission);
        data.writeInt32(pid);
        data.writeUint32(uid);
        Parcel reply;
        return call(service_manager::kCheckPermission, data, &reply) == OK && reply.readBool();
    }

private:
    /** A failed write leaves the parcel short, which the manager refuses. */
    status_t call(uint32_t code, const Parcel& data, Parcel* reply) const {
        if (const status_t status = data.errorCheck(); status != OK) return status;
        if (const status_t status = remote()->transact(code, data, reply); status != OK) {
            return status;
        }
        int32_t answer = OK;
        const status_t status = reply->readInt32(&answer);
        return status != OK ? status : answer;
    }

    status_t look(const String16& name, sp<IBinder>* outService) const {
        Parcel data;
        data.writeInterfaceToken(descriptor);
        data.writeString16(name);
        Parcel reply;
        const status_t status = call(service_manager::kCheckService, data, &reply);
        return status != OK ? status : reply.readNullableStrongBinder(outService);
    }

    status_t callWithWaiter(uint32_t code, const String16& name, const sp<Waiter>& waiter) const {
        Parcel data;
        data.writeInterfaceToken(descriptor);
        data.writeString16(name);
        data.writeStrongBinder(waiter);
        Parcel reply;
        return call(code, data, &reply);
    }

    sp<IBinder> await(const String16& name, nsecs_t deadline) const {
        sp<IBinder> service;
        if (look(name, &service) != OK || service != nullptr) return service;

        const sp<Waiter> waiter = new Waiter();
        const status_t registered = callWithWaiter(service_manager::kRegisterWaiter, name, waiter);
        if (registered == BAD_VALUE) return nullptr;  // no such name can ever be there
        ALOGI("Waiting for service %s", String8(name).c_str());
        nsecs_t interval = kFirstLook;
        // Looks first: the service may have come before the registration.
        while (look(name, &service) == OK && service == nullptr) {
            const nsecs_t now = systemTime(SYSTEM_TIME_MONOTONIC);
            if (now >= deadline) break;
            waiter->wait(std::min(interval, deadline - now));
            interval = std::min(2 * interval, kSlowestLook);
        }
        if (registered == OK) {
            // The manager forgets a waiter that it has told, or whose process ends.
            (void)callWithWaiter(service_manager::kUnregisterWaiter, name, waiter);
        }
        return service;
    }
};

IMPLEMENT_META_INTERFACE(ServiceManager, "android.os.IServiceManager")

sp<IServiceManager> defaultServiceManager() {
    // Never destroyed: other objects of static lifetime may ask while the process ends.
    static Mutex& sLock = *new Mutex();
    static sp<IServiceManager>& sProxy = *new sp<IServiceManager>();
    {
        Mutex::Autolock lock(sLock);
        if (sProxy != nullptr && IInterface::asBinder(sProxy)->isBinderAlive()) return sProxy;
    }
    const sp<IBinder> binder = ProcessState::self()->getContextObject(nullptr);
    const sp<IServiceManager> manager = interface_cast<IServiceManager>(binder);
    if (manager != nullptr && binder->localBinder() == nullptr) {
        Mutex::Autolock lock(sLock);
        sProxy = manager;
    }
    return manager;
}

bool checkCallingPermission(const String16& permission) {
    return checkCallingPermission(permission, nullptr, nullptr);
}

bool checkCallingPermission(const String16& permission, int32_t* outPid, int32_t* outUid) {
    const IPCThreadState* thread = IPCThreadState::self();
    const pid_t pid = thread->getCallingPid();
    const uid_t uid = thread->getCallingUid();
    if (outPid != nullptr) *outPid = pid;
    if (outUid != nullptr) *outUid = static_cast<int32_t>(uid);
    return checkPermission(permission, pid, uid);
}

bool checkPermission(const String16& permission, pid_t pid, uid_t uid, bool logPermissionFailure) {
    // So it is without a manager too, and needs no round trip.
    if (uid == service_manager::kRootUid || uid == service_manager::kSystemUid) return true;
    const sp<IServiceManager> manager = defaultServiceManager();
    if (manager != nullptr && manager->checkPermission(permission, pid, uid)) return true;
    if (logPermissionFailure) {
        ALOGW("Permission failure: %s from uid=%u pid=%d%s", String8(permission).c_str(), uid, pid,
              manager == nullptr ? ", no service manager" : "");
    }
    return false;
}

}  // namespace android
