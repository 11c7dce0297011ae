#pragma once

#include <string>

#include <utils/RefBase.h>

namespace android {

class MssDatabase : public RefBase {
public:
    explicit MssDatabase(std::string path);
    int32_t getSoundWidenMode();
    void setSoundWidenMode(int32_t mode);
    void setCurrentUserID(int32_t userId);
};

}  // namespace android
