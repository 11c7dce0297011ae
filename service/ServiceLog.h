// The service's log calls. Below the level in force nothing is formatted: the arguments are not
// even evaluated.
#pragma once

#include <android/log.h>

namespace android {

inline constexpr char kLogTag[] = "Kestrune::SonorelService_Aidl";

}  // namespace android

// A macro, since only a macro can leave its arguments alone when the line is not wanted.
#define SONOREL_LOG(priority, ...)                                                              \
    do {                                                                                        \
        if (__android_log_is_loggable_len(priority, ::android::kLogTag,                         \
                                          sizeof(::android::kLogTag) - 1, ANDROID_LOG_DEBUG)) { \
            (void)__android_log_print(priority, ::android::kLogTag, __VA_ARGS__);               \
        }                                                                                       \
    } while (false)

#define SONOREL_LOGD(...) SONOREL_LOG(ANDROID_LOG_DEBUG, __VA_ARGS__)
#define SONOREL_LOGW(...) SONOREL_LOG(ANDROID_LOG_WARN, __VA_ARGS__)
#define SONOREL_LOGE(...) SONOREL_LOG(ANDROID_LOG_ERROR, __VA_ARGS__)
