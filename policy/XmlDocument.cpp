#include "policy/XmlDocument.h"

#include <fcntl.h>
#include <libxml/entities.h>
#include <libxml/parser.h>
#include <libxml/xmlerror.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace android {
namespace {

constexpr char kEncoding[] = "UTF-8";
constexpr int kParserOptions = XML_PARSE_PEDANTIC;
// Entities inside entities, and elements inside those.
constexpr int kMaxEntityDepth = 512;

class FileDescriptor {
public:
    explicit FileDescriptor(int fd) : mFd(fd) {}
    ~FileDescriptor() {
        if (mFd >= 0) close(mFd);
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    int get() const { return mFd; }

private:
    const int mFd;
};

// While it lives, libxml2's messages on this thread come here instead of stderr. The first one is
// the cause; what follows are its consequences.
class ParserErrors {
public:
    ParserErrors() : mEarlier(xmlStructuredError), mEarlierContext(xmlStructuredErrorContext) {
        xmlSetStructuredErrorFunc(this, &ParserErrors::note);
    }
    ~ParserErrors() { xmlSetStructuredErrorFunc(mEarlierContext, mEarlier); }
    ParserErrors(const ParserErrors&) = delete;
    ParserErrors& operator=(const ParserErrors&) = delete;

    const std::string& first() const { return mFirst; }

private:
    static void note(void* context, xmlErrorPtr error) {
        auto* self = static_cast<ParserErrors*>(context);
        if (error == nullptr || error->level < XML_ERR_ERROR || !self->mFirst.empty()) return;
        std::string message = error->message != nullptr ? error->message : "unknown error";
        message.erase(message.find_last_not_of(" \n") + 1);
        if (error->line > 0) message = "line " + std::to_string(error->line) + ": " + message;
        self->mFirst = std::move(message);
    }

    const xmlStructuredErrorFunc mEarlier;
    void* const mEarlierContext;
    std::string mFirst;
};

std::string errnoText() {
    return std::generic_category().message(errno);
}

std::string sizeText() {
    return "larger than " + std::to_string(XmlDocument::kMaxFileSize) + " bytes";
}

// Walks what references stand for, without building it, and gives up at the limits.
class EntityMeter {
public:
    bool fits(const xmlNode* root) {
        const xmlNode* node = root;
        while (node != nullptr) {
            if (node->type == XML_ENTITY_REF_NODE && !addReference(node, 0)) return false;
            if (node->type == XML_ELEMENT_NODE && !fitsAttributes(node, 0)) return false;
            if (node->type == XML_ELEMENT_NODE && node->children != nullptr) {
                node = node->children;
                continue;
            }
            while (node != root && node->next == nullptr)
                node = node->parent;
            node = node == root ? nullptr : node->next;
        }
        return true;
    }

private:
    bool fitsAttributes(const xmlNode* element, int depth) {
        for (const xmlAttr* attribute = element->properties; attribute != nullptr;
             attribute = attribute->next) {
            for (const xmlNode* node = attribute->children; node != nullptr; node = node->next) {
                if (node->type == XML_ENTITY_REF_NODE && !addReference(node, depth)) return false;
            }
        }
        return true;
    }

    bool addReference(const xmlNode* reference, int depth) {
        const xmlEntity* entity = xmlGetDocEntity(reference->doc, reference->name);
        return entity == nullptr || addSiblings(entity->children, depth + 1);
    }

    bool addSiblings(const xmlNode* first, int depth) {
        if (depth > kMaxEntityDepth) return false;
        for (const xmlNode* node = first; node != nullptr; node = node->next) {
            size_t cost = 1;
            if (node->type == XML_TEXT_NODE || node->type == XML_CDATA_SECTION_NODE) {
                cost += static_cast<size_t>(xmlStrlen(node->content));
            }
            if (cost > mLeft) return false;
            mLeft -= cost;
            if (node->type == XML_ENTITY_REF_NODE && !addReference(node, depth)) return false;
            if (node->type == XML_ELEMENT_NODE &&
                (!fitsAttributes(node, depth) || !addSiblings(node->children, depth + 1))) {
                return false;
            }
        }
        return true;
    }

    size_t mLeft = XmlDocument::kMaxEntityText;
};

const char* plainText(const xmlNode* children) {
    if (children == nullptr) return "";
    const bool plain = children->type == XML_TEXT_NODE || children->type == XML_CDATA_SECTION_NODE;
    if (!plain || children->next != nullptr) return nullptr;
    return children->content != nullptr ? reinterpret_cast<const char*>(children->content) : "";
}

}  // namespace

void XmlFreeDoc::operator()(xmlDoc* document) const {
    xmlFreeDoc(document);
}

void XmlFreeText::operator()(xmlChar* text) const {
    xmlFree(text);
}

XmlDocument XmlDocument::readFile(const std::string& path) {
    XmlDocument result;
    // Without O_NONBLOCK the open of a pipe would wait for a writer.
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status {};
    if (file.get() < 0 || fstat(file.get(), &status) != 0) {
        result.mError = path + ": " + errnoText();
        return result;
    }
    if (!S_ISREG(status.st_mode)) {
        result.mError = path + ": not a regular file";
        return result;
    }
    if (static_cast<size_t>(status.st_size) > kMaxFileSize) {
        result.mError = path + ": " + sizeText();
        return result;
    }
    const ParserErrors errors;
    xmlDoc* document = xmlReadFd(file.get(), path.c_str(), kEncoding, kParserOptions);
    result.adopt(document, path, errors.first());
    return result;
}

XmlDocument XmlDocument::readMemory(const char* bytes, size_t size, const std::string& name) {
    XmlDocument result;
    if (size > kMaxFileSize) {
        result.mError = name + ": " + sizeText();
        return result;
    }
    const ParserErrors errors;
    xmlDoc* document =
            xmlReadMemory(bytes, static_cast<int>(size), name.c_str(), kEncoding, kParserOptions);
    result.adopt(document, name, errors.first());
    return result;
}

void XmlDocument::adopt(xmlDoc* document, const std::string& path, const std::string& parserError) {
    mDocument.reset(document);
    if (mDocument == nullptr) {
        mError = path + ": " + (parserError.empty() ? "not an XML document" : parserError);
        return;
    }
    // Only a document type declares entities.
    const bool hasEntities = mDocument->intSubset != nullptr;
    if (hasEntities && root() != nullptr && !EntityMeter().fits(root())) {
        mDocument.reset();
        mError = path + ": entities expand to more than " + std::to_string(kMaxEntityText) +
                 " bytes or nest too deep";
    }
}

xmlNode* XmlDocument::root() const {
    return xmlDocGetRootElement(mDocument.get());
}

XmlText::XmlText(const xmlNode* element) : mText(plainText(element->children)) {
    if (mText == nullptr) {
        mOwned.reset(xmlNodeGetContent(element));
        mText = reinterpret_cast<const char*>(mOwned.get());
    }
}

XmlText::XmlText(const xmlAttr* attribute) : mText(plainText(attribute->children)) {
    if (mText == nullptr) {
        mOwned.reset(xmlNodeGetContent(reinterpret_cast<const xmlNode*>(attribute)));
        mText = reinterpret_cast<const char*>(mOwned.get());
    }
}

}  // namespace android
