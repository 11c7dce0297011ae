// SonorelService, section 4: the configuration files and what clients ask of them.
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <qelto/DevicePath.h>
#include <qelto/PolicyText.h>
#include <utils/Unicode.h>

#include "policy/ConfigurationPaths.h"
#include "policy/FreedMemory.h"
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

// Goes back to the system with the scope: what a document and replaced tables took, once they are
// freed.
class FreedMemoryReturn {
public:
    FreedMemoryReturn() = default;
    ~FreedMemoryReturn() { returnFreedMemory(); }
    FreedMemoryReturn(const FreedMemoryReturn&) = delete;
    FreedMemoryReturn& operator=(const FreedMemoryReturn&) = delete;
};

XmlDocument readDocument(const std::string& path) {
    XmlDocument document = XmlDocument::readFile(path);
    if (!document) SONOREL_LOGD("%s", document.error().c_str());
    return document;
}

// A policy file, read once: what its head says, and its tables, null when it has none.
struct PolicyFile {
    MetaPolicyHead head;
    std::shared_ptr<PolicyTables> tables;
};

// One document at a time, whose nodes lie on the heap for no longer than the lock is held: tables
// that several threads fill between the nodes of each other's documents would keep most of the
// pages of these documents. The lock is held over no file, log line or other lock.
PolicyFile readPolicyFile(const std::string& path, DocumentStamp* outStamp) {
    static Mutex sDocumentLock;
    PolicyFile file;
    file.head.fault = MetaPolicyHead::Fault::kNoDocument;
    std::string bytes;
    std::string error;
    if (XmlDocument::readBytes(path, &bytes, &error, outStamp)) {
        const Mutex::Autolock lock(sDocumentLock);
        const XmlDocument document = XmlDocument::readMemory(bytes.data(), bytes.size(), path);
        error = document.error();
        file.head = readMetaPolicyHead(document);
        file.tables = readPolicyTables(document.root());
    }
    if (!error.empty()) SONOREL_LOGD("%s", error.c_str());
    return file;
}

bool isStillThere(const std::string& path, const DocumentStamp& stamp) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && DocumentStamp(status) == stamp;
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

// Adds names to the set that is served. Each load makes a set of its own, so that a reader keeps
// the one that it took; of two loads at once the later starts again from the other's. Names are
// copied by character: two sets never share a buffer.
void addDevices(const std::set<String8>& names, std::shared_ptr<const std::set<String8>>* served) {
    std::shared_ptr<const std::set<String8>> earlier = std::atomic_load(served);
    std::shared_ptr<const std::set<String8>> next;
    do {
        std::set<String8> all;
        for (const auto* part : {&names, earlier.get()}) {
            if (part == nullptr) continue;
            for (const String8& name : *part) {
                if (all.count(name) == 0) all.emplace(name.c_str(), name.size());
            }
        }
        next = std::make_shared<const std::set<String8>>(std::move(all));
    } while (!std::atomic_compare_exchange_strong(served, &earlier, next));
}

// Says so when a table's text is too long for the reply that would carry it, since the service
// never hears of that failure: a reply holds a status, a length and the text in UTF-16 with its
// end.
void logOversize(const char* method, const char* table, const String8& text) {
    constexpr size_t kMaxReply = (size_t{1} << 20) - size_t{2} * 4096;
    const auto* bytes = reinterpret_cast<const uint8_t*>(text.c_str());
    const ssize_t units = utf8_to_utf16_length(bytes, text.size());
    const size_t reply = 2 * sizeof(int32_t) + 2 * (static_cast<size_t>(units) + 1);
    if (units < 0 || reply <= kMaxReply) return;
    SONOREL_LOGE(
            "%s: %s takes %zu bytes of the %zu that a binder transaction can carry: queries "
            "for it will fail",
            method, table, reply, kMaxReply);
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
    const std::shared_ptr<const std::set<String8>> names = std::atomic_load(&mUnsupportDeviceSet);
    *unsupported = names != nullptr && names->count(String8(device.c_str())) != 0;
    return binder::Status::ok();
}

