// The meta audio policy file: what it takes to be one, and how its items become records. Nothing
// here logs or keeps state; any thread.
#pragma once

#include <memory>
#include <optional>
#include <set>
#include <string>

#include <libxml/tree.h>
#include <qelto/PolicyRecords.h>
#include <utils/String8.h>

#include "policy/PolicyTables.h"
#include "policy/XmlDocument.h"

namespace android {

// The name a record has when its file gives it none.
inline constexpr char kInvalidName[] = "invalid";

// What the head of one copy says. Each fault names the first check that failed.
struct MetaPolicyHead {
    enum class Fault {
        kNone,
        kNoDocument,       // not there, not readable, not XML
        kNoRoot,           // no root element
        kWrongRoot,        // the root is not "filter-conf"
        kNoFilterName,     // no "filter-name" below the root
        kWrongFilterName,  // it does not begin with "meta_audio_policy"
        kNoVersion,        // no "version" after it, or one without text
    };

    Fault fault = Fault::kNone;
    // Set once the element was found and had text.
    std::optional<std::string> filterName;
    std::string version;
};

MetaPolicyHead readMetaPolicyHead(const XmlDocument& document);

// Versions are texts and compare as such, bytewise, over their first eight characters.
bool isMetaPolicyVersionAtLeast(const char* version, const char* held);

// Fills a record from the children of one item element, the first of which is `node`: values that
// have no element keep what the record holds, of several the last wins, and a value whose text
// cannot be had takes its fallback. A null node or record is left alone.
void parseMetaAudioItem(const xmlNode* node, MetaAudioInfo* info);
void parseMetaAudioSceParam(const xmlNode* node, MetaSceInfForParseXml* info);
void parseDynamicProcessorParamItem(const xmlNode* node, DynamicProcessorInf* info);
void parseAudioDetectorParamItem(const xmlNode* node, AudioDetectorInf* info);
// Adds every device name of one item.
void parseUnsupportDeviceItem(const xmlNode* node, std::set<String8>* devices);

// The tables of a whole file with their text forms. Items without a key are dropped, the later of
// two with the same key stays. Null when the root is null or has no children.
std::unique_ptr<PolicyTables> readPolicyTables(const xmlNode* root);

}  // namespace android
