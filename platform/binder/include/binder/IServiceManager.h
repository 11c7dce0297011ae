#pragma once

#include <binder/IBinder.h>
#include <binder/IInterface.h>
#include <sys/types.h>
#include <utils/String16.h>
#include <utils/Vector.h>

namespace android {

/**
 * Hands out services by name. A name has 1 to 127 characters of [A-Za-z0-9_./-]. Any thread may
 * call. Only this library implements it.
 */
class IServiceManager : public IInterface {
public:
    // How a service is listed, one or more of them.
    static constexpr int DUMP_FLAG_PRIORITY_CRITICAL = 1 << 0;
    static constexpr int DUMP_FLAG_PRIORITY_HIGH = 1 << 1;
    static constexpr int DUMP_FLAG_PRIORITY_NORMAL = 1 << 2;
    static constexpr int DUMP_FLAG_PRIORITY_DEFAULT = 1 << 3;
    static constexpr int DUMP_FLAG_PRIORITY_ALL = 0xf;
    static constexpr int DUMP_FLAG_PROTO = 1 << 4;

    DECLARE_META_INTERFACE(ServiceManager)

    /** Waits up to five seconds for the service; null when it does not come, or the manager dies.
     */
    virtual sp<IBinder> getService(const String16& name) const = 0;
    /** The service if it is there now, else null. */
    virtual sp<IBinder> checkService(const String16& name) const = 0;
    /**
     * Publishes a service until its owner ends; a second service of a name replaces the first.
     * PERMISSION_DENIED unless the caller is root, system (1000), the audio server (1041) or has
     * the manager's own uid; BAD_VALUE for a bad name or a null service.
     */
    virtual status_t addService(const String16& name, const sp<IBinder>& service,
                                bool allowIsolated = false,
                                int dumpsysFlags = DUMP_FLAG_PRIORITY_DEFAULT) = 0;
    /** The names with one of these flags, sorted. */
    virtual Vector<String16> listServices(int dumpsysFlags = DUMP_FLAG_PRIORITY_ALL) = 0;
    /** Waits until the service is there; null only for a bad name or when the manager dies. */
    virtual sp<IBinder> waitForService(const String16& name) = 0;
    /** True when the service is there: a host has no list of services to come. */
    virtual bool isDeclared(const String16& name) = 0;

    /**
     * Of this host only: whether `uid` holds `permission`. Root and system hold every one. False
     * when the manager cannot be asked.
     */
    virtual bool checkPermission(const String16& permission, pid_t pid, uid_t uid) = 0;
};

/**
 * The manager that this machine's clients share, or null at once when none answers; then the next
 * call looks again.
 */
sp<IServiceManager> defaultServiceManager();

template <typename INTERFACE>
status_t getService(const String16& name, sp<INTERFACE>* outService) {
    const sp<IServiceManager> manager = defaultServiceManager();
    *outService =
            manager == nullptr ? nullptr : interface_cast<INTERFACE>(manager->getService(name));
    return *outService == nullptr ? NAME_NOT_FOUND : OK;
}

template <typename INTERFACE>
sp<INTERFACE> waitForService(const String16& name) {
    const sp<IServiceManager> manager = defaultServiceManager();
    return manager == nullptr ? nullptr : interface_cast<INTERFACE>(manager->waitForService(name));
}

/** Whether the caller of the transaction that this thread serves holds `permission`. */
bool checkCallingPermission(const String16& permission);
bool checkCallingPermission(const String16& permission, int32_t* outPid, int32_t* outUid);
/** A failure is logged at warning unless `logPermissionFailure` is false. */
bool checkPermission(const String16& permission, pid_t pid, uid_t uid,
                     bool logPermissionFailure = true);

}  // namespace android
