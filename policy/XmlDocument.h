// A configuration file as a libxml2 document, read so that no file can hurt the process.
#pragma once

#include <cstddef>
#include <cstring>
#include <memory>
#include <string>

#include <libxml/tree.h>
#include <sys/stat.h>
#include <time.h>

namespace android {

struct XmlFreeDoc {
    void operator()(xmlDoc* document) const;
};

struct XmlFreeText {
    void operator()(xmlChar* text) const;
};

// Tells one state of one file from every other, as far as the file system can: a file that was
// replaced or written to has another stamp.
struct DocumentStamp {
    DocumentStamp() = default;
    explicit DocumentStamp(const struct stat& status);

    bool operator==(const DocumentStamp& other) const;

    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec modified{};
    timespec changed{};
};

// Owns a parsed document, or says why there is none. The parser gets the encoding UTF-8 and
// pedantic checks: it substitutes no entity, loads no external one and asks no network. Nothing is
// printed; the process's libxml2 settings are as before afterwards. Any thread; one object is used
// by one thread at a time.
//
// No file, whether it is accepted or refused, costs more than four times the time of a plain one of
// its size: what would is refused by the bounds of XmlBounds.h, before libxml2 sees it, or after a
// few faults that libxml2 finds.
//
//     XmlDocument document = XmlDocument::readFile(path);
//     if (!document) return document.error();
//     for (xmlNode* item = document.root()->children; ...)
class XmlDocument {
public:
    // Reads a regular file of at most kMaxFileSize bytes. Anything else under that name (a folder,
    // a pipe, a device) is refused without waiting for it.
    [[nodiscard]] static XmlDocument readFile(const std::string& path);
    // The first half of readFile: the file's bytes, or false and why there are none. The
    // stamp is that of the file that was opened; it stays as it was when there is none.
    [[nodiscard]] static bool readBytes(const std::string& path, std::string* outBytes,
                                        std::string* outError, DocumentStamp* outStamp = nullptr);
    // Parses bytes; `name` stands for the file in error().
    [[nodiscard]] static XmlDocument readMemory(const char* bytes, size_t size,
                                                const std::string& name);

    explicit operator bool() const { return mDocument != nullptr; }
    // Null when the document has no element.
    xmlNode* root() const;
    // Why there is no document, with file and line; "" when there is one.
    const std::string& error() const { return mError; }

    // Well above any real file, and small enough to hold in memory.
    static constexpr size_t kMaxFileSize = size_t{64} << 20;
    // What the entity references of a document may expand to, all in all: a node counts as one byte
    // beside its text. A document that would expand further is refused, before anyone expands it.
    static constexpr size_t kMaxEntityText = size_t{128} << 10;

private:
    void parse(const std::string& bytes, const std::string& path);

    std::unique_ptr<xmlDoc, XmlFreeDoc> mDocument;
    std::string mError;
};

// The text content of an element, or the value of an attribute. Points into the document where it
// can, so the document has to outlive it.
class XmlText {
public:
    explicit XmlText(const xmlNode* element);
    explicit XmlText(const xmlAttr* attribute);

    // Null only if libxml2 ran out of memory.
    const char* get() const { return mText; }

private:
    std::unique_ptr<xmlChar, XmlFreeText> mOwned;
    const char* mText;
};

// True for an element of that name; every other kind of node carries no value. Inline for its first
// comparison, which settles nearly every call.
inline bool isElement(const xmlNode* node, const char* name) {
    if (node->type != XML_ELEMENT_NODE) return false;
    const char* nodeName = reinterpret_cast<const char*>(node->name);
    return nodeName[0] == name[0] && std::strcmp(nodeName, name) == 0;
}

}  // namespace android
