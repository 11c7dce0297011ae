#pragma once

#include <binder/Binder.h>
#include <binder/IBinder.h>
#include <utils/Mutex.h>

#include <atomic>
#include <memory>
#include <vector>

namespace android {

namespace transport {
class Peer;
class ProxyHost;
class RemoteObjects;
}  // namespace transport

/**
 * Proxy for an object of another process. A process has one proxy for one remote object, for as
 * long as somebody holds it strongly; the object lives at least that long. Thread-safe.
 *
 * A proxy lets its object go as soon as the last strong pointer is gone: a weak pointer alone does
 * not bring it back.
 */
class BpBinder : public IBinder {
public:
    BpBinder(const BpBinder&) = delete;
    BpBinder& operator=(const BpBinder&) = delete;

    [[nodiscard]] const String16& getInterfaceDescriptor() const override EXCLUDES(mLock);
    [[nodiscard]] bool isBinderAlive() const override;
    status_t pingBinder() override;
    status_t dump(int fd, const Vector<String16>& args) override;

    /**
     * DEAD_OBJECT when the owner's process has ended, before or during the call; FAILED_TRANSACTION
     * when data or reply exceed the limit, or, with FLAG_ONEWAY, when the receiver has too many
     * calls waiting. A one-way call never blocks.
     */
    status_t transact(uint32_t code, const Parcel& data, Parcel* reply,
                      uint32_t flags = 0) override;

    status_t linkToDeath(const sp<DeathRecipient>& recipient, void* cookie = nullptr,
                         uint32_t flags = 0) override EXCLUDES(mLock);
    status_t unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie = nullptr,
                           uint32_t flags = 0, wp<DeathRecipient>* outRecipient = nullptr) override
            EXCLUDES(mLock);

    void* attachObject(const void* objectId, void* object, void* cleanupCookie,
                       object_cleanup_func func) override;
    void* findObject(const void* objectId) const override;
    void* detachObject(const void* objectId) override;

    BpBinder* remoteBinder() override;

    // ---- For the transport ----

    [[nodiscard]] const std::shared_ptr<transport::Peer>& owner() const { return mOwner; }
    [[nodiscard]] uint64_t id() const { return mId; }
    /** From now on nothing reaches the object. True when recipients wait to be told. */
    [[nodiscard]] bool markDead() EXCLUDES(mLock);
    /** Notifies each recipient; on a thread of the pool, after markDead. */
    void sendObituary() EXCLUDES(mLock);

private:
    friend class transport::RemoteObjects;

    struct DeathLink {
        wp<DeathRecipient> recipient;
        void* cookie;
        uint32_t flags;
    };

    BpBinder(transport::ProxyHost& host, std::shared_ptr<transport::Peer> owner, uint64_t id,
             bool alive);
    ~BpBinder() override;

    // What the driver has seen so far; asks the kernel nothing.
    [[nodiscard]] bool isKnownAlive() const;

    transport::ProxyHost& mHost;
    const std::shared_ptr<transport::Peer> mOwner;  // null when it was dead as the proxy came
    const uint64_t mId;
    std::atomic<bool> mAlive;
    // References that the owner counts for this proxy; guarded by RemoteObjects' lock.
    uint64_t mCredits = 0;
    internal::AttachedObjects mAttached;

    mutable Mutex mLock;
    std::vector<DeathLink> mLinks GUARDED_BY(mLock);
    mutable bool mHasDescriptor GUARDED_BY(mLock) = false;
    // Never changes once mHasDescriptor is set, as callers keep references to it.
    mutable String16 mDescriptor;
};

}  // namespace android
