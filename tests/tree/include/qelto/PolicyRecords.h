#pragma once

#include <cstdint>

#include <utils/String8.h>

namespace android {

struct MetaAudioInfo {
    float pos[3] = {};
    char reserved0[4] = {};
    int32_t scene = -1, fadeInStyle = -1, fadeOutStyle = -1, reserved1 = 1, reserved2 = 0;
    bool reserved3 = false, denyFast = false, voipApp = false;
    String8 name{"invalid"};
};

struct MetaSceInfForParseXml {
    int32_t SceTyp = -1, HomePosTyp = 0, Priority = 0;
    bool IsTransient = false;
    float FadeTimeLen = 0, CrosFadeTimeLen = 0;
    float HomePosIntelligentMode[3] = {-1, -1, -1}, HomePosCustomMode[3] = {-1, -1, -1};
    float HomePosIntelligentModeSpk[3] = {-1, -1, -1}, HomePosCustomModeSpk[3] = {-1, -1, -1};
};

struct DynamicProcessorInf {
    float ratio = 0, threshold_dB = 0, kneeWidth_dB = 0;
    bool hardLimitGate = false, softKnee = false, enableSidechain = false;
    float attackTime_mSec = 0, releaseTime_mSec = 0, outputGain_dB = 0, gainReduction = 0;
    float gainReduction_dB = 0, detectGate_dB = 0, thresholdMax_dB = 0, thresholdMin_dB = 0;
    float recValue_dB = 0, procValue_dB = 0;
    String8 name{"invalid"};
};

struct AudioDetectorInf {
    bool detect_dB = false, clampToUnityMax = false;
    int32_t detectMode = 0;
    float attackTime_mSec = 0, releaseTime_mSec = 0, lPFilterAlpha = 0;
    String8 name{"invalid"};
};

enum MssSceneType : int32_t { MAKER_SCENE_A, MAKER_SCENE_B, MAKER_SCENE_END };
enum mssParamInfoType : int32_t { MAKER_PARAMETER_FIRST, MAKER_PARAMETER_END = 10 };

struct MssParamInfoFromXML {
    int32_t mssScene = -1;
    float params[10][8] = {};
};

}  // namespace android
