// A maker's settings store with the least that the service may rely on. See ../../CMakeLists.txt.
#pragma once

#include <string>

#include <utils/RefBase.h>

namespace android {

#ifdef TREE_DEVICES_ARE_AN_ENUM
enum meta_devices_t { MAKER_CURRENT = -2, MAKER_ANY = -1, MAKER_SPEAKER = 0, MAKER_HEADSET = 1 };
#else
typedef int meta_devices_t;
#endif

class MetaInfoSqliteUtil : public RefBase {
public:
    MetaInfoSqliteUtil(std::string path, std::string table, int bound, float number, int device);
    meta_devices_t getCurrentDevice();
    void setCurrentDevice(meta_devices_t device);
    void setCurrentUserID(int userId);
    bool getMetaAudioOn(meta_devices_t device);
    void setMetaAudioOn(bool on, meta_devices_t device);
    signed char getMetaAudioMode(meta_devices_t device);
    void updateMetaAudioMode(signed char mode, meta_devices_t device);
    void getMetaInfoByScene(int scene, float* pos3, meta_devices_t device);
    void updateMetaInfoByScene(int scene, float* pos3, meta_devices_t device);
    bool needInitDefaultHomePos();
    void customDefaultHomePosInited();
};

}  // namespace android
