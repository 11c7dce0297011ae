#include "policy/PolicyTables.h"

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

#include <qelto/PolicyText.h>

#include "policy/MetaAudioPolicyFile.h"
#include "policy/RecordLayout.h"

namespace android {
namespace {

constexpr int kNoScene = -1;

template <typename Map>
void deleteValues(const Map& map) {
    for (const auto& entry : map)
        delete entry.second;
}

// Puts the record under the key in place of an earlier one.
template <typename Key, typename Record>
void replaceRecord(std::map<Key, Record*>* map, const Key& key, std::unique_ptr<Record> record) {
    Record*& slot = (*map)[key];
    delete std::exchange(slot, record.release());
}

using Packages = std::vector<std::unique_ptr<MetaAudioInfo>>;

// The sorted vector takes keys in ascending order at its end, so sorting first keeps a large file
// from moving every earlier entry at each insertion.
void storePackages(Packages packages, PolicyTables* outTables) {
    const auto isBefore = [](const auto& a, const auto& b) { return a->name < b->name; };
    if (!std::is_sorted(packages.begin(), packages.end(), isBefore)) {
        std::stable_sort(packages.begin(), packages.end(), isBefore);
    }
    (void)outTables->mPkgMetaInfoVec.setCapacity(packages.size());  // add() reports what counts
    for (size_t i = 0; i < packages.size(); ++i) {
        const bool isLaterOne = i + 1 == packages.size() || isBefore(packages[i], packages[i + 1]);
        if (!isLaterOne) continue;
        const String8& name = packages[i]->name;
        if (outTables->mPkgMetaInfoVec.add(name, packages[i].get()) >= 0) {
            (void)packages[i].release();  // the vector has it
        }
    }
}

template <typename Record>
void readNamedItem(const xmlNode* item, void (*parse)(const xmlNode*, Record*),
                   std::map<String8, Record*>* outMap) {
    auto record = std::make_unique<Record>();
    parse(item->children, record.get());
    if (record->name == kInvalidName) return;
    const String8 name = record->name;
    replaceRecord(outMap, name, std::move(record));
}

void readScene(const xmlNode* item, std::map<int, MetaSceInfForParseXml*>* outMap) {
    auto record = std::make_unique<MetaSceInfForParseXml>();
    parseMetaAudioSceParam(item->children, record.get());
    if (record->SceTyp == kNoScene) return;
    const int scene = record->SceTyp;
    replaceRecord(outMap, scene, std::move(record));
}

void readPackage(const xmlNode* item, Packages* outPackages) {
    auto record = std::make_unique<MetaAudioInfo>();
    parseMetaAudioItem(item->children, record.get());
    if (record->name != kInvalidName) outPackages->push_back(std::move(record));
}

void readItem(const xmlNode* item, Packages* outPackages, PolicyTables* outTables) {
    if (isElement(item, "MetaAudioItem")) {
        readPackage(item, outPackages);
    } else if (isElement(item, "MetaAudioSceParam")) {
        readScene(item, &outTables->mMetaAudioSceMap);
    } else if (isElement(item, "UnsupportDeviceItem")) {
        parseUnsupportDeviceItem(item->children, &outTables->mUnsupportDeviceSet);
    } else if (isElement(item, "DynamicProcessorParamItem")) {
        readNamedItem(item, parseDynamicProcessorParamItem, &outTables->mDynamicProcessorInfMap);
    } else if (isElement(item, "AudioDetectorParamItem")) {
        readNamedItem(item, parseAudioDetectorParamItem, &outTables->mAudioDetectorInfMap);
    }
}

}  // namespace

PolicyTables::~PolicyTables() {
    for (size_t i = 0; i < mPkgMetaInfoVec.size(); ++i)
        delete mPkgMetaInfoVec.valueAt(i);
    deleteValues(mMetaAudioSceMap);
    deleteValues(mDynamicProcessorInfMap);
    deleteValues(mAudioDetectorInfMap);
}

MssTables::~MssTables() {
    deleteValues(mMssAudioParamInfoMap);
}

std::unique_ptr<PolicyTables> readPolicyTables(const xmlNode* root) {
    if (root == nullptr || root->children == nullptr) return nullptr;
    auto tables = std::make_unique<PolicyTables>();
    Packages packages;
    for (const xmlNode* item = root->children; item != nullptr; item = item->next) {
        readItem(item, &packages, tables.get());
    }
    storePackages(std::move(packages), tables.get());
    MetaAudioSceMap2String(tables->mMetaAudioSceMap, &tables->mMetaAudioSceString);
    DynamicProcessorInfMap2String(tables->mDynamicProcessorInfMap,
                                  &tables->mDynamicProcessorInfString);
    AudioDetectorInfMap2String(tables->mAudioDetectorInfMap, &tables->mAudioDetectorInfString);
    return tables;
}

}  // namespace android
