// Value lists of any bytes: only the row is written, and only with finite numbers.

#include <android/log.h>
#include <qelto/PolicyText.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    __android_log_set_minimum_priority(ANDROID_LOG_SILENT);
    const std::string text(reinterpret_cast<const char*>(data), size);
    constexpr float kUntouched = -77.25f;
    for (const int count : {0, 1, 8}) {
        float row[9];
        for (float& value : row)
            value = kUntouched;
        const int set = android::mssAudioParamInfoStringToArray(text.c_str(), row, count);
        int changed = 0;
        for (int i = 0; i < 9; ++i) {
            if (!std::isfinite(row[i])) abort();
            if (row[i] == kUntouched) continue;
            ++changed;
            if (i >= count) abort();
        }
        if (set < changed || set > count) abort();
    }
    return 0;
}
