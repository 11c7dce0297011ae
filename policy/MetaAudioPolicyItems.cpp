// The item parsers of the meta audio policy file.
#include <cstdlib>
#include <cstring>
#include <variant>

#include "policy/MetaAudioPolicyFile.h"
#include "policy/RecordLayout.h"

namespace android {
namespace {

// How the text of one element becomes one field. The fallback is for text that cannot be had; a
// flag is on when the fallback is not 0.
template <typename Record>
struct Field {
    // An integer that stands for a flag.
    struct NonZero {
        bool Record::*flag;
    };
    using Triple = float (Record::*)[3];
    // A headphone position, which is the speaker's too until the speaker's own element follows.
    struct BothTriples {
        Triple headphone;
        Triple speaker;
    };

    const char* element;
    std::variant<int32_t Record::*, float Record::*, bool Record::*, NonZero, Triple, BothTriples,
                 String8 Record::*>
            target;
    double fallback = 0.0;
};

int32_t toInteger(const char* text) {
    // What atoi does here, with a defined answer for a number out of range.
    return static_cast<int32_t>(std::strtol(text, nullptr, 10));
}

// What strtod gives for a plain short decimal such as "-12.25", several times as fast: so few
// digits are exact in a double, and so is the power of ten, so that the one division rounds as
// strtod does. False for every other text.
bool toShortDecimal(const char* text, double* outValue) {
    constexpr int kMaxDigits = 15;
    constexpr double kPowers[kMaxDigits + 1] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                                1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
    const char* next = text;
    const bool isNegative = *next == '-';
    if (isNegative) ++next;
    int64_t digits = 0;
    int count = 0;
    int decimals = 0;
    bool hasPoint = false;
    for (; count <= kMaxDigits; ++next) {
        if (*next >= '0' && *next <= '9') {
            digits = digits * 10 + (*next - '0');
            ++count;
            if (hasPoint) ++decimals;
        } else if (*next == '.' && !hasPoint) {
            hasPoint = true;
        } else {
            break;
        }
    }
    const bool ends = *next == '\0' || *next == ',';
    if (!ends || count == 0 || count > kMaxDigits) return false;
    const double magnitude = static_cast<double>(digits) / kPowers[decimals];
    *outValue = isNegative ? -magnitude : magnitude;
    return true;
}

float toFloat(const char* text) {
    double value = 0.0;
    if (!toShortDecimal(text, &value)) value = std::strtod(text, nullptr);
    return static_cast<float>(value);
}

void setTriple(const char* text, float (&triple)[3]) {
    const char* second = std::strchr(text, ',');
    if (second == nullptr) return;
    const char* third = std::strchr(second + 1, ',');
    if (third == nullptr) return;
    triple[0] = toFloat(text);
    triple[1] = toFloat(second + 1);
    triple[2] = toFloat(third + 1);
}

template <typename Record>
class FieldSetter {
public:
    FieldSetter(Record* record, const char* text, double fallback)
            : mRecord(record), mText(text), mFallback(fallback) {}