// ---- The meta audio policy file
//
// Checks and loads may run on several threads at once. Accepted checks are numbered; what is served
// comes from the newest of them. A check that another one overtook while it read looks whether its
// file is still the one under that name, and reads again if not, so that a later number never
// stands for an older file. A load carries the number of its check and publishes nothing once a
// newer one has.

// A copy that the version check accepted.
struct SonorelService::CheckedPolicy {
    uint64_t number;
    PolicyFile file;
};

binder::Status SonorelService::checkAndUpdatePolicy(bool* reloaded) {
    const FreedMemoryReturn returnAtTheEnd;
    std::unique_ptr<CheckedPolicy> checked = checkPolicyFile(true);
    const bool needed = checked != nullptr;
    if (needed) {
        loadOnlineCopy(std::move(checked));
    } else {
        SONOREL_LOGE("%s: Need not update meta policy xml", __func__);
    }
    *reloaded = needed;
    SONOREL_LOGD("%s: *_aidl_return = %d", __func__, needed ? 1 : 0);
    return binder::Status::ok();
}

bool SonorelService::isNeedUpdateMetaPolicyXML(bool isVekUpdateXml) {
    return checkPolicyFile(isVekUpdateXml) != nullptr;
}

std::unique_ptr<SonorelService::CheckedPolicy> SonorelService::checkPolicyFile(
        bool isVekUpdateXml) {
    constexpr char kMethod[] = "isNeedUpdateMetaPolicyXML";
    const char* path = isVekUpdateXml ? kOnlinePolicyFile : kSystemPolicyFile;
    SONOREL_LOGD("%s:meta audio policy file need update check path = %s", kMethod, path);
    // A bad copy does not undo an online copy that was accepted before.
    const bool onlineAccepted = mPolicyXmlLocation == XML_NEED_TO_UPDATE_ROM_FILE;
    const int failState = onlineAccepted ? XML_NEED_TO_UPDATE_ROM_FILE : XML_NEED_NOT_UPDATE;

    auto checked = std::make_unique<CheckedPolicy>();
    const MetaPolicyHead& head = checked->file.head;
    DocumentStamp stamp;
    PolicyVerdict verdict = PolicyVerdict::kOvertaken;
    while (verdict == PolicyVerdict::kOvertaken) {
        const uint64_t earlier = newestAcceptedPolicy();
        if (!isStillThere(path, stamp)) checked->file = readPolicyFile(path, &stamp);
        checked->number = earlier + 1;
        verdict = head.fault == MetaPolicyHead::Fault::kNone
                          ? acceptPolicyVersion(head.version, checked->number)
                          : PolicyVerdict::kRefused;
    }
    logFilterName(kMethod, head);
    if (verdict == PolicyVerdict::kRefused) {
        mPolicyXmlLocation = failState;
        logPolicyFault(kMethod, head.fault, isVekUpdateXml);
        return nullptr;
    }
    mPolicyXmlLocation =
            isVekUpdateXml ? XML_NEED_TO_UPDATE_ROM_FILE : XML_NEED_TO_UPDATE_SYSTEM_FILE;
    SONOREL_LOGD("%s: mMetaAudioPolicyVersion is %s", kMethod, head.version.c_str());
    return checked;
}

uint64_t SonorelService::newestAcceptedPolicy() const {
    const Mutex::Autolock lock(mPolicyLock);
    return mAcceptedPolicy;
}

SonorelService::PolicyVerdict SonorelService::acceptPolicyVersion(const std::string& version,
                                                                  uint64_t number) {
    const Mutex::Autolock lock(mPolicyLock);
    if (!isMetaPolicyVersionAtLeast(version.c_str(), mMetaAudioPolicyVersion.c_str())) {
        return PolicyVerdict::kRefused;
    }
    if (number != mAcceptedPolicy + 1) return PolicyVerdict::kOvertaken;
    mAcceptedPolicy = number;
    mMetaAudioPolicyVersion.setTo(version.c_str(), version.size());
    return PolicyVerdict::kAccepted;
}

