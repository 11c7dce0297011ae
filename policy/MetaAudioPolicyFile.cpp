#include "policy/MetaAudioPolicyFile.h"

#include <cstring>

namespace android {
namespace {

using Fault = MetaPolicyHead::Fault;

constexpr char kRootName[] = "filter-conf";
constexpr char kFilterNamePrefix[] = "meta_audio_policy";
constexpr size_t kComparedVersionLength = 8;

const xmlNode* findElement(const xmlNode* first, const char* name) {
    const xmlNode* node = first;
    while (node != nullptr && !isElement(node, name))
        node = node->next;
    return node;
}

Fault readHead(const XmlDocument& document, MetaPolicyHead* outHead) {
    if (!document) return Fault::kNoDocument;
    const xmlNode* root = document.root();
    if (root == nullptr) return Fault::kNoRoot;
    if (!isElement(root, kRootName)) return Fault::kWrongRoot;

    const xmlNode* filterNode = findElement(root->children, "filter-name");
    if (filterNode == nullptr) return Fault::kNoFilterName;
    const XmlText filterName(filterNode);
    if (filterName.get() != nullptr) outHead->filterName = filterName.get();
    if (filterName.get() == nullptr ||
        std::strncmp(filterName.get(), kFilterNamePrefix, sizeof(kFilterNamePrefix) - 1) != 0) {
        return Fault::kWrongFilterName;
    }

    // Only a version that stands after the filter name counts.
    const xmlNode* versionNode = findElement(filterNode, "version");
    if (versionNode == nullptr) return Fault::kNoVersion;
    const XmlText version(versionNode);
    if (version.get() == nullptr) return Fault::kNoVersion;
    outHead->version = version.get();
    return Fault::kNone;
}

}  // namespace

MetaPolicyHead readMetaPolicyHead(const XmlDocument& document) {
    MetaPolicyHead head;
    head.fault = readHead(document, &head);
    return head;
}

bool isMetaPolicyVersionAtLeast(const char* version, const char* held) {
    return std::strncmp(version, held, kComparedVersionLength) >= 0;
}

}  // namespace android
