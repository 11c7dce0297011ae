#include <qelto/PolicyText.h>

#include <cstddef>

#include "JsonWriter.h"

namespace android {

// Who fills the records and who prints them may be built apart, so the layout is checked here.
static_assert(sizeof(String8) == sizeof(void*));
static_assert(sizeof(MetaAudioInfo) == 40 + sizeof(String8));
static_assert(offsetof(MetaAudioInfo, scene) == 16);
static_assert(offsetof(MetaAudioInfo, reserved3) == 36);
static_assert(offsetof(MetaAudioInfo, name) == 40);
static_assert(sizeof(MetaSceInfForParseXml) == 72);
static_assert(offsetof(MetaSceInfForParseXml, IsTransient) == 12);
static_assert(offsetof(MetaSceInfForParseXml, HomePosIntelligentMode) == 24);
static_assert(offsetof(MetaSceInfForParseXml, HomePosCustomMode) == 36);
static_assert(offsetof(MetaSceInfForParseXml, HomePosIntelligentModeSpk) == 48);
static_assert(offsetof(MetaSceInfForParseXml, HomePosCustomModeSpk) == 60);
static_assert(sizeof(DynamicProcessorInf) == 56 + sizeof(String8));
static_assert(offsetof(DynamicProcessorInf, hardLimitGate) == 12);
static_assert(offsetof(DynamicProcessorInf, attackTime_mSec) == 16);
static_assert(offsetof(DynamicProcessorInf, procValue_dB) == 52);
static_assert(sizeof(AudioDetectorInf) == 24 + sizeof(String8));
static_assert(offsetof(AudioDetectorInf, detectMode) == 4);
static_assert(offsetof(AudioDetectorInf, lPFilterAlpha) == 16);
static_assert(sizeof(MssParamInfoFromXML) == 4 + 10 * 8 * 4);
static_assert(offsetof(MssParamInfoFromXML, params) == 4);

namespace {

// Room for one record with usual values, so that a map grows its buffer at most once or twice.
constexpr size_t kRecordBytes = 512;

void writeFields(const MetaAudioInfo& info, JsonWriter* writer) {
    writer->field("pos", info.pos);
    writer->field("reserved0", info.reserved0);
    writer->field("scene", info.scene);
    writer->field("fadeInStyle", info.fadeInStyle);
    writer->field("fadeOutStyle", info.fadeOutStyle);
    writer->field("reserved1", info.reserved1);
    writer->field("reserved2", info.reserved2);
    writer->field("reserved3", info.reserved3);
    writer->field("denyFast", info.denyFast);
    writer->field("voipApp", info.voipApp);
    writer->field("name", info.name);
}

void writeFields(const MetaSceInfForParseXml& info, JsonWriter* writer) {
    writer->field("SceTyp", info.SceTyp);
    writer->field("HomePosTyp", info.HomePosTyp);
    writer->field("Priority", info.Priority);
    writer->field("IsTransient", info.IsTransient);
    writer->field("FadeTimeLen", info.FadeTimeLen);
    writer->field("CrosFadeTimeLen", info.CrosFadeTimeLen);
    writer->field("HomePosIntelligentMode", info.HomePosIntelligentMode);
    writer->field("HomePosCustomMode", info.HomePosCustomMode);
    writer->field("HomePosIntelligentModeSpk", info.HomePosIntelligentModeSpk);
    writer->field("HomePosCustomModeSpk", info.HomePosCustomModeSpk);
}

void writeFields(const DynamicProcessorInf& info, JsonWriter* writer) {
    writer->field("ratio", info.ratio);
    writer->field("threshold_dB", info.threshold_dB);
    writer->field("kneeWidth_dB", info.kneeWidth_dB);
    writer->field("hardLimitGate", info.hardLimitGate);
    writer->field("softKnee", info.softKnee);
    writer->field("enableSidechain", info.enableSidechain);
    writer->field("attackTime_mSec", info.attackTime_mSec);
    writer->field("releaseTime_mSec", info.releaseTime_mSec);
    writer->field("outputGain_dB", info.outputGain_dB);
    writer->field("gainReduction", info.gainReduction);
    writer->field("gainReduction_dB", info.gainReduction_dB);
    writer->field("detectGate_dB", info.detectGate_dB);
    writer->field("thresholdMax_dB", info.thresholdMax_dB);
    writer->field("thresholdMin_dB", info.thresholdMin_dB);
    writer->field("recValue_dB", info.recValue_dB);
    writer->field("procValue_dB", info.procValue_dB);
    writer->field("name", info.name);
}

void writeFields(const AudioDetectorInf& info, JsonWriter* writer) {
    writer->field("detect_dB", info.detect_dB);
    writer->field("clampToUnityMax", info.clampToUnityMax);
    writer->field("detectMode", info.detectMode);
    writer->field("attackTime_mSec", info.attackTime_mSec);
    writer->field("releaseTime_mSec", info.releaseTime_mSec);
    writer->field("lPFilterAlpha", info.lPFilterAlpha);
    writer->field("name", info.name);
}

void writeFields(const MssParamInfoFromXML& info, JsonWriter* writer) {
    writer->field("mssScene", info.mssScene);
    writer->key("params");
    writer->beginArray();
    for (const auto& row : info.params)
        writer->value(row);
    writer->endArray();
}

template <typename Record>
void writeRecord(const Record* record, JsonWriter* writer) {
    if (record == nullptr) return writer->null();
    writer->beginObject();
    writeFields(*record, writer);
    writer->endObject();
}

void writeKey(int key, JsonWriter* writer) {
    writer->key(key);
}

void writeKey(const String8& key, JsonWriter* writer) {
    writer->keyBytes({key.c_str(), key.length()});
}

template <typename Map>
void writeMap(const Map& map, String8* out) {
    if (out == nullptr) return;
    JsonWriter writer(2 + map.size() * kRecordBytes);
    writer.beginObject();
    for (const auto& [key, record] : map) {
        writeKey(key, &writer);
        writeRecord(record, &writer);
    }
    writer.endObject();
    writer.copyTo(out);
}

}  // namespace

void MetaAudioFormat2String(MetaAudioInfo* info, String8* out) {
    if (out == nullptr) return;
    JsonWriter writer(kRecordBytes);
    writeRecord(info, &writer);
    writer.copyTo(out);
}

// The maps come by value because the platform's signatures say so.
// NOLINTBEGIN(performance-unnecessary-value-param)
void MetaAudioSceMap2String(std::map<int, MetaSceInfForParseXml*> map, String8* out) {
    writeMap(map, out);
}

void DynamicProcessorInfMap2String(std::map<String8, DynamicProcessorInf*> map, String8* out) {
    writeMap(map, out);
}

void AudioDetectorInfMap2String(std::map<String8, AudioDetectorInf*> map, String8* out) {
    writeMap(map, out);
}

void MssAudioParamInfoMap2String(std::map<int, MssParamInfoFromXML*> map, String8* out) {
    writeMap(map, out);
}
// NOLINTEND(performance-unnecessary-value-param)

}  // namespace android
