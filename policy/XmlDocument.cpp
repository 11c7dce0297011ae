#include "policy/XmlDocument.h"

#include <fcntl.h>
#include <libxml/entities.h>
#include <libxml/parser.h>
#include <libxml/xmlerror.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "policy/XmlBounds.h"
#include "policy/XmlEncoding.h"

namespace android {
namespace {

constexpr char kEncoding[] = "UTF-8";
// Pedantic checks are all that is asked for. The other changes nothing in the document: short texts
// lie inside their nodes and not in libxml2's table of names, which gets slow when it is full.
constexpr int kParserOptions = XML_PARSE_PEDANTIC | XML_PARSE_COMPACT;
// What libxml2 may find fault with and still go on. Each costs as much as a hundred bytes.
constexpr size_t kMaxComplaints = 64;
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

// Newer versions of libxml2 mark the variables behind xmlSetStructuredErrorFunc as deprecated and
// offer no other way to put an earlier handler back.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
std::pair<xmlStructuredErrorFunc, void*> structuredErrorHandler() {
    return {xmlStructuredError, xmlStructuredErrorContext};
}
#pragma GCC diagnostic pop

// While it lives, libxml2's messages on this thread come here instead of stderr. The first one is
// the cause; what follows are its consequences.
class ParserErrors {
public:
    ParserErrors() : mEarlier(structuredErrorHandler()) {
        // The second parameter of a handler is const in newer versions only: "auto" fits both.
        xmlSetStructuredErrorFunc(this, [](void* context, auto* error) {
            static_cast<ParserErrors*>(context)->note(error);
        });
    }
    ~ParserErrors() { xmlSetStructuredErrorFunc(mEarlier.second, mEarlier.first); }
    ParserErrors(const ParserErrors&) = delete;
    ParserErrors& operator=(const ParserErrors&) = delete;

    const std::string& first() const { return mFirst; }
    // There will be no document, or there should be none.
    bool areTooMany() const { return mIsFatal || mCount > kMaxComplaints; }

private:
    void note(const xmlError* error) {
        if (error == nullptr) return;
        ++mCount;
        if (error->level >= XML_ERR_FATAL) mIsFatal = true;
        if (error->level < XML_ERR_ERROR || !mFirst.empty()) return;
        mFirst = error->message != nullptr ? error->message : "unknown error";
        mFirst.erase(mFirst.find_last_not_of(" \n") + 1);
        if (error->line > 0) mFirst = "line " + std::to_string(error->line) + ": " + mFirst;
    }

    const std::pair<xmlStructuredErrorFunc, void*> mEarlier;
    std::string mFirst;
    size_t mCount = 0;
    bool mIsFatal = false;
};

// Gives libxml2 the bytes piece by piece, and no more of them once it has found too much to
// complain about: left alone it would tell of every further fault to the end of the file.
class ParserFeed {
public:
    ParserFeed(const char* bytes, size_t size, const ParserErrors& errors)
            : mBytes(bytes), mLeft(size), mErrors(errors) {}

    static int read(void* self, char* out, int size) {
        return static_cast<ParserFeed*>(self)->take(out, static_cast<size_t>(size));
    }

private:
    int take(char* out, size_t size) {
        if (mErrors.areTooMany()) return 0;
        const size_t taken = std::min(size, mLeft);
        std::memcpy(out, mBytes, taken);
        mBytes += taken;
        mLeft -= taken;
        return static_cast<int>(taken);
    }

    const char* mBytes;
    size_t mLeft;
    const ParserErrors& mErrors;
};

std::string errnoText() {
    return std::generic_category().message(errno);
}

std::string sizeText() {
    return "larger than " + std::to_string(XmlDocument::kMaxFileSize) + " bytes";
}

// The bytes that were checked are to be those that are parsed.
int parserOptions(const std::string& bytes) {
    const ParserErrors ofTheProbe;
    return hidesMarkup(bytes) ? kParserOptions | XML_PARSE_IGNORE_ENC : kParserOptions;
}

// Fills the string, or cuts it where the file ends meanwhile.
bool readAll(int file, std::string* bytes) {
    size_t filled = 0;
    while (filled < bytes->size()) {
        const ssize_t count = read(file, bytes->data() + filled, bytes->size() - filled);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return false;
        if (count == 0) break;
        filled += static_cast<size_t>(count);
    }
    bytes->resize(filled);
    return true;
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
        const auto* entity = xmlGetDocEntity(reference->doc, reference->name);
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

DocumentStamp::DocumentStamp(const struct stat& status)
        : device(status.st_dev),
          inode(status.st_ino),
          size(status.st_size),
          modified(status.st_mtim),
          changed(status.st_ctim) {}

bool DocumentStamp::operator==(const DocumentStamp& other) const {
    const auto isSame = [](const timespec& one, const timespec& two) {
        return one.tv_sec == two.tv_sec && one.tv_nsec == two.tv_nsec;
    };
    return device == other.device && inode == other.inode && size == other.size &&
           isSame(modified, other.modified) && isSame(changed, other.changed);
}

bool XmlDocument::readBytes(const std::string& path, std::string* outBytes, std::string* outError,
                            DocumentStamp* outStamp) {
    // Without O_NONBLOCK the open of a pipe would wait for a writer.
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status {};
    if (file.get() < 0 || fstat(file.get(), &status) != 0) {
        *outError = path + ": " + errnoText();
        return false;
    }
    if (outStamp != nullptr) *outStamp = DocumentStamp(status);
    if (!S_ISREG(status.st_mode)) {
        *outError = path + ": not a regular file";
        return false;
    }
    if (static_cast<size_t>(status.st_size) > kMaxFileSize) {
        *outError = path + ": " + sizeText();
        return false;
    }
    outBytes->resize(static_cast<size_t>(status.st_size));
    if (readAll(file.get(), outBytes)) return true;
    *outError = path + ": " + errnoText();
    return false;
}

XmlDocument XmlDocument::readFile(const std::string& path) {
    XmlDocument result;
    std::string bytes;
    if (readBytes(path, &bytes, &result.mError)) result.parse(bytes, path);
    return result;
}

XmlDocument XmlDocument::readMemory(const char* bytes, size_t size, const std::string& name) {
    XmlDocument result;
    if (size > kMaxFileSize) {
        result.mError = name + ": " + sizeText();
        return result;
    }
    result.parse(std::string(bytes, size), name);
    return result;
}

void XmlDocument::parse(const std::string& bytes, const std::string& path) {
    const XmlScan scan = scanXml(bytes);
    if (!scan.fault.empty()) {
        mError = path + ": line " + std::to_string(scan.faultLine) + ": " + scan.fault;
        return;
    }
    const ParserErrors errors;
    ParserFeed feed(bytes.data(), scan.end, errors);
    mDocument.reset(xmlReadIO(&ParserFeed::read, nullptr, &feed, path.c_str(), kEncoding,
                              parserOptions(bytes)));
    if (mDocument == nullptr) {
        mError = path + ": " + (errors.first().empty() ? "not an XML document" : errors.first());
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
