#include "sonorelctl/PolicyFile.h"

#include <qelto/PolicyText.h>

#include <algorithm>

#include "policy/MetaAudioPolicyFile.h"
#include "policy/MssConfigurationFile.h"
#include "policy/XmlDocument.h"

namespace sonorel::ctl {
namespace {

using android::MetaPolicyHead;
using android::MssRemark;
using android::String8;
using android::XmlDocument;

const char* faultText(MetaPolicyHead::Fault fault) {
    using Fault = MetaPolicyHead::Fault;
    switch (fault) {
        case Fault::kNone:
            return "";
        case Fault::kNoDocument:
            return "not an XML document";
        case Fault::kNoRoot:
            return "no root element";
        case Fault::kWrongRoot:
            return "the root element is not filter-conf";
        case Fault::kNoFilterName:
            return "no filter-name below the root";
        case Fault::kWrongFilterName:
            return "filter-name does not begin with meta_audio_policy";
        case Fault::kNoVersion:
            return "no version behind filter-name";
    }
    return "";
}

std::string remarkText(const MssRemark& remark) {
    switch (remark.kind) {
        case MssRemark::Kind::kNoScene:
            return "a param without a scene is kept empty under -1";
        case MssRemark::Kind::kUnknownScene:
            return "unknown scene '" + remark.subject + "' counts as default";
        case MssRemark::Kind::kNoText:
            return "no text in " + remark.subject;
        case MssRemark::Kind::kUnknownParameter:
            return "unknown parameter " + remark.subject + " is ignored";
    }
    return "";
}

Json policyJson(const std::string& version, const android::PolicyTables& tables) {
    Json json;
    json["version"] = version;
    // Appended as they come, since the keys are known to differ and a look-up is linear.
    Json& packageObject = json["packages"] = Json::object();
    auto& packages = packageObject.get_ref<Json::object_t&>();
    for (size_t i = 0; i < tables.mPkgMetaInfoVec.size(); ++i) {
        String8 text;
        android::MetaAudioFormat2String(tables.mPkgMetaInfoVec.valueAt(i), &text);
        packages.emplace_back(tables.mPkgMetaInfoVec.keyAt(i).c_str(), Json::parse(text.c_str()));
    }
    json["scenes"] = Json::parse(tables.mMetaAudioSceString.c_str());
    json["processors"] = Json::parse(tables.mDynamicProcessorInfString.c_str());
    json["detectors"] = Json::parse(tables.mAudioDetectorInfString.c_str());
    Json& devices = json["unsupportedDevices"] = Json::array();
    for (const String8& device : tables.mUnsupportDeviceSet)
        devices.push_back(device.c_str());
    return json;
}

// A policy file shows by its root or, under a wrong one, by the head of such a file. The root of a
// sound-separation file may have any other name, and it need not have a child.
bool isPolicyFile(const xmlNode* root) {
    if (android::isElement(root, "filter-conf")) return true;
    for (const xmlNode* node = root->children; node != nullptr; node = node->next) {
        if (android::isElement(node, "filter-name")) return true;
    }
    return false;
}

std::string cellText(const Json& value) {
    if (value.is_string()) return value.get<std::string>();
    if (!value.is_array()) return toLine(value);
    const bool isNested = !value.empty() && value.front().is_array();
    std::string text;
    for (const Json& part : value) {
        if (!text.empty()) text += isNested ? ";" : ",";
        text += cellText(part);
    }
    return text;
}

using Row = std::vector<std::string>;

// A longer cell pushes the rest of its own line only: one long key must not widen every row.
constexpr size_t kMaxColumn = 48;

std::string alignRows(const std::vector<Row>& rows) {
    std::vector<size_t> widths;
    for (const Row& row : rows) {
        if (widths.size() < row.size()) widths.resize(row.size());
        for (size_t i = 0; i < row.size(); ++i)
            widths[i] = std::min(std::max(widths[i], row[i].size()), kMaxColumn);
    }
    std::string text;
    for (const Row& row : rows) {
        std::string line = " ";
        for (size_t i = 0; i < row.size(); ++i) {
            line += " " + row[i] + " ";
            if (row[i].size() < widths[i]) line.append(widths[i] - row[i].size(), ' ');
        }
        text += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
    }
    return text;
}

std::string recordsTable(const Json& records) {
    std::vector<Row> rows;
    for (const auto& [key, record] : records.items()) {
        if (rows.empty() && record.is_object()) {
            rows.push_back({"KEY"});
            for (const auto& field : record.items())
                rows.front().push_back(field.key());
        }
        Row row{key};
        if (record.is_object()) {
            for (const auto& field : record.items())
                row.push_back(cellText(field.value()));
        } else {
            row.push_back(cellText(record));
        }
        rows.push_back(std::move(row));
    }
    return alignRows(rows);
}

}  // namespace

bool readPolicyFile(const std::string& path, Json* outTables, std::vector<std::string>* outRemarks,
                    std::string* outError) {
    const XmlDocument document = XmlDocument::readFile(path);
    if (!document) {
        *outError = document.error();
        return false;
    }
    if (document.root() != nullptr && !isPolicyFile(document.root())) {
        std::vector<MssRemark> remarks;
        const auto tables = android::readMssTables(document.root(), &remarks);
        (*outTables)["mss"] = Json::parse(tables->mMssAudioParamInfoMapString.c_str());
        for (const MssRemark& remark : remarks)
            outRemarks->push_back(remarkText(remark));
        if (tables->mMssAudioParamInfoMap.empty()) outRemarks->push_back("no param in it");
        return true;
    }
    const MetaPolicyHead head = android::readMetaPolicyHead(document);
    if (head.fault != MetaPolicyHead::Fault::kNone) {
        *outError = path + ": " + faultText(head.fault);
        return false;
    }
    *outTables = policyJson(head.version, *android::readPolicyTables(document.root()));
    return true;
}

std::string toTable(const Json& tables) {
    std::string text;
    for (const auto& [name, table] : tables.items()) {
        if (table.is_object()) {
            text += name + " (" + std::to_string(table.size()) + ")\n" + recordsTable(table);
        } else if (table.is_array()) {
            text += name + " (" + std::to_string(table.size()) + ")\n";
            for (const Json& entry : table)
                text += "  " + cellText(entry) + "\n";
        } else {
            text += name + " " + cellText(table) + "\n";
        }
    }
    return text;
}

}  // namespace sonorel::ctl
