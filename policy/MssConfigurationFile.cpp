#include "policy/MssConfigurationFile.h"

#include <utility>

#include <qelto/PolicyText.h>

#include "policy/RecordLayout.h"
#include "policy/XmlDocument.h"

namespace android {

using Kind = MssRemark::Kind;

namespace {

// The types' values are fixed, the names of their enumerators are the converter library's own.
constexpr auto kDefaultScene = static_cast<MssSceneType>(0);
constexpr auto kSphereScene = static_cast<MssSceneType>(1);
constexpr auto kSceneEnd = static_cast<MssSceneType>(2);  // one past the last
constexpr int kValuesOfParameter = 8;

}  // namespace

const std::map<std::string, MssSceneType, std::less<>> mssSceneTypeMap = {
        {"default", kDefaultScene},
        {"sphere", kSphereScene},
};

const std::map<std::string, mssParamInfoType, std::less<>> mssParamInfoTypeMap = {
        {"SPHERE_RADIUS_SPK", mssParamInfoType(0)},
        {"SPHERE_RADIUS_BLUETOOTH", mssParamInfoType(1)},
        {"SPHERE_RADIUS_ANALOG", mssParamInfoType(2)},
        {"SPHERE_RADIUS_DIGITAL", mssParamInfoType(3)},
        {"SPHERE_SPREAD_SPK", mssParamInfoType(4)},
        {"SPHERE_SPREAD_BLUETOOTH", mssParamInfoType(5)},
        {"SPHERE_SPREAD_ANALOG", mssParamInfoType(6)},
        {"SPHERE_SPREAD_DIGITAL", mssParamInfoType(7)},
        {"SPHERE_ELEVATION", mssParamInfoType(8)},
        {"SPHERE_AZIMUTH", mssParamInfoType(9)},
};

namespace {

void parseScene(const xmlAttr* attribute, MssParamInfoFromXML* info,
                std::vector<MssRemark>* outRemarks) {
    const XmlText text(attribute);
    const char* name = text.get() != nullptr ? text.get() : "";
    const auto scene = mssSceneTypeMap.find(name);
    if (scene != mssSceneTypeMap.end() && scene->second != kSceneEnd) {
        info->mssScene = scene->second;
        return;
    }
    outRemarks->push_back({Kind::kUnknownScene, name});
    info->mssScene = kDefaultScene;
}

void parseParameter(const xmlNode* element, MssParamInfoFromXML* info,
                    std::vector<MssRemark>* outRemarks) {
    const char* name = reinterpret_cast<const char*>(element->name);
    const XmlText text(element);
    if (text.get() == nullptr) {
        outRemarks->push_back({Kind::kNoText, name});
        return;
    }
    const auto parameter = mssParamInfoTypeMap.find(name);
    if (parameter == mssParamInfoTypeMap.end()) {
        outRemarks->push_back({Kind::kUnknownParameter, name});
        return;
    }
    // The converter tells of values that it could not read; the others of the row stand.
    (void)mssAudioParamInfoStringToArray(text.get(), info->params[parameter->second],
                                         kValuesOfParameter);
}

}  // namespace

void parseMssAudioParam(const xmlNode* node, MssParamInfoFromXML* info,
                        std::vector<MssRemark>* outRemarks) {
    if (node->properties == nullptr) {
        outRemarks->push_back({Kind::kNoScene, ""});
        return;
    }
    parseScene(node->properties, info, outRemarks);
    for (const xmlNode* child = node->children; child != nullptr; child = child->next) {
        if (child->type == XML_ELEMENT_NODE) parseParameter(child, info, outRemarks);
    }
}

std::unique_ptr<MssTables> readMssTables(const xmlNode* root, std::vector<MssRemark>* outRemarks) {
    auto tables = std::make_unique<MssTables>();
    for (const xmlNode* node = root->children; node != nullptr; node = node->next) {
        if (!isElement(node, "param")) continue;
        auto record = std::make_unique<MssParamInfoFromXML>();
        parseMssAudioParam(node, record.get(), outRemarks);
        MssParamInfoFromXML*& slot = tables->mMssAudioParamInfoMap[record->mssScene];
        delete std::exchange(slot, record.release());
    }
    MssAudioParamInfoMap2String(tables->mMssAudioParamInfoMap,
                                &tables->mMssAudioParamInfoMapString);
    return tables;
}

}  // namespace android
