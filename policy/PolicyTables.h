// What the two configuration files hold, as one value each. A table is filled by one thread, then
// published and never changed again; it owns the records that it points to.
//
// A reader copies characters out of a String8 in here and never the String8 itself: the copy would
// share its buffer with the table.
#pragma once

#include <map>
#include <set>

#include <qelto/PolicyRecords.h>
#include <utils/KeyedVector.h>
#include <utils/String8.h>

namespace android {

// The meta audio policy file.
struct PolicyTables {
    PolicyTables() = default;
    ~PolicyTables();
    PolicyTables(const PolicyTables&) = delete;
    PolicyTables& operator=(const PolicyTables&) = delete;

    // By package name; null for a package that is not listed.
    DefaultKeyedVector<String8, MetaAudioInfo*> mPkgMetaInfoVec{nullptr};
    // By scene type.
    std::map<int, MetaSceInfForParseXml*> mMetaAudioSceMap;
    // Device names of this file.
    std::set<String8> mUnsupportDeviceSet;
    // By name.
    std::map<String8, DynamicProcessorInf*> mDynamicProcessorInfMap;
    std::map<String8, AudioDetectorInf*> mAudioDetectorInfMap;

    // The text forms of the three maps; "" before the first load.
    String8 mMetaAudioSceString;
    String8 mDynamicProcessorInfString;
    String8 mAudioDetectorInfString;
};

// The MSS configuration file.
struct MssTables {
    MssTables() = default;
    ~MssTables();
    MssTables(const MssTables&) = delete;
    MssTables& operator=(const MssTables&) = delete;

    // By scene; -1 holds the parameters that name no scene.
    std::map<int, MssParamInfoFromXML*> mMssAudioParamInfoMap;
    // Its text form; "" before the first load.
    String8 mMssAudioParamInfoMapString;
};

}  // namespace android