void SonorelService::loadMetaAudioXml() {
    const FreedMemoryReturn returnAtTheEnd;
    const int location = mPolicyXmlLocation;
    // After a completed load the system copy has to pass the check again.
    std::unique_ptr<CheckedPolicy> checked;
    if (static_cast<unsigned>(location) > XML_NEED_TO_UPDATE_SYSTEM_FILE) {
        checked = checkPolicyFile(false);
    }
    if (location == XML_NEED_TO_UPDATE_ROM_FILE) {
        loadOnlineCopy(nullptr);
    } else if (location == XML_NEED_TO_UPDATE_SYSTEM_FILE || checked != nullptr) {
        loadPolicyFile(kSystemPolicyFile, std::move(checked));
    } else {
        SONOREL_LOGE("%s:meta audio policy file need not to update", __func__);
    }
}

void SonorelService::loadOnlineCopy(std::unique_ptr<CheckedPolicy> checked) {
    SONOREL_LOGE("loadMetaAudioXml:meta audio policy file XML_NEED_TO_UPDATE_ROM_FILE");
    loadPolicyFile(kOnlinePolicyFile, std::move(checked));
}

void SonorelService::loadPolicyFile(const char* path, std::unique_ptr<CheckedPolicy> checked) {
    constexpr char kMethod[] = "loadMetaAudioXml";
    SONOREL_LOGD("%s:meta audio policy file loadMetaAudioXml path = %s", kMethod, path);
    if (checked == nullptr) {
        const uint64_t number = newestAcceptedPolicy();
        DocumentStamp stamp;
        checked.reset(new CheckedPolicy{number, readPolicyFile(path, &stamp)});
    }
    const std::shared_ptr<PolicyTables> tables = checked->file.tables;
    if (tables == nullptr) {
        mPolicyXmlLocation = XML_NEED_NOT_UPDATE;
        return;
    }
    addDevices(tables->mUnsupportDeviceSet, &mUnsupportDeviceSet);
    tables->mUnsupportDeviceSet.clear();
    publishPolicy(tables, checked->number);
    SONOREL_LOGD(
            "%s: MetaAudioSceMap2String from path = %s, mMetaAudioSceMap.size = %zu, info = %s",
            kMethod, path, tables->mMetaAudioSceMap.size(), tables->mMetaAudioSceString.c_str());
    SONOREL_LOGD("%s: mDynamicProcessorInfMap.size = %zu, DynamicProcessorParams = %s", kMethod,
                 tables->mDynamicProcessorInfMap.size(),
                 tables->mDynamicProcessorInfString.c_str());
    // The label says scene map and the number is the detector map's: readers of the log know it so.
    SONOREL_LOGD("%s: mMetaAudioSceMap.size = %zu, AudioDetectorParams = %s", kMethod,
                 tables->mAudioDetectorInfMap.size(), tables->mAudioDetectorInfString.c_str());
    logOversize(kMethod, "mMetaAudioSceString", tables->mMetaAudioSceString);
    logOversize(kMethod, "mDynamicProcessorInfString", tables->mDynamicProcessorInfString);
    logOversize(kMethod, "mAudioDetectorInfString", tables->mAudioDetectorInfString);
    mPolicyXmlLocation = XML_UPDATE_DONE;
}

void SonorelService::publishPolicy(std::shared_ptr<const PolicyTables> tables, uint64_t number) {
    const Mutex::Autolock lock(mPolicyLock);
    if (number < mServedPolicy) return;
    mServedPolicy = number;
    // The earlier tables end with the parameter, when the lock is free again.
    tables = std::atomic_exchange(&mPolicyTables, std::move(tables));
}

// ---- The sound-separation configuration

void SonorelService::loadMssAudioXml() {
    const FreedMemoryReturn returnAtTheEnd;
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
