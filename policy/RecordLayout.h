// The records are shared with the converter library, which is built apart: a change of layout on
// either side must not compile.
#pragma once

#include <cstddef>

#include <qelto/PolicyRecords.h>

namespace android {

static_assert(sizeof(String8) == sizeof(void*));
static_assert(sizeof(bool) == 1 && sizeof(float) == 4);

// offsetof is only promised for standard-layout types; these are.
static_assert(offsetof(MetaAudioInfo, pos) == 0);
static_assert(offsetof(MetaAudioInfo, reserved0) == 12);
static_assert(offsetof(MetaAudioInfo, scene) == 16);
static_assert(offsetof(MetaAudioInfo, fadeInStyle) == 20);
static_assert(offsetof(MetaAudioInfo, fadeOutStyle) == 24);
static_assert(offsetof(MetaAudioInfo, reserved1) == 28);
static_assert(offsetof(MetaAudioInfo, reserved2) == 32);
static_assert(offsetof(MetaAudioInfo, reserved3) == 36);
static_assert(offsetof(MetaAudioInfo, denyFast) == 37);
static_assert(offsetof(MetaAudioInfo, voipApp) == 38);
static_assert(offsetof(MetaAudioInfo, name) == 40);
static_assert(sizeof(MetaAudioInfo) == 40 + sizeof(String8));

static_assert(offsetof(MetaSceInfForParseXml, SceTyp) == 0);
static_assert(offsetof(MetaSceInfForParseXml, HomePosTyp) == 4);
static_assert(offsetof(MetaSceInfForParseXml, Priority) == 8);
static_assert(offsetof(MetaSceInfForParseXml, IsTransient) == 12);
static_assert(offsetof(MetaSceInfForParseXml, FadeTimeLen) == 16);
static_assert(offsetof(MetaSceInfForParseXml, CrosFadeTimeLen) == 20);
static_assert(offsetof(MetaSceInfForParseXml, HomePosIntelligentMode) == 24);
static_assert(offsetof(MetaSceInfForParseXml, HomePosCustomMode) == 36);
static_assert(offsetof(MetaSceInfForParseXml, HomePosIntelligentModeSpk) == 48);
static_assert(offsetof(MetaSceInfForParseXml, HomePosCustomModeSpk) == 60);
static_assert(sizeof(MetaSceInfForParseXml) == 72);

static_assert(offsetof(DynamicProcessorInf, ratio) == 0);
static_assert(offsetof(DynamicProcessorInf, threshold_dB) == 4);
static_assert(offsetof(DynamicProcessorInf, kneeWidth_dB) == 8);
static_assert(offsetof(DynamicProcessorInf, hardLimitGate) == 12);
static_assert(offsetof(DynamicProcessorInf, softKnee) == 13);
static_assert(offsetof(DynamicProcessorInf, enableSidechain) == 14);
static_assert(offsetof(DynamicProcessorInf, attackTime_mSec) == 16);
static_assert(offsetof(DynamicProcessorInf, releaseTime_mSec) == 20);
static_assert(offsetof(DynamicProcessorInf, outputGain_dB) == 24);
static_assert(offsetof(DynamicProcessorInf, gainReduction) == 28);
static_assert(offsetof(DynamicProcessorInf, gainReduction_dB) == 32);
static_assert(offsetof(DynamicProcessorInf, detectGate_dB) == 36);
static_assert(offsetof(DynamicProcessorInf, thresholdMax_dB) == 40);
static_assert(offsetof(DynamicProcessorInf, thresholdMin_dB) == 44);
static_assert(offsetof(DynamicProcessorInf, recValue_dB) == 48);
static_assert(offsetof(DynamicProcessorInf, procValue_dB) == 52);
static_assert(offsetof(DynamicProcessorInf, name) == 56);
static_assert(sizeof(DynamicProcessorInf) == 56 + sizeof(String8));

static_assert(offsetof(AudioDetectorInf, detect_dB) == 0);
static_assert(offsetof(AudioDetectorInf, clampToUnityMax) == 1);
static_assert(offsetof(AudioDetectorInf, detectMode) == 4);
static_assert(offsetof(AudioDetectorInf, attackTime_mSec) == 8);
static_assert(offsetof(AudioDetectorInf, releaseTime_mSec) == 12);
static_assert(offsetof(AudioDetectorInf, lPFilterAlpha) == 16);
static_assert(sizeof(String8) != 8 || offsetof(AudioDetectorInf, name) == 24);
static_assert(sizeof(String8) != 4 || offsetof(AudioDetectorInf, name) == 20);

static_assert(offsetof(MssParamInfoFromXML, mssScene) == 0);
static_assert(offsetof(MssParamInfoFromXML, params) == 4);
static_assert(sizeof(MssParamInfoFromXML) == 4 + 10 * 8 * 4);

}  // namespace android
