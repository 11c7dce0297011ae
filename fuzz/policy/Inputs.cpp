#include "fuzz/policy/Inputs.h"

#include <qelto/PolicyText.h>

#include <cstdlib>
#include <vector>

#include "policy/MetaAudioPolicyFile.h"
#include "policy/MssConfigurationFile.h"
#include "policy/XmlDocument.h"

namespace sonorel::fuzz {
namespace {

void require(bool holds) {
    if (!holds) std::abort();
}

android::XmlDocument parse(const uint8_t* bytes, size_t size) {
    auto document = android::XmlDocument::readMemory(reinterpret_cast<const char*>(bytes), size,
                                                     "input.xml");
    require(static_cast<bool>(document) == document.error().empty());
    return document;
}

}  // namespace

void feedMetaPolicy(const uint8_t* bytes, size_t size) {
    const android::XmlDocument document = parse(bytes, size);
    const android::MetaPolicyHead head = android::readMetaPolicyHead(document);
    require(document || head.fault == android::MetaPolicyHead::Fault::kNoDocument);
    const auto tables = android::readPolicyTables(document.root());
    if (tables == nullptr) return;
    const auto& packages = tables->mPkgMetaInfoVec;
    for (size_t i = 0; i < packages.size(); ++i) {
        require(packages.keyAt(i) == packages.valueAt(i)->name);
        require(packages.valueAt(i)->name != "invalid" && packages.valueAt(i)->scene != -1);
        android::String8 text;
        android::MetaAudioFormat2String(packages.valueAt(i), &text);
        require(text.size() > 2);
    }
    require(tables->mMetaAudioSceMap.count(-1) == 0);
    require(tables->mMetaAudioSceString.size() >= 2);
}

void feedMssConfiguration(const uint8_t* bytes, size_t size) {
    const android::XmlDocument document = parse(bytes, size);
    if (document.root() == nullptr) return;
    std::vector<android::MssRemark> remarks;
    const auto tables = android::readMssTables(document.root(), &remarks);
    for (const auto& [scene, record] : tables->mMssAudioParamInfoMap) {
        require(scene == record->mssScene && scene >= -1 && scene < android::MSS_SCENE_COUNT);
    }
    require(tables->mMssAudioParamInfoMapString.size() >= 2);
}

}  // namespace sonorel::fuzz
