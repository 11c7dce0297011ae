#include <memory>

#include <binder/Binder.h>

#include <binder/IResultReceiver.h>
#include <binder/Parcel.h>
#include <utils/misc.h>

namespace android {

namespace internal {

AttachedObjects::~AttachedObjects() {
    for (const auto& [id, entry] : mEntries) {
        if (entry.func != nullptr) entry.func(id, entry.object, entry.cookie);
    }
}

void* AttachedObjects::attach(const void* id, void* object, void* cookie,
                              IBinder::object_cleanup_func func) {
    Mutex::Autolock lock(mLock);
    const auto [it, added] = mEntries.try_emplace(id, Entry{object, cookie, func});
    return added ? nullptr : it->second.object;
}

void* AttachedObjects::find(const void* id) const {
    Mutex::Autolock lock(mLock);
    const auto it = mEntries.find(id);
    return it == mEntries.end() ? nullptr : it->second.object;
}

void* AttachedObjects::detach(const void* id) {
    Mutex::Autolock lock(mLock);
    const auto it = mEntries.find(id);
    if (it == mEntries.end()) return nullptr;
    void* object = it->second.object;
    mEntries.erase(it);
    return object;
}

}  // namespace internal

BBinder::~BBinder() {
    delete mAttached.load(std::memory_order_relaxed);
}

const String16& BBinder::getInterfaceDescriptor() const {
    // Never destroyed: binders of static lifetime may ask while the process ends.
    static const String16& sEmpty = *new String16();
    return sEmpty;
}

bool BBinder::isBinderAlive() const {
    return true;
}

status_t BBinder::pingBinder() {
    return OK;
}

status_t BBinder::dump(int /*fd*/, const Vector<String16>& /*args*/) {
    return OK;
}

status_t BBinder::transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    data.setDataPosition(0);
    if (code == PING_TRANSACTION) return pingBinder();
    if (reply == nullptr) {
        // A two-way method called one-way still writes its answer.
        Parcel unread;
        return onTransact(code, data, &unread, flags);
    }
    const status_t status = onTransact(code, data, reply, flags);
    reply->setDataPosition(0);
    return status;
}

status_t BBinder::linkToDeath(const sp<DeathRecipient>& /*recipient*/, void* /*cookie*/,
                              uint32_t /*flags*/) {
    return INVALID_OPERATION;
}

status_t BBinder::unlinkToDeath(const wp<DeathRecipient>& /*recipient*/, void* /*cookie*/,
                                uint32_t /*flags*/, wp<DeathRecipient>* /*outRecipient*/) {
    return INVALID_OPERATION;
}

internal::AttachedObjects& BBinder::attached() {
    internal::AttachedObjects* current = mAttached.load(std::memory_order_acquire);
    if (current != nullptr) return *current;
    auto made = std::make_unique<internal::AttachedObjects>();
    if (mAttached.compare_exchange_strong(current, made.get(), std::memory_order_acq_rel)) {
        return *made.release();
    }
    return *current;
}

void* BBinder::attachObject(const void* objectId, void* object, void* cleanupCookie,
                            object_cleanup_func func) {
    return attached().attach(objectId, object, cleanupCookie, func);
}

void* BBinder::findObject(const void* objectId) const {
    const internal::AttachedObjects* attached = mAttached.load(std::memory_order_acquire);
    return attached == nullptr ? nullptr : attached->find(objectId);
}

void* BBinder::detachObject(const void* objectId) {
    internal::AttachedObjects* attached = mAttached.load(std::memory_order_acquire);
    return attached == nullptr ? nullptr : attached->detach(objectId);
}

BBinder* BBinder::localBinder() {
    return this;
}

namespace {

// The arguments of a dump or a shell command. The count is a stranger's word: the first argument
// that is not there ends the reading, so the data bounds it.
status_t readArgs(const Parcel& data, Vector<String16>* outArgs) {
    int32_t count = 0;
    if (const status_t status = data.readInt32(&count); status != OK) return status;
    if (count < 0) return BAD_VALUE;
    for (String16 arg; count > 0; --count) {
        if (const status_t status = data.readString16(&arg); status != OK) return status;
        outArgs->add(arg);
    }
    return OK;
}

}  // namespace

status_t BBinder::onDump(const Parcel& data) {
    const int fd = data.readFileDescriptor();
    if (fd < 0) return BAD_TYPE;
    Vector<String16> args;
    if (const status_t status = readArgs(data, &args); status != OK) return status;
    return dump(fd, args);
}

// An object that has commands overrides onTransact for this code. The rest say that they have none.
status_t BBinder::onShellCommand(const Parcel& data) {
    for (int i = 0; i < 3; ++i) {
        if (data.readFileDescriptor() < 0) return BAD_TYPE;
    }
    Vector<String16> args;  // read only to come past them
    if (const status_t status = readArgs(data, &args); status != OK) return status;
    sp<IBinder> callback;
    sp<IResultReceiver> receiver;
    if (const status_t status = data.readNullableStrongBinder(&callback); status != OK) {
        return status;
    }
    if (const status_t status = data.readNullableStrongBinder(&receiver); status != OK) {
        return status;
    }
    if (receiver != nullptr) receiver->send(INVALID_OPERATION);
    return OK;
}

status_t BBinder::onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t /*flags*/) {
    switch (code) {
        case INTERFACE_TRANSACTION:
            return reply->writeString16(getInterfaceDescriptor());
        case DUMP_TRANSACTION:
            return onDump(data);
        case SHELL_COMMAND_TRANSACTION:
            return onShellCommand(data);
        case SYSPROPS_TRANSACTION:
            report_sysprop_change();
            return OK;
        default:
            return UNKNOWN_TRANSACTION;
    }
}

BpRefBase::BpRefBase(const sp<IBinder>& remote) : mRemote(remote) {}

}  // namespace android
