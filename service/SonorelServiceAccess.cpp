#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <utils/String16.h>

#include "service/ServiceLog.h"
#include "service/SonorelService.h"

namespace android {

namespace {

constexpr uid_t kSystemUid = 1000;
constexpr uid_t kAudioServerUid = 1041;
// Made once, as head data comes a thousand times a second; never destroyed, as binder threads may
// outlive static objects.
const String16& permission() {
    static const String16& sPermission = *new String16("com.qelto.permission.safe.MEDIA");
    return sPermission;
}

}  // namespace

bool SonorelService::isAllowedFindHalvend() {
    const IPCThreadState* const thread = IPCThreadState::self();
    const uid_t uid = thread->getCallingUid();
    const pid_t pid = thread->getCallingPid();
    if (uid == kSystemUid || uid == kAudioServerUid) return true;
    if (checkPermission(permission(), pid, uid, true /*logPermissionFailure*/)) return true;
    SONOREL_LOGE("uid %d , pid %d have no permission to find halvend", static_cast<int>(uid),
                 static_cast<int>(pid));
    return false;
}

}  // namespace android
