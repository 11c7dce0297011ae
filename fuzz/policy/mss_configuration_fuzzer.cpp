#include <android/log.h>

#include "fuzz/policy/Inputs.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // The converter tells of every list that is malformed, and here nearly all are.
    (void)__android_log_set_minimum_priority(ANDROID_LOG_FATAL);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    sonorel::fuzz::feedMssConfiguration(bytes, size);
    return 0;
}
