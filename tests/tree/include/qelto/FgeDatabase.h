#pragma once

#include <map>
#include <string>
#include <vector>

#include <utils/RefBase.h>

namespace android {

class FgeDatabase : public RefBase {
public:
    explicit FgeDatabase(std::string path);
    void getSwitchForPkgName(std::map<std::string, int>& map);
    void setFastGameEffectOn(std::string pkgName, int value);
    void updateDataBase(std::vector<std::string> pkgs, std::map<std::string, int> known);

    int32_t mCurrentUserId;
};

}  // namespace android
