#pragma once

#include <binder/IServiceManager.h>
#include <utils/Condition.h>
#include <utils/Mutex.h>
#include <utils/Timers.h>

#include <map>
#include <memory>
#include <string>

namespace android {

class PermissionGrants;

/**
 * The service manager itself. The process that hosts it publishes it with
 * ProcessState::becomeContextManager. Calls come in on any thread; in the host process
 * defaultServiceManager() is this object.
 *
 * It drops a service when the owner's process ends. It is the permission service too: grants are
 * lines `PERMISSION UID` in `<root>/data/system/permission.grants`.
 */
class ServiceManager : public BnInterface<IServiceManager>, public IBinder::DeathRecipient {
public:
    /** `root` stands for the device's "/". */
    explicit ServiceManager(const std::string& root);
    ServiceManager(const ServiceManager&) = delete;
    ServiceManager& operator=(const ServiceManager&) = delete;

    sp<IBinder> getService(const String16& name) const override EXCLUDES(mLock);
    sp<IBinder> checkService(const String16& name) const override EXCLUDES(mLock);
    status_t addService(const String16& name, const sp<IBinder>& service, bool allowIsolated,
                        int dumpsysFlags) override EXCLUDES(mLock);
    Vector<String16> listServices(int dumpsysFlags) override EXCLUDES(mLock);
    sp<IBinder> waitForService(const String16& name) override EXCLUDES(mLock);
    bool isDeclared(const String16& name) override;
    bool checkPermission(const String16& permission, pid_t pid, uid_t uid) override;

    /**
     * Writes the list of services, for callers who hold android.permission.DUMP and for the
     * manager's own user. A reader who lets it stand for two seconds gets no more of it.
     */
    status_t dump(int fd, const Vector<String16>& args) override EXCLUDES(mLock);
    void binderDied(const wp<IBinder>& who) override EXCLUDES(mLock);

protected:
    ~ServiceManager() override;
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                        uint32_t flags = 0) override;

private:
    struct Service {
        sp<IBinder> binder;
        int dumpFlags = 0;
    };

    [[nodiscard]] bool mayAdd(const std::string& name) const;
    [[nodiscard]] bool mayDump() const;
    void storeService(const std::string& name, const Service& service) EXCLUDES(mLock);
    void dropService(const std::string& name, const sp<IBinder>& binder) EXCLUDES(mLock);
    [[nodiscard]] sp<IBinder> find(const std::string& name) const REQUIRES(mLock);
    /** Waits until `deadline` on the monotonic clock. */
    [[nodiscard]] sp<IBinder> awaitService(const String16& name, nsecs_t deadline) const
            EXCLUDES(mLock);

    status_t registerWaiter(const String16& name, const sp<IBinder>& waiter) EXCLUDES(mLock);
    status_t unregisterWaiter(const String16& name, const sp<IBinder>& waiter) EXCLUDES(mLock);

    status_t onCheckService(const Parcel& data, Parcel* reply);
    status_t onAddService(const Parcel& data, Parcel* reply);
    status_t onListServices(const Parcel& data, Parcel* reply);
    status_t onCheckPermission(const Parcel& data, Parcel* reply);
    status_t onWaiter(uint32_t code, const Parcel& data, Parcel* reply);

    const uid_t mOwnUid;
    const std::unique_ptr<PermissionGrants> mGrants;

    mutable Mutex mLock;
    mutable Condition mAdded;
    std::map<std::string, Service> mServices GUARDED_BY(mLock);
    // Binders of other processes that are called when a service of the name is added.
    std::multimap<std::string, sp<IBinder>> mWaiters GUARDED_BY(mLock);
};

}  // namespace android
