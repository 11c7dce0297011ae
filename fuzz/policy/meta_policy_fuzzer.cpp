#include "fuzz/policy/Inputs.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    sonorel::fuzz::feedMetaPolicy(bytes, size);
    return 0;
}
