#pragma once

#include <cstdint>

#include <utils/String8.h>

// The records that the policy files become. The loader fills them, the converters of PolicyText.h
// print them, and both sides read them at fixed offsets: order, widths and initial values are part
// of the contract. A record is plain data with one owner and no lock of its own.

namespace android {

// One application package: where its sound stands and how it fades.
struct MetaAudioInfo {
    float pos[3] = {0.0f, 0.0f, 0.0f};  // x, y, z
    int32_t reserved0 = 0;
    int32_t scene = -1;
    int32_t fadeInStyle = -1;
    int32_t fadeOutStyle = -1;
    int32_t reserved1 = 1;
    int32_t reserved2 = 0;
    bool reserved3 = false;
    bool denyFast = false;
    bool voipApp = false;
    String8 name = String8("invalid");  // package
};

// One scene type: priority, fades and the home positions of both modes, for headphones and for the
// built-in speaker (Spk).
struct MetaSceInfForParseXml {
    int32_t SceTyp = -1;
    int32_t HomePosTyp = 0;
    int32_t Priority = 0;
    bool IsTransient = false;
    float FadeTimeLen = 0.0f;
    float CrosFadeTimeLen = 0.0f;
    float HomePosIntelligentMode[3] = {-1.0f, -1.0f, -1.0f};
    float HomePosCustomMode[3] = {-1.0f, -1.0f, -1.0f};
    float HomePosIntelligentModeSpk[3] = {-1.0f, -1.0f, -1.0f};
    float HomePosCustomModeSpk[3] = {-1.0f, -1.0f, -1.0f};
};

// One named setting of the dynamic range processor. _dB in decibels, _mSec in milliseconds.
struct DynamicProcessorInf {
    float ratio = 0.0f;
    float threshold_dB = 0.0f;
    float kneeWidth_dB = 0.0f;
    bool hardLimitGate = false;
    bool softKnee = false;
    bool enableSidechain = false;
    float attackTime_mSec = 0.0f;
    float releaseTime_mSec = 0.0f;
    float outputGain_dB = 0.0f;
    float gainReduction = 0.0f;
    float gainReduction_dB = 0.0f;
    float detectGate_dB = 0.0f;
    float thresholdMax_dB = 0.0f;
    float thresholdMin_dB = 0.0f;
    float recValue_dB = 0.0f;
    float procValue_dB = 0.0f;
    String8 name = String8("invalid");
};

// One named setting of the audio detector. detect_dB is a flag: detect in decibels.
struct AudioDetectorInf {
    bool detect_dB = false;
    bool clampToUnityMax = false;
    int32_t detectMode = 0;
    float attackTime_mSec = 0.0f;
    float releaseTime_mSec = 0.0f;
    float lPFilterAlpha = 0.0f;
    String8 name = String8("invalid");
};

enum MssSceneType : int32_t {
    MSS_SCENE_DEFAULT = 0,
    MSS_SCENE_SPHERE = 1,
    MSS_SCENE_COUNT = 2,  // one past the last, never a scene
};

// The row of MssParamInfoFromXML::params that a parameter fills.
enum mssParamInfoType : int32_t {
    SPHERE_RADIUS_SPK = 0,
    SPHERE_RADIUS_BLUETOOTH = 1,
    SPHERE_RADIUS_ANALOG = 2,
    SPHERE_RADIUS_DIGITAL = 3,
    SPHERE_SPREAD_SPK = 4,
    SPHERE_SPREAD_BLUETOOTH = 5,
    SPHERE_SPREAD_ANALOG = 6,
    SPHERE_SPREAD_DIGITAL = 7,
    SPHERE_ELEVATION = 8,
    SPHERE_AZIMUTH = 9,
    MSS_PARAM_INFO_COUNT = 10,  // one past the last, never a parameter
};

constexpr int kMssParamValueCount = 8;

// The rendering parameters of one MSS scene.
struct MssParamInfoFromXML {
    int32_t mssScene = -1;  // an MssSceneType, -1 until parsed
    float params[MSS_PARAM_INFO_COUNT][kMssParamValueCount] = {};
};

}  // namespace android
