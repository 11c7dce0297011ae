#include "policy/MssConfigurationFile.h"

#include <utility>

#include <qelto/PolicyText.h>

#include "policy/RecordLayout.h"
#include "policy/XmlDocument.h"

namespace android {

using Kind = MssRemark::Kind;

const std::map<std::string, MssSceneType, std::less<>> mssSceneTypeMap = {
        {"default", MSS_SCENE_DEFAULT},
        {"sphere", MSS_SCENE_SPHERE},
};

const std::map<std::string, mssParamInfoType, std::less<>> mssParamInfoTypeMap = {
        {"SPHERE_RADIUS_SPK", SPHERE_RADIUS_SPK},
        {"SPHERE_RADIUS_BLUETOOTH", SPHERE_RADIUS_BLUETOOTH},
        {"SPHERE_RADIUS_ANALOG", SPHERE_RADIUS_ANALOG},
        {"SPHERE_RADIUS_DIGITAL", SPHERE_RADIUS_DIGITAL},
        {"SPHERE_SPREAD_SPK", SPHERE_SPREAD_SPK},
        {"SPHERE_SPREAD_BLUETOOTH", SPHERE_SPREAD_BLUETOOTH},
        {"SPHERE_SPREAD_ANALOG", SPHERE_SPREAD_ANALOG},
        {"SPHERE_SPREAD_DIGITAL", SPHERE_SPREAD_DIGITAL},
        {"SPHERE_ELEVATION", SPHERE_ELEVATION},
        {"SPHERE_AZIMUTH", SPHERE_AZIMUTH},
};

namespace {

void parseScene(const xmlAttr* attribute, MssParamInfoFromXML* info,
                std::vector<MssRemark>* outRemarks) {
    const XmlText text(attribute);
    const char* name = text.get() != nullptr ? text.get() : "";
    const auto scene = mssSceneTypeMap.find(name);
    if (scene != mssSceneTypeMap.end() && scene->second != MSS_SCENE_COUNT) {
        info->mssScene = scene->second;
        return;
    }
    outRemarks->push_back({Kind::kUnknownScene, name});
    info->mssScene = MSS_SCENE_DEFAULT;
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
                                         kMssParamValueCount);
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
