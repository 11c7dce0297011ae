#pragma once

#include <binder/IBinder.h>
#include <sys/types.h>

namespace android::service_manager {

// The calls between IServiceManager's proxy and the manager. Every reply starts with a status_t.
enum Code : uint32_t {
    kCheckService = IBinder::FIRST_CALL_TRANSACTION,  // name -> binder, may be null
    kAddService,                                      // name, binder, isolated, flags
    kListServices,                                    // flags -> names
    kCheckPermission,                                 // permission, pid, uid -> bool
    kRegisterWaiter,                                  // name, binder that is called once
    kUnregisterWaiter,                                // name, the same binder
};

/** Sent one-way to a waiter, with its descriptor and nothing else, when the service is there. */
constexpr uint32_t kServiceAdded = IBinder::FIRST_CALL_TRANSACTION;
constexpr char kWaiterDescriptor[] = "android.os.IServiceCallback";

/** The two that hold every permission. */
constexpr uid_t kRootUid = 0;
constexpr uid_t kSystemUid = 1000;

}  // namespace android::service_manager
