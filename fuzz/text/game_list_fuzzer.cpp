// Game list texts of any bytes: both outputs agree with each other, and the map's text reads back.

#include <android/log.h>
#include <qelto/GameListText.h>

#include <cstdint>
#include <cstdlib>
#include <map>
#include <set>
#include <string>
#include <vector>

using android::FastEffectPkgSwitchMap2String;
using android::FastEffectString2PkgMapAndVec;
using android::String8;

namespace {

void require(bool holds) {
    if (!holds) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    __android_log_set_minimum_priority(ANDROID_LOG_SILENT);
    std::map<std::string, int> map;
    std::vector<std::string> pkgs;
    FastEffectString2PkgMapAndVec(String8(reinterpret_cast<const char*>(data), size), map, pkgs);

    require(pkgs.size() == map.size());
    require(std::set<std::string>(pkgs.begin(), pkgs.end()).size() == pkgs.size());
    for (const std::string& pkg : pkgs)
        require(map.count(pkg) == 1);

    String8 text;
    FastEffectPkgSwitchMap2String(map, &text);
    std::map<std::string, int> again;
    FastEffectString2PkgMapAndVec(text, again, pkgs);
    // Bytes that are not UTF-8 change once, into the replacement character, and then no more.
    String8 textAgain;
    FastEffectPkgSwitchMap2String(again, &textAgain);
    FastEffectString2PkgMapAndVec(textAgain, map, pkgs);
    require(map == again);
    return 0;
}
