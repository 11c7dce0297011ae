#pragma once

#include <map>

#include <qelto/PolicyRecords.h>

namespace android {

void MetaAudioFormat2String(MetaAudioInfo* info, String8* out);
void MetaAudioSceMap2String(std::map<int, MetaSceInfForParseXml*> map, String8* out);
void DynamicProcessorInfMap2String(std::map<String8, DynamicProcessorInf*> map, String8* out);
void AudioDetectorInfMap2String(std::map<String8, AudioDetectorInf*> map, String8* out);
void MssAudioParamInfoMap2String(std::map<int, MssParamInfoFromXML*> map, String8* out);
void mssAudioParamInfoStringToArray(const char* text, float* out, int count);

}  // namespace android
