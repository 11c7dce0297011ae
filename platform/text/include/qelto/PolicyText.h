#pragma once

#include <map>

#include <qelto/PolicyRecords.h>
#include <utils/String8.h>

// Text forms of the policy records, as JSON for programs that read the service's answers.
//
// A record is an object whose keys are its field names, in field order; a fixed array is a JSON
// array; a map is an object from its key (integers in decimal) to the record. An empty map is "{}",
// a null record "null", also inside a map. A float prints as the shortest decimal that reads back
// to the same float, and -0 as "-0.0"; not-a-number and the infinities, which JSON has no numbers
// for, print as the strings "NaN", "Infinity" and "-Infinity". Strings may hold any bytes: every
// byte that is not part of valid UTF-8 prints as U+FFFD.
//
// The functions only read the records, keep nothing and may run on any thread; the caller sees to
// it that nobody changes a record meanwhile. *out is replaced; a null `out` makes the call a no-op.

namespace android {

void MetaAudioFormat2String(MetaAudioInfo* info, String8* out);
void MetaAudioSceMap2String(std::map<int, MetaSceInfForParseXml*> map, String8* out);
void DynamicProcessorInfMap2String(std::map<String8, DynamicProcessorInf*> map, String8* out);
void AudioDetectorInfMap2String(std::map<String8, AudioDetectorInf*> map, String8* out);
void MssAudioParamInfoMap2String(std::map<int, MssParamInfoFromXML*> map, String8* out);

// Reads a list of decimal numbers, separated by commas, white space or both, into out[0..count-1].
// Position counts: the n-th item sets out[n]. An item that is empty or no finite float leaves its
// element as it was and is logged (one line a text); items past `count` are ignored, as are null
// arguments. Returns how many elements were set.
int mssAudioParamInfoStringToArray(const char* text, float* out, int count);

}  // namespace android
