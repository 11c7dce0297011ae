#include "tests/policy/GeneratedPolicy.h"

#include <cstdint>

namespace sonorel::test {
namespace {

class Writer {
public:
    Writer& open(const char* element) {
        mText += "  <" + std::string(element) + ">\n";
        return *this;
    }
    Writer& close(const char* element) {
        mText += "  </" + std::string(element) + ">\n";
        return *this;
    }
    Writer& value(const char* element, const std::string& text) {
        mText += "    <" + std::string(element) + ">" + text + "</" + element + ">\n";
        return *this;
    }
    Writer& value(const char* element, int number) {
        return value(element, std::to_string(number));
    }
    std::string take() { return std::move(mText); }

private:
    std::string mText;
};

void writePackage(int index, Writer* out) {
    // A multiplicative hash scatters the names over the alphabet.
    const uint32_t scattered = static_cast<uint32_t>(index) * 2654435761u;
    out->open("MetaAudioItem")
            .value("name", "com.example.p" + std::to_string(scattered) + ".app")
            .value("scene", index % 13 + 1)
            .value("pos", std::to_string(index % 7) + ".25,0.5,-" + std::to_string(index % 3))
            .value("fadeInStyle", index % 4)
            .value("fadeOutStyle", index % 5)
            .value("denyFast", index % 2 == 0 ? "true" : "false")
            .value("voipApp", index % 3 == 0 ? "true" : "false")
            .close("MetaAudioItem");
}

void writeScene(int index, Writer* out) {
    out->open("MetaAudioSceParam")
            .value("SceTyp", index + 1)
            .value("HomePosTyp", index % 3)
            .value("Priority", index % 5)
            .value("IsTransient", index % 2)
            .value("FadeTimeLen", 300 + index)
            .value("CrosFadeTimeLen", 150 + index)
            .value("HomePosIntelligentMode", "0.0,0.0,1.0")
            .value("HomePosCustomMode", "30.0,0.0,1.0")
            .value("HomePosIntelligentModeSpk", "0.0,0.5,1.0")
            .value("HomePosCustomModeSpk", "15.0,0.5,1.0")
            .close("MetaAudioSceParam");
}

void writeProcessor(int index, Writer* out) {
    out->open("DynamicProcessorParamItem").value("name", "processor_" + std::to_string(index));
    for (const char* flag : {"hardLimitGate", "softKnee", "enableSidechain"}) {
        out->value(flag, "true");
    }
    for (const char* number :
         {"ratio", "threshold_dB", "kneeWidth_dB", "attackTime_mSec", "releaseTime_mSec",
          "outputGain_dB", "gainReduction", "gainReduction_dB", "detectGate_dB", "thresholdMax_dB",
          "thresholdMin_dB", "recValue_dB", "procValue_dB"}) {
        out->value(number, std::to_string(index) + ".5");
    }
    out->close("DynamicProcessorParamItem");
}

void writeDetector(int index, Writer* out) {
    out->open("AudioDetectorParamItem")
            .value("name", "detector_" + std::to_string(index))
            .value("detect_dB", "true")
            .value("clampToUnityMax", "false")
            .value("detectMode", index % 3)
            .value("attackTime_mSec", "5.5")
            .value("releaseTime_mSec", "120")
            .value("lPFilterAlpha", "0.3")
            .close("AudioDetectorParamItem");
}

}  // namespace

std::string generatePolicy(const PolicySize& size, const std::string& version) {
    Writer out;
    out.value("filter-name", "meta_audio_policy").value("version", version);
    for (int i = 0; i < size.packages; ++i)
        writePackage(i, &out);
    for (int i = 0; i < size.scenes; ++i)
        writeScene(i, &out);
    out.open("UnsupportDeviceItem");
    for (int i = 0; i < size.devices; ++i)
        out.value("name", "device-" + std::to_string(i));
    out.close("UnsupportDeviceItem");
    for (int i = 0; i < size.processors; ++i)
        writeProcessor(i, &out);
    for (int i = 0; i < size.detectors; ++i)
        writeDetector(i, &out);
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<filter-conf>\n" + out.take() +
           "</filter-conf>\n";
}

}  // namespace sonorel::test
