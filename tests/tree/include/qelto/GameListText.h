#pragma once

#include <map>
#include <string>
#include <vector>

#include <utils/String8.h>

namespace android {

void FastEffectString2PkgMapAndVec(String8 text, std::map<std::string, int>& map,
                                   std::vector<std::string>& pkgs);
void FastEffectPkgSwitchMap2String(std::map<std::string, int> map, String8* out);

}  // namespace android
