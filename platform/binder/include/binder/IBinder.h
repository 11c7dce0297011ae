#pragma once

#include <stdint.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/String16.h>
#include <utils/Vector.h>

// A four-letter code as one word, the first letter in the highest byte.
#ifndef B_PACK_CHARS
#define B_PACK_CHARS(c1, c2, c3, c4) \
    ((static_cast<uint32_t>(c1) << 24) | ((c2) << 16) | ((c3) << 8) | (c4))
#endif

namespace android {

class BBinder;
class BpBinder;
class IInterface;
class IResultReceiver;
class IShellCallback;
class Parcel;

/**
 * An object that can be called: a local one (BBinder) or a proxy for one in another process
 * (BpBinder). All methods may be called from any thread.
 */
class IBinder : public virtual RefBase {
public:
    enum {
        /** Application codes lie in this range, both ends included. */
        FIRST_CALL_TRANSACTION = 0x00000001,
        LAST_CALL_TRANSACTION = 0x00ffffff,

        PING_TRANSACTION = B_PACK_CHARS('_', 'P', 'N', 'G'),
        DUMP_TRANSACTION = B_PACK_CHARS('_', 'D', 'M', 'P'),
        SHELL_COMMAND_TRANSACTION = B_PACK_CHARS('_', 'C', 'M', 'D'),
        INTERFACE_TRANSACTION = B_PACK_CHARS('_', 'N', 'T', 'F'),
        SYSPROPS_TRANSACTION = B_PACK_CHARS('_', 'S', 'P', 'R'),

        /** The caller does not wait for an answer, and gets none. */
        FLAG_ONEWAY = 0x00000001,
        /** Accepted and ignored: the host's buffers are not shared. */
        FLAG_CLEAR_BUF = 0x00000020,
        FLAG_PRIVATE_VENDOR = 0x10000000,
    };

    IBinder() = default;
    IBinder(const IBinder&) = delete;
    IBinder& operator=(const IBinder&) = delete;

    /** The interface in this process that stands behind the object, null when there is none. */
    virtual sp<IInterface> queryLocalInterface(const String16& descriptor);

    /** The descriptor of the object's interface; a proxy asks its object once. */
    [[nodiscard]] virtual const String16& getInterfaceDescriptor() const = 0;

    /** False once the owner's process is known to have ended. */
    [[nodiscard]] virtual bool isBinderAlive() const = 0;
    virtual status_t pingBinder() = 0;
    /** Writes a report into `fd`, which stays the caller's. */
    virtual status_t dump(int fd, const Vector<String16>& args) = 0;

    /**
     * Runs a command on `target`. The three descriptors stay the caller's and must be open.
     * `callback` and `resultReceiver` may be null.
     */
    static status_t shellCommand(const sp<IBinder>& target, int in, int out, int err,
                                 Vector<String16>& args, const sp<IShellCallback>& callback,
                                 const sp<IResultReceiver>& resultReceiver);

    /**
     * Calls the object. `reply` may be null. Returns a transport error, or what the object's
     * onTransact returned; what the method answered is in the reply.
     */
    virtual status_t transact(uint32_t code, const Parcel& data, Parcel* reply,
                              uint32_t flags = 0) = 0;

    /** Told once, on a binder thread, when the owner of a remote object has ended. */
    class DeathRecipient : public virtual RefBase {
    public:
        DeathRecipient() = default;
        DeathRecipient(const DeathRecipient&) = delete;
        DeathRecipient& operator=(const DeathRecipient&) = delete;
        virtual void binderDied(const wp<IBinder>& who) = 0;

    protected:
        ~DeathRecipient() override = default;
    };

    /**
     * Links `recipient`, which is held weakly. DEAD_OBJECT when the owner has ended already,
     * INVALID_OPERATION on an object of this process.
     */
    virtual status_t linkToDeath(const sp<DeathRecipient>& recipient, void* cookie = nullptr,
                                 uint32_t flags = 0) = 0;

    /**
     * Removes one link of `recipient`, or, when it is null, one that was made with `cookie`.
     * NAME_NOT_FOUND without such a link, DEAD_OBJECT once the owner has ended.
     */
    virtual status_t unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie = nullptr,
                                   uint32_t flags = 0,
                                   wp<DeathRecipient>* outRecipient = nullptr) = 0;

    virtual bool checkSubclass(const void* subclassId) const;

    using object_cleanup_func = void (*)(const void* id, void* obj, void* cleanupCookie);

    /**
     * Keeps `object` with the binder under `objectId`; `func` runs when the binder is destroyed.
     * An object that is attached already stays, and is returned.
     */
    virtual void* attachObject(const void* objectId, void* object, void* cleanupCookie,
                               object_cleanup_func func) = 0;
    virtual void* findObject(const void* objectId) const = 0;
    /** Forgets the object without running its cleanup, and returns it. */
    virtual void* detachObject(const void* objectId) = 0;

    virtual BBinder* localBinder();
    virtual BpBinder* remoteBinder();

protected:
    ~IBinder() override = default;
};

}  // namespace android
