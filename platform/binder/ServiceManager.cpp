#include <limits>
#include <memory>

#define LOG_TAG "ServiceManager"

#include <binder/ServiceManager.h>

#include "DumpText.h"
#include "PermissionGrants.h"
#include "ServiceManagerWire.h"

#include <binder/IPCThreadState.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <log/log.h>
#include <unistd.h>

#include <algorithm>
#include <optional>
#include <vector>

namespace android {

namespace {

constexpr char kGrantsPath[] = "/data/system/permission.grants";
constexpr size_t kMaxNameLength = 127;
constexpr size_t kMaxWaiters = 1024;
constexpr nsecs_t kGetServiceWait = s2ns(5);

constexpr char kDumpPermission[] = "android.permission.DUMP";
// How long a reader may leave the dump of the manager standing.
constexpr nsecs_t kDumpWait = s2ns(2);

constexpr uid_t kAudioServerUid = 1041;

bool isNameCharacter(char16_t c) {
    return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9') ||
           c == u'_' || c == u'.' || c == u'/' || c == u'-';
}

std::optional<std::string> validName(const String16& name) {
    const char16_t* text = name.string();
    const size_t length = name.size();
    if (length == 0 || length > kMaxNameLength) return std::nullopt;
    if (!std::all_of(text, text + length, isNameCharacter)) return std::nullopt;
    return std::string(text, text + length);
}

}  // namespace

ServiceManager::ServiceManager(const std::string& root)
        : mOwnUid(::getuid()), mGrants(std::make_unique<PermissionGrants>(root + kGrantsPath)) {}

ServiceManager::~ServiceManager() = default;

sp<IBinder> ServiceManager::find(const std::string& name) const {
    const auto it = mServices.find(name);
    return it == mServices.end() ? nullptr : it->second.binder;
}

sp<IBinder> ServiceManager::checkService(const String16& name) const {
    const auto key = validName(name);
    if (!key) return nullptr;
    Mutex::Autolock lock(mLock);
    return find(*key);
}

sp<IBinder> ServiceManager::awaitService(const String16& name, nsecs_t deadline) const {
    const auto key = validName(name);
    if (!key) return nullptr;
    Mutex::Autolock lock(mLock);
    for (;;) {
        const sp<IBinder> service = find(*key);
        const nsecs_t now = systemTime(SYSTEM_TIME_MONOTONIC);
        if (service != nullptr || now >= deadline) return service;
        // Any wake-up is answered by looking again.
        (void)mAdded.waitRelative(mLock, std::min(deadline - now, kGetServiceWait));
    }
}

sp<IBinder> ServiceManager::getService(const String16& name) const {
    return awaitService(name, systemTime(SYSTEM_TIME_MONOTONIC) + kGetServiceWait);
}

sp<IBinder> ServiceManager::waitForService(const String16& name) {
    return awaitService(name, std::numeric_limits<nsecs_t>::max());
}

bool ServiceManager::isDeclared(const String16& name) {
    return checkService(name) != nullptr;
}

bool ServiceManager::mayAdd(const std::string& name) const {
    const IPCThreadState* thread = IPCThreadState::self();
    const uid_t uid = thread->getCallingUid();
    if (uid == service_manager::kRootUid || uid == service_manager::kSystemUid ||
        uid == kAudioServerUid || uid == mOwnUid) {
        return true;
    }
    ALOGW("uid %u (pid %d) may not add service %s", uid, thread->getCallingPid(), name.c_str());
    return false;
}

status_t ServiceManager::addService(const String16& name, const sp<IBinder>& service,
                                    bool /*allowIsolated*/, int dumpsysFlags) {
    const auto key = validName(name);
    if (!mayAdd(key.value_or("with a bad name"))) return PERMISSION_DENIED;
    if (!key || service == nullptr) {
        // A bad name may hold anything, line ends too.
        ALOGW("Refused a service: %s", key ? (*key + " is null").c_str() : "bad name");
        return BAD_VALUE;
    }
    storeService(*key, {service, dumpsysFlags});
    // Linked after it is stored, so that a death in between finds it.
    if (service->localBinder() == nullptr && service->linkToDeath(this) != OK) {
        ALOGW("The owner of service %s has ended", key->c_str());
        dropService(*key, service);
        return DEAD_OBJECT;
    }
    ALOGI("Added service %s", key->c_str());
    return OK;
}

void ServiceManager::storeService(const std::string& name, const Service& service) {
    std::vector<sp<IBinder>> waiters;
    Service replaced = service;
    {
        Mutex::Autolock lock(mLock);
        std::swap(mServices[name], replaced);
        const auto [begin, end] = mWaiters.equal_range(name);
        for (auto it = begin; it != end; ++it)
            waiters.push_back(it->second);
        mWaiters.erase(begin, end);
        mAdded.broadcast();
    }
    if (replaced.binder != nullptr) {
        ALOGI("Service %s is replaced", name.c_str());
        // A local binder has no link to remove.
        (void)replaced.binder->unlinkToDeath(this);
    }
    Parcel data;
    (void)data.writeInterfaceToken(String16(service_manager::kWaiterDescriptor));  // fits inline
    for (const sp<IBinder>& waiter : waiters) {
        // Who cannot be told looks again by itself.
        (void)waiter->transact(service_manager::kServiceAdded, data, nullptr, FLAG_ONEWAY);
        (void)waiter->unlinkToDeath(this);
    }
}

void ServiceManager::dropService(const std::string& name, const sp<IBinder>& binder) {
    Mutex::Autolock lock(mLock);
    const auto it = mServices.find(name);
    if (it != mServices.end() && it->second.binder == binder) mServices.erase(it);
}

Vector<String16> ServiceManager::listServices(int dumpsysFlags) {
    Vector<String16> names;
    Mutex::Autolock lock(mLock);
    for (const auto& [name, service] : mServices) {
        if ((service.dumpFlags & dumpsysFlags) != 0) names.add(String16(name.c_str()));
    }
    return names;
}

bool ServiceManager::checkPermission(const String16& permission, pid_t /*pid*/, uid_t uid) {
    return mGrants->holds(String8(permission).c_str(), uid);
}

bool ServiceManager::mayDump() const {
    const IPCThreadState* thread = IPCThreadState::self();
    const uid_t uid = thread->getCallingUid();
    if (uid == mOwnUid || mGrants->holds(kDumpPermission, uid)) return true;
    ALOGW("uid %u (pid %d) may not dump the services", uid, thread->getCallingPid());
    return false;
}

status_t ServiceManager::dump(int fd, const Vector<String16>& /*args*/) {
    if (!mayDump()) return PERMISSION_DENIED;
    const Vector<String16> names = listServices(~0);
    std::string text = std::to_string(names.size()) + " services:\n";
    for (const String16& name : names)
        text.append("  ").append(String8(name).c_str()).append("\n");
    text += "\n" + ProcessState::self()->limitsReport();
    return writeText(fd, text, kDumpWait);
}

void ServiceManager::binderDied(const wp<IBinder>& who) {
    std::vector<sp<IBinder>> dropped;  // released after the lock
    Mutex::Autolock lock(mLock);
    for (auto it = mServices.begin(); it != mServices.end();) {
        if (who != it->second.binder) {
            ++it;
            continue;
        }
        ALOGI("Service %s died", it->first.c_str());
        dropped.push_back(it->second.binder);
        it = mServices.erase(it);
    }
    for (auto it = mWaiters.begin(); it != mWaiters.end();) {
        if (who != it->second) {
            ++it;
            continue;
        }
        dropped.push_back(it->second);
        it = mWaiters.erase(it);
    }
}

status_t ServiceManager::registerWaiter(const String16& name, const sp<IBinder>& waiter) {
    const auto key = validName(name);
    if (!key || waiter == nullptr) return BAD_VALUE;
    {
        Mutex::Autolock lock(mLock);
        if (mWaiters.size() >= kMaxWaiters) {
            ALOGW("More than %zu clients wait for services", kMaxWaiters);
            return NO_MEMORY;
        }
        mWaiters.emplace(*key, waiter);
    }
    if (waiter->localBinder() != nullptr || waiter->linkToDeath(this) == OK) return OK;
    (void)unregisterWaiter(name, waiter);
    return DEAD_OBJECT;
}

status_t ServiceManager::unregisterWaiter(const String16& name, const sp<IBinder>& waiter) {
    const auto key = validName(name);
    if (!key || waiter == nullptr) return BAD_VALUE;
    {
        Mutex::Autolock lock(mLock);
        const auto [begin, end] = mWaiters.equal_range(*key);
        const auto it =
                std::find_if(begin, end, [&](const auto& entry) { return entry.second == waiter; });
        if (it == end) return OK;  // it was told meanwhile
        mWaiters.erase(it);
    }
    (void)waiter->unlinkToDeath(this);  // may have died, or be local
    return OK;
}

// ---- Calls from other processes ----

status_t ServiceManager::onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                    uint32_t flags) {
    if (code < FIRST_CALL_TRANSACTION || code > service_manager::kUnregisterWaiter) {
        return BBinder::onTransact(code, data, reply, flags);
    }
    if (!data.checkInterface(this)) return BAD_TYPE;
    switch (code) {
        case service_manager::kCheckService:
            return onCheckService(data, reply);
        case service_manager::kAddService:
            return onAddService(data, reply);
        case service_manager::kListServices:
            return onListServices(data, reply);
        case service_manager::kCheckPermission:
            return onCheckPermission(data, reply);
        default:
            return onWaiter(code, data, reply);
    }
}

