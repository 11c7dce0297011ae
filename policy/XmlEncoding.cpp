#include "policy/XmlEncoding.h"

#include <libxml/encoding.h>
#include <libxml/tree.h>

#include <memory>
#include <string_view>

namespace android {
namespace {

struct FreeBuffer {
    void operator()(xmlBuffer* buffer) const { xmlBufferFree(buffer); }
};
using Buffer = std::unique_ptr<xmlBuffer, FreeBuffer>;

struct CloseEncoding {
    void operator()(xmlCharEncodingHandler* encoding) const { (void)xmlCharEncCloseFunc(encoding); }
};

// What may stand in a document, and the bytes that begin escape sequences, each alone between
// blanks: none may be taken together with what follows.
std::string probe() {
    std::string bytes;
    for (const char escape : {'\x0e', '\x0f', '\x1b'})
        bytes += {escape, ' '};
    for (char c = ' '; c < '\x7f'; ++c)
        bytes += {c, ' '};
    return bytes;
}

bool isUnlikeAscii(const std::string& name) {
    static const std::string& kProbe = *new std::string(probe());
    const std::unique_ptr<xmlCharEncodingHandler, CloseEncoding> encoding(
            xmlFindCharEncodingHandler(name.c_str()));
    if (encoding == nullptr) return false;
    const Buffer in(xmlBufferCreate());
    const Buffer out(xmlBufferCreate());
    if (in == nullptr || out == nullptr) return true;
    const auto* bytes = reinterpret_cast<const xmlChar*>(kProbe.data());
    if (xmlBufferAdd(in.get(), bytes, static_cast<int>(kProbe.size())) != 0) return true;
    if (xmlCharEncInFunc(encoding.get(), out.get(), in.get()) < 0) return true;
    const auto* text = reinterpret_cast<const char*>(xmlBufferContent(out.get()));
    return std::string_view(text, static_cast<size_t>(xmlBufferLength(out.get()))) != kProbe;
}

}  // namespace

bool hidesMarkup(const std::string& document) {
    constexpr std::string_view kKey = "encoding";
    constexpr std::string_view kBlanks = " \t\r\n";
    const std::string_view all = document;
    const size_t begin = all.find("<?xml");
    if (begin > sizeof("\xEF\xBB\xBF") - 1) return false;  // only the mark of UTF-8 may precede it
    const std::string_view declaration = all.substr(begin, all.find("?>", begin) - begin);
    // Each mention, as none of them has to be the one that libxml2 takes.
    for (size_t at = declaration.find(kKey); at != std::string_view::npos;
         at = declaration.find(kKey, at + 1)) {
        const size_t equals = declaration.find_first_not_of(kBlanks, at + kKey.size());
        if (equals == std::string_view::npos || declaration[equals] != '=') continue;
        const size_t quote = declaration.find_first_not_of(kBlanks, equals + 1);
        if (quote == std::string_view::npos) continue;
        const size_t end = declaration.find(declaration[quote], quote + 1);
        if (end == std::string_view::npos) continue;
        if (isUnlikeAscii(std::string(declaration.substr(quote + 1, end - quote - 1)))) return true;
    }
    return false;
}

}  // namespace android