    void operator()(int32_t Record::*integer) const {
        mRecord->*integer = mText != nullptr ? toInteger(mText) : static_cast<int32_t>(mFallback);
    }
    void operator()(float Record::*decimal) const {
        mRecord->*decimal = mText != nullptr ? toFloat(mText) : static_cast<float>(mFallback);
    }
    void operator()(bool Record::*flag) const {
        mRecord->*flag = mText != nullptr ? std::strcmp(mText, "true") == 0 : mFallback != 0.0;
    }
    void operator()(typename Field<Record>::NonZero nonZero) const {
        mRecord->*nonZero.flag = mText != nullptr ? toInteger(mText) != 0 : mFallback != 0.0;
    }
    void operator()(typename Field<Record>::Triple triple) const {
        if (mText != nullptr) setTriple(mText, mRecord->*triple);
    }
    void operator()(typename Field<Record>::BothTriples triples) const {
        (*this)(triples.headphone);
        (*this)(triples.speaker);
    }
    void operator()(String8 Record::*name) const {
        (mRecord->*name).setTo(mText != nullptr ? mText : kInvalidName);
    }

private:
    Record* const mRecord;
    const char* const mText;
    const double mFallback;
};

template <typename Record, size_t kCount>
void parseFields(const Field<Record> (&fields)[kCount], const xmlNode* first, Record* record) {
    if (record == nullptr) return;
    // Files list the elements of an item in table order, by and large: the search goes on from the
    // row of the element before.
    size_t row = 0;
    for (const xmlNode* node = first; node != nullptr; node = node->next) {
        if (node->type != XML_ELEMENT_NODE) continue;
        for (size_t tried = 0; tried < kCount; ++tried) {
            const Field<Record>& field = fields[row];
            row = (row + 1) % kCount;
            if (!isElement(node, field.element)) continue;
            const XmlText text(node);
            std::visit(FieldSetter<Record>(record, text.get(), field.fallback), field.target);
            break;
        }
    }
}

using Package = MetaAudioInfo;
constexpr Field<Package> kPackageFields[] = {
        {"name", &Package::name},
        {"scene", &Package::scene, -1},
        {"pos", &Package::pos},
        {"fadeInStyle", &Package::fadeInStyle, -1},
        {"fadeOutStyle", &Package::fadeOutStyle, -1},
        {"denyFast", &Package::denyFast},
        {"voipApp", &Package::voipApp},
};

using Scene = MetaSceInfForParseXml;
using BothTriples = Field<Scene>::BothTriples;
constexpr Field<Scene> kSceneFields[] = {
        {"SceTyp", &Scene::SceTyp, -1},
        {"HomePosTyp", &Scene::HomePosTyp, -1},
        {"Priority", &Scene::Priority, -1},
        {"IsTransient", Field<Scene>::NonZero{&Scene::IsTransient}, 1},
        {"FadeTimeLen", &Scene::FadeTimeLen, -1.0},
        {"CrosFadeTimeLen", &Scene::CrosFadeTimeLen, -1.0},
        {"HomePosIntelligentMode",
         BothTriples{&Scene::HomePosIntelligentMode, &Scene::HomePosIntelligentModeSpk}},
        {"HomePosCustomMode", BothTriples{&Scene::HomePosCustomMode, &Scene::HomePosCustomModeSpk}},
        {"HomePosIntelligentModeSpk", &Scene::HomePosIntelligentModeSpk},
        {"HomePosCustomModeSpk", &Scene::HomePosCustomModeSpk},
};

using Processor = DynamicProcessorInf;
constexpr Field<Processor> kProcessorFields[] = {
        {"name", &Processor::name},
        {"ratio", &Processor::ratio, 1.0},
        {"threshold_dB", &Processor::threshold_dB, -10.0},
        {"kneeWidth_dB", &Processor::kneeWidth_dB, 10.0},
        {"hardLimitGate", &Processor::hardLimitGate},
        {"softKnee", &Processor::softKnee, 1},
        {"enableSidechain", &Processor::enableSidechain},
        {"attackTime_mSec", &Processor::attackTime_mSec},
        {"releaseTime_mSec", &Processor::releaseTime_mSec},
        {"outputGain_dB", &Processor::outputGain_dB},
        {"gainReduction", &Processor::gainReduction, 1.0},
        {"gainReduction_dB", &Processor::gainReduction_dB},
        {"detectGate_dB", &Processor::detectGate_dB, 8.0},
        {"thresholdMax_dB", &Processor::thresholdMax_dB, -20.0},
        {"thresholdMin_dB", &Processor::thresholdMin_dB, -50.0},
        {"recValue_dB", &Processor::recValue_dB, 0.5},
        {"procValue_dB", &Processor::procValue_dB, 0.5},
};

using Detector = AudioDetectorInf;
constexpr Field<Detector> kDetectorFields[] = {
        {"name", &Detector::name},
        {"detect_dB", &Detector::detect_dB, 1},
        {"clampToUnityMax", &Detector::clampToUnityMax},
        {"detectMode", &Detector::detectMode},
        {"attackTime_mSec", &Detector::attackTime_mSec},
        {"releaseTime_mSec", &Detector::releaseTime_mSec},
        {"lPFilterAlpha", &Detector::lPFilterAlpha, 0.5},
};

}  // namespace

void parseMetaAudioItem(const xmlNode* node, MetaAudioInfo* info) {
    if (node == nullptr || info == nullptr) return;
    parseFields(kPackageFields, node, info);
    // A package that names no scene belongs to scene 0.
    if (info->scene == -1 && info->name != kInvalidName) info->scene = 0;
}

void parseMetaAudioSceParam(const xmlNode* node, MetaSceInfForParseXml* info) {
    parseFields(kSceneFields, node, info);
}

void parseDynamicProcessorParamItem(const xmlNode* node, DynamicProcessorInf* info) {
    parseFields(kProcessorFields, node, info);
}

void parseAudioDetectorParamItem(const xmlNode* node, AudioDetectorInf* info) {
    parseFields(kDetectorFields, node, info);
}

void parseUnsupportDeviceItem(const xmlNode* node, std::set<String8>* devices) {
    for (const xmlNode* child = node; child != nullptr; child = child->next) {
        if (!isElement(child, "name")) continue;
        // Short of memory, the element is asked once more, since a name that is lost here would let
        // the service drive a device that it must not.
        for (int attempt = 0; attempt < 2; ++attempt) {
            const XmlText name(child);
            if (name.get() == nullptr) continue;
            devices->emplace(name.get());
            break;
        }
    }
}

}  // namespace android