status_t ServiceManager::onCheckService(const Parcel& data, Parcel* reply) {
    String16 name;
    if (const status_t status = data.readString16(&name); status != OK) return status;
    reply->writeInt32(OK);
    return reply->writeStrongBinder(checkService(name));
}

status_t ServiceManager::onAddService(const Parcel& data, Parcel* reply) {
    String16 name;
    sp<IBinder> service;
    bool allowIsolated = false;
    int32_t flags = 0;
    if (const status_t status = data.readString16(&name); status != OK) return status;
    if (const status_t status = data.readNullableStrongBinder(&service); status != OK) {
        return status;
    }
    if (const status_t status = data.readBool(&allowIsolated); status != OK) return status;
    if (const status_t status = data.readInt32(&flags); status != OK) return status;
    return reply->writeInt32(addService(name, service, allowIsolated, flags));
}

status_t ServiceManager::onListServices(const Parcel& data, Parcel* reply) {
    int32_t flags = 0;
    if (const status_t status = data.readInt32(&flags); status != OK) return status;
    const Vector<String16> names = listServices(flags);
    reply->writeInt32(OK);
    return reply->writeString16Vector(std::vector<String16>(names.begin(), names.end()));
}

status_t ServiceManager::onCheckPermission(const Parcel& data, Parcel* reply) {
    String16 permission;
    int32_t pid = 0;
    uint32_t uid = 0;
    if (const status_t status = data.readString16(&permission); status != OK) return status;
    if (const status_t status = data.readInt32(&pid); status != OK) return status;
    if (const status_t status = data.readUint32(&uid); status != OK) return status;
    reply->writeInt32(OK);
    return reply->writeBool(checkPermission(permission, pid, uid));
}

status_t ServiceManager::onWaiter(uint32_t code, const Parcel& data, Parcel* reply) {
    String16 name;
    sp<IBinder> waiter;
    if (const status_t status = data.readString16(&name); status != OK) return status;
    if (const status_t status = data.readNullableStrongBinder(&waiter); status != OK) {
        return status;
    }
    return reply->writeInt32(code == service_manager::kRegisterWaiter
                                     ? registerWaiter(name, waiter)
                                     : unregisterWaiter(name, waiter));
}

}  // namespace android
