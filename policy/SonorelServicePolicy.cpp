// SonorelService, section 4: the configuration files and what clients ask of them.
#include <unistd.h>

#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <qelto/DevicePath.h>
#include <qelto/PolicyText.h>

#include "policy/ConfigurationPaths.h"
#include "policy/MetaAudioPolicyFile.h"
#include "policy/MssConfigurationFile.h"
#include "policy/PolicyTables.h"
#include "policy/XmlDocument.h"
#include "service/ServiceLog.h"
#include "service/SonorelService.h"

namespace android {
namespace {

// Relative to the device's root, which is the working directory.
constexpr char kSystemPolicyFile[] = "system_ext/etc/Meta_Audio_Policy.xml";
constexpr char kOnlinePolicyFile[] = "data/qelto/multimedia/Meta_Audio_Policy_Online.xml";

// The values of mPolicyXmlLocation.
enum PolicyXmlLocation : int {
    XML_NEED_NOT_UPDATE = 0,
    XML_NEED_TO_UPDATE_ROM_FILE = 2,  // the online copy, despite the name
    XML_NEED_TO_UPDATE_SYSTEM_FILE = 3,
    XML_UPDATE_DONE = 4,
};

// What the parser found goes under a tag of its own, and not to stderr.
constexpr char kParserLogTag[] = "SonorelXml";

XmlDocument readDocument(const std::string& path) {
    XmlDocument document = XmlDocument::readFile(path);
    if (!document &&
        __android_log_is_loggable(ANDROID_LOG_DEBUG, kParserLogTag, ANDROID_LOG_DEBUG) != 0) {
        (void)__android_log_write(ANDROID_LOG_DEBUG, kParserLogTag, document.error().c_str());
    }
    return document;
}

// The version check's name comes from its caller, as in every line of that check.
void logPolicyFault(const char* method, MetaPolicyHead::Fault fault, bool isVekUpdateXml) {
    switch (fault) {
        case MetaPolicyHead::Fault::kNoDocument:
            SONOREL_LOGE("%s:meta audio policy file not exsit", method);
            break;
        case MetaPolicyHead::Fault::kNoRoot:
            SONOREL_LOGE("%s:empty file", method);
            break;
        case MetaPolicyHead::Fault::kWrongRoot:
            SONOREL_LOGE("%s:root Node is not filter-conf", method);
            break;
        case MetaPolicyHead::Fault::kNoFilterName:
            SONOREL_LOGE("%s:doesnot find Node filter name", method);
            break;
        case MetaPolicyHead::Fault::kWrongFilterName:
            SONOREL_LOGE("%s: filter name is wrong", method);
            break;
        case MetaPolicyHead::Fault::kNone:  // a version, but too old a one
        case MetaPolicyHead::Fault::kNoVersion:
            SONOREL_LOGE("%s:Meta_Audio_Policy.xml has not correct version, is vek update xml = %d",
                         method, isVekUpdateXml ? 1 : 0);
            break;
    }
}

void logFilterName(const char* method, const MetaPolicyHead& head) {
    using Fault = MetaPolicyHead::Fault;
    const bool isReached = head.filterName || head.fault == Fault::kWrongFilterName;
    if (!isReached) return;
    SONOREL_LOGD("%s: Meta Audio Policy xml file xmlName = %s", method,
                 head.filterName ? head.filterName->c_str() : "(null)");
}

// Copied by character: two tables never share a buffer.
void addDevices(const std::set<String8>& devices, PolicyTables* tables) {
    for (const String8& name : devices) {
        if (tables->mUnsupportDeviceSet.count(name) != 0) continue;
        tables->mUnsupportDeviceSet.emplace(name.c_str(), name.size());
    }
}

// Replaces the tables in one step. Device names are only ever added, also when two loads end at
// once.
std::shared_ptr<const PolicyTables> publish(std::unique_ptr<PolicyTables> tables,
                                            std::shared_ptr<const PolicyTables>* slot) {
    const std::shared_ptr<PolicyTables> next = std::move(tables);
    std::shared_ptr<const PolicyTables> published = next;
    std::shared_ptr<const PolicyTables> earlier = std::atomic_load(slot);
    do {
        if (earlier != nullptr) addDevices(earlier->mUnsupportDeviceSet, next.get());
    } while (!std::atomic_compare_exchange_strong(slot, &earlier, published));
    return published;
}

// The first configuration folder's file that can be read, as a device path; "" when none can.
std::string findMssConfiguration() {
    for (const std::string& directory : audio_get_configuration_paths()) {
        std::string path = directory + "/" + kMssConfigurationFile;
        if (access(mapDevicePath(path).c_str(), R_OK) == 0) return path;
    }
    return "";
}

void logMssRemarks(const std::vector<MssRemark>& remarks) {
    constexpr char kMethod[] = "parseMssAudioParam";
    for (const MssRemark& remark : remarks) {
        const char* subject = remark.subject.c_str();
        switch (remark.kind) {
            case MssRemark::Kind::kNoScene:
                SONOREL_LOGD("%s: mss audio parse params with no mssScene.", kMethod);
                break;
            case MssRemark::Kind::kUnknownScene:
                SONOREL_LOGW("%s, unknown mssScene name: %s, using default params.", kMethod,
                             subject);
                break;
            case MssRemark::Kind::kNoText:
                SONOREL_LOGW("%s, paramStr is null for node %s", kMethod, subject);
                break;
            case MssRemark::Kind::kUnknownParameter:
                SONOREL_LOGW("%s, unknown parameter name: %s", kMethod, subject);
                break;
        }
    }
}

void assign(std::string* out, const String8& text) {
    out->assign(text.c_str(), text.size());
}

}  // namespace

// ---- Queries

binder::Status SonorelService::getMetaInfoByPkgName(const std::string& pkgName, std::string* info) {
    const String8 text = getMetaInfoByPkgName(String8(pkgName.c_str()));
    SONOREL_LOGD("%s, %s", __func__, text.c_str());
    assign(info, text);
    return binder::Status::ok();
}

String8 SonorelService::getMetaInfoByPkgName(const String8& pkgName) {
    const std::shared_ptr<const PolicyTables> tables = policyTables();
    String8 text;
    MetaAudioFormat2String(tables->mPkgMetaInfoVec.valueFor(pkgName), &text);
    return text;
}

binder::Status SonorelService::getMetaAudioSceMap(std::string* info) {
    const std::shared_ptr<const PolicyTables> tables = policyTables();
    SONOREL_LOGD("%s: mMetaAudioSceString = %s", __func__, tables->mMetaAudioSceString.c_str());
    assign(info, tables->mMetaAudioSceString);
    return binder::Status::ok();
}

binder::Status SonorelService::getDynamicProcessorInfMap(std::string* info) {
    const std::shared_ptr<const PolicyTables> tables = policyTables();
    SONOREL_LOGD("%s: mDynamicProcessorInfString = %s", __func__,
                 tables->mDynamicProcessorInfString.c_str());
    assign(info, tables->mDynamicProcessorInfString);
    return binder::Status::ok();
}

binder::Status SonorelService::getAudioDetectorInfMap(std::string* info) {
    const std::shared_ptr<const PolicyTables> tables = policyTables();
    SONOREL_LOGD("%s: mAudioDetectorInfString = %s", __func__,
                 tables->mAudioDetectorInfString.c_str());
    assign(info, tables->mAudioDetectorInfString);
    return binder::Status::ok();
}

binder::Status SonorelService::getMssParamInfoMap(std::string* info) {
    const std::shared_ptr<const MssTables> tables = mssTables();
    SONOREL_LOGD("%s: mMssAudioParamInfoMapString = %s", __func__,
                 tables->mMssAudioParamInfoMapString.c_str());
    assign(info, tables->mMssAudioParamInfoMapString);
    return binder::Status::ok();
}

binder::Status SonorelService::isUnsupportDevice(const std::string& device, bool* unsupported) {
    const std::shared_ptr<const PolicyTables> tables = policyTables();
    *unsupported = tables->mUnsupportDeviceSet.count(String8(device.c_str())) != 0;
    return binder::Status::ok();
}

// ---- The meta audio policy file

binder::Status SonorelService::checkAndUpdatePolicy(bool* reloaded) {
    const bool needed = isNeedUpdateMetaPolicyXML(true);
    if (needed) {
        loadMetaAudioXml();
    } else {
        SONOREL_LOGE("%s: Need not update meta policy xml", __func__);
    }
    *reloaded = needed;
    SONOREL_LOGD("%s: *_aidl_return = %d", __func__, needed ? 1 : 0);
    return binder::Status::ok();
}

bool SonorelService::isNeedUpdateMetaPolicyXML(bool isVekUpdateXml) {
    const char* path = isVekUpdateXml ? kOnlinePolicyFile : kSystemPolicyFile;
    SONOREL_LOGD("%s:meta audio policy file need update check path = %s", __func__, path);
    // A bad copy does not undo an online copy that was accepted before.
    const bool onlineAccepted = mPolicyXmlLocation == XML_NEED_TO_UPDATE_ROM_FILE;
    const int failState = onlineAccepted ? XML_NEED_TO_UPDATE_ROM_FILE : XML_NEED_NOT_UPDATE;

    const MetaPolicyHead head = readMetaPolicyHead(readDocument(path));
    logFilterName(__func__, head);
    const bool accepted =
            head.fault == MetaPolicyHead::Fault::kNone && acceptPolicyVersion(head.version);
    if (!accepted) {
        mPolicyXmlLocation = failState;
        logPolicyFault(__func__, head.fault, isVekUpdateXml);
        return false;
    }
    mPolicyXmlLocation =
            isVekUpdateXml ? XML_NEED_TO_UPDATE_ROM_FILE : XML_NEED_TO_UPDATE_SYSTEM_FILE;
    SONOREL_LOGD("%s: mMetaAudioPolicyVersion is %s", __func__, head.version.c_str());
    return true;
}

bool SonorelService::acceptPolicyVersion(const std::string& version) {
    const Mutex::Autolock lock(mPolicyLock);
    if (!isMetaPolicyVersionAtLeast(version.c_str(), mMetaAudioPolicyVersion.c_str())) return false;
    mMetaAudioPolicyVersion.setTo(version.c_str(), version.size());
    return true;
}

void SonorelService::loadMetaAudioXml() {
    const char* path = kSystemPolicyFile;
    const int location = mPolicyXmlLocation;
    if (static_cast<unsigned>(location) < XML_NEED_TO_UPDATE_ROM_FILE) {
        SONOREL_LOGE("%s:meta audio policy file need not to update", __func__);
        return;
    }
    if (location == XML_NEED_TO_UPDATE_ROM_FILE) {
        SONOREL_LOGE("%s:meta audio policy file XML_NEED_TO_UPDATE_ROM_FILE", __func__);
        path = kOnlinePolicyFile;
    } else if (location != XML_NEED_TO_UPDATE_SYSTEM_FILE && !isNeedUpdateMetaPolicyXML(false)) {
        SONOREL_LOGE("%s:meta audio policy file need not to update", __func__);
        return;
    }
    SONOREL_LOGD("%s:meta audio policy file loadMetaAudioXml path = %s", __func__, path);

    std::unique_ptr<PolicyTables> loaded;
    if (const XmlDocument document = readDocument(path); document) {
        loaded = readPolicyTables(document.root());
    }
    if (loaded == nullptr) {
        mPolicyXmlLocation = XML_NEED_NOT_UPDATE;
        return;
    }
    const std::shared_ptr<const PolicyTables> tables = publish(std::move(loaded), &mPolicyTables);
    SONOREL_LOGD(
            "%s: MetaAudioSceMap2String from path = %s, mMetaAudioSceMap.size = %zu, info = %s",
            __func__, path, tables->mMetaAudioSceMap.size(), tables->mMetaAudioSceString.c_str());
    SONOREL_LOGD("%s: mDynamicProcessorInfMap.size = %zu, DynamicProcessorParams = %s", __func__,
                 tables->mDynamicProcessorInfMap.size(),
                 tables->mDynamicProcessorInfString.c_str());
    // The label says scene map and the number is the detector map's: readers of the log know it so.
    SONOREL_LOGD("%s: mMetaAudioSceMap.size = %zu, AudioDetectorParams = %s", __func__,
                 tables->mAudioDetectorInfMap.size(), tables->mAudioDetectorInfString.c_str());
    mPolicyXmlLocation = XML_UPDATE_DONE;
}

// ---- The sound-separation configuration

void SonorelService::loadMssAudioXml() {
    const std::string path = findMssConfiguration();
    SONOREL_LOGD("%s: mss audio params config file path = %s", __func__, path.c_str());
    const XmlDocument document = readDocument(mapDevicePath(path));
    if (!document) {
        SONOREL_LOGD("%s: failed to parse mss audio params config XML file.", __func__);
        return;
    }
    if (document.root() == nullptr) {
        SONOREL_LOGD("%s: mss audio params config XML file is empty.", __func__);
        return;
    }
    std::vector<MssRemark> remarks;
    const std::shared_ptr<const MssTables> tables = readMssTables(document.root(), &remarks);
    std::atomic_store(&mMssTables, tables);
    logMssRemarks(remarks);
    // The label says scene map and the number is this map's: readers of the log know it so.
    SONOREL_LOGD(
            "%s: mMssAudioParamInfoMapString from path = %s, mMetaAudioSceMap.size = %zu, info = "
            "%s",
            __func__, path.c_str(), tables->mMssAudioParamInfoMap.size(),
            tables->mMssAudioParamInfoMapString.c_str());
}

// ---- Snapshots

std::shared_ptr<const PolicyTables> SonorelService::policyTables() const {
    static const auto kBeforeFirstLoad = std::make_shared<const PolicyTables>();
    std::shared_ptr<const PolicyTables> tables = std::atomic_load(&mPolicyTables);
    return tables != nullptr ? tables : kBeforeFirstLoad;
}

std::shared_ptr<const MssTables> SonorelService::mssTables() const {
    static const auto kBeforeFirstLoad = std::make_shared<const MssTables>();
    std::shared_ptr<const MssTables> tables = std::atomic_load(&mMssTables);
    return tables != nullptr ? tables : kBeforeFirstLoad;
}

}  // namespace android
