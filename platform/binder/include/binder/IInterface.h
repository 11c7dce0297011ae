#pragma once

#include <binder/Binder.h>

#include <memory>
#include <utility>

namespace android {

/** Base of every interface, of the proxy as of the implementation. */
class IInterface : public virtual RefBase {
public:
    IInterface() = default;
    IInterface(const IInterface&) = delete;
    IInterface& operator=(const IInterface&) = delete;

    /** The binder behind an interface; null for null. */
    static sp<IBinder> asBinder(const IInterface* interface);
    static sp<IBinder> asBinder(const sp<IInterface>& interface);

protected:
    ~IInterface() override = default;
    virtual IBinder* onAsBinder() = 0;
};

/** The interface of `binder`: the object itself in its own process, else a proxy; null for null. */
template <typename INTERFACE>
inline sp<INTERFACE> interface_cast(const sp<IBinder>& binder) {
    return INTERFACE::asInterface(binder);
}

/** Base of an implementation of INTERFACE. */
template <typename INTERFACE>
class BnInterface : public INTERFACE, public BBinder {
public:
    sp<IInterface> queryLocalInterface(const String16& wanted) override {
        if (wanted == INTERFACE::descriptor) return static_cast<INTERFACE*>(this);
        return nullptr;
    }
    const String16& getInterfaceDescriptor() const override { return INTERFACE::descriptor; }

protected:
    using BaseInterface = INTERFACE;
    IBinder* onAsBinder() override { return this; }
};

/** Base of a proxy of INTERFACE. */
template <typename INTERFACE>
class BpInterface : public INTERFACE, public BpRefBase {
public:
    explicit BpInterface(const sp<IBinder>& remote) : BpRefBase(remote) {}

protected:
    using BaseInterface = INTERFACE;
    IBinder* onAsBinder() override { return remote(); }
};

}  // namespace android

/**
 * In the body of interface I<NAME>: its descriptor, the cast from a binder, and the default
 * implementation that answers what a remote object does not know. The default is set at most once,
 * before the first call.
 */
#define DECLARE_META_INTERFACE(NAME)                                                         \
public:                                                                                      \
    static const ::android::String16 descriptor;                                             \
    static ::android::sp<I##NAME> asInterface(const ::android::sp<::android::IBinder>& obj); \
    virtual const ::android::String16& getInterfaceDescriptor() const;                       \
    I##NAME();                                                                               \
    I##NAME(const I##NAME&) = delete;                                                        \
    I##NAME& operator=(const I##NAME&) = delete;                                             \
    virtual ~I##NAME();                                                                      \
    static bool setDefaultImpl(std::unique_ptr<I##NAME> impl);                               \
    static const std::unique_ptr<I##NAME>& getDefaultImpl();                                 \
                                                                                             \
private:                                                                                     \
    static std::unique_ptr<I##NAME> sDefaultImpl;                                            \
                                                                                             \
public:

/** In one source file, in the namespace of I<NAME>, with class Bp<NAME> known. */
#define IMPLEMENT_META_INTERFACE(NAME, DESCRIPTOR)                                              \
    const ::android::String16 I##NAME::descriptor(DESCRIPTOR);                                  \
    std::unique_ptr<I##NAME> I##NAME::sDefaultImpl;                                             \
    const ::android::String16& I##NAME::getInterfaceDescriptor() const {                        \
        return descriptor;                                                                      \
    }                                                                                           \
    ::android::sp<I##NAME> I##NAME::asInterface(const ::android::sp<::android::IBinder>& obj) { \
        if (obj == nullptr) return nullptr;                                                     \
        const ::android::sp<::android::IInterface> local =                                      \
                obj->queryLocalInterface(I##NAME::descriptor);                                  \
        if (local != nullptr) return static_cast<I##NAME*>(local.get());                        \
        return new Bp##NAME(obj);                                                               \
    }                                                                                           \
    bool I##NAME::setDefaultImpl(std::unique_ptr<I##NAME> impl) {                               \
        if (sDefaultImpl != nullptr || impl == nullptr) return false;                           \
        sDefaultImpl = std::move(impl);                                                         \
        return true;                                                                            \
    }                                                                                           \
    const std::unique_ptr<I##NAME>& I##NAME::getDefaultImpl() {                                 \
        return sDefaultImpl;                                                                    \
    }                                                                                           \
    I##NAME::I##NAME() {}                                                                       \
    I##NAME::~I##NAME() {}

/** In a class that derives from BpInterface or BnInterface: refuses a descriptor that differs. */
#define CHECK_INTERFACE(interface, data, reply)                                \
    do {                                                                       \
        if (!(data).checkInterface(this)) return ::android::PERMISSION_DENIED; \
    } while (false)
