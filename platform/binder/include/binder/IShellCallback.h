#pragma once

#include <binder/IInterface.h>

namespace android {

/** Opens files for a shell command with the rights of who started it. */
class IShellCallback : public IInterface {
public:
    DECLARE_META_INTERFACE(ShellCallback)

    /** A descriptor that is the caller's, or negative. `mode` is "r", "w", "w+" or "r+". */
    virtual int openFile(const String16& path, const String16& seLinuxContext,
                         const String16& mode) = 0;

    enum { OP_OPEN_OUTPUT_FILE = IBinder::FIRST_CALL_TRANSACTION };
};

class BnShellCallback : public BnInterface<IShellCallback> {
public:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                        uint32_t flags = 0) override;
};

}  // namespace android
