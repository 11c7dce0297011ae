#pragma once

#include <binder/IBinder.h>
#include <utils/Mutex.h>

#include <atomic>
#include <map>
#include <memory>

namespace android {

namespace internal {

/** The table behind attachObject: at most a handful of entries, cleaned up with its binder. */
class AttachedObjects {
public:
    AttachedObjects() = default;
    AttachedObjects(const AttachedObjects&) = delete;
    AttachedObjects& operator=(const AttachedObjects&) = delete;
    ~AttachedObjects();

    void* attach(const void* id, void* object, void* cookie, IBinder::object_cleanup_func func)
            EXCLUDES(mLock);
    void* find(const void* id) const EXCLUDES(mLock);
    void* detach(const void* id) EXCLUDES(mLock);

private:
    struct Entry {
        void* object;
        void* cookie;
        IBinder::object_cleanup_func func;
    };

    mutable Mutex mLock;
    std::map<const void*, Entry> mEntries GUARDED_BY(mLock);
};

}  // namespace internal

/**
 * An object of this process. A service derives from BnInterface, which derives from this, and
 * answers calls in onTransact, on a binder thread or, in a call from the same process, on the
 * caller's thread.
 */
class BBinder : public IBinder {
public:
    BBinder() = default;
    BBinder(const BBinder&) = delete;
    BBinder& operator=(const BBinder&) = delete;

    [[nodiscard]] const String16& getInterfaceDescriptor() const override;
    [[nodiscard]] bool isBinderAlive() const override;
    status_t pingBinder() override;
    status_t dump(int fd, const Vector<String16>& args) override;

    /**
     * Runs the call on this thread: rewinds `data`, answers a ping, hands everything else to
     * onTransact, rewinds the reply. The transport enters here too. The calling identity is left
     * as it stands.
     */
    status_t transact(uint32_t code, const Parcel& data, Parcel* reply,
                      uint32_t flags = 0) override;

    /** INVALID_OPERATION: an object of this process cannot die before it. */
    status_t linkToDeath(const sp<DeathRecipient>& recipient, void* cookie = nullptr,
                         uint32_t flags = 0) override;
    status_t unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie = nullptr,
                           uint32_t flags = 0, wp<DeathRecipient>* outRecipient = nullptr) override;

    void* attachObject(const void* objectId, void* object, void* cleanupCookie,
                       object_cleanup_func func) override;
    void* findObject(const void* objectId) const override;
    void* detachObject(const void* objectId) override;

    BBinder* localBinder() override;

protected:
    ~BBinder() override;

    /**
     * Answers one call. The base class answers the interface query, dump and shell commands, and
     * UNKNOWN_TRANSACTION for the rest. `reply` is never null.
     */
    virtual status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                uint32_t flags = 0);

private:
    status_t onDump(const Parcel& data);
    status_t onShellCommand(const Parcel& data);
    internal::AttachedObjects& attached();

    // Made by the first attachObject; most binders never have one.
    std::atomic<internal::AttachedObjects*> mAttached{nullptr};
};

/** Base of every proxy interface: holds its remote object for as long as it lives. */
class BpRefBase : public virtual RefBase {
protected:
    explicit BpRefBase(const sp<IBinder>& remote);
    ~BpRefBase() override = default;

    IBinder* remote() const { return mRemote.get(); }
    sp<IBinder> remoteStrong() const { return mRemote; }

public:
    BpRefBase(const BpRefBase&) = delete;
    BpRefBase& operator=(const BpRefBase&) = delete;

private:
    const sp<IBinder> mRemote;
};

}  // namespace android
