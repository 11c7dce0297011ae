// Bounds that no honest configuration file meets, checked on its bytes before libxml2 sees them:
// the parser's cost grows with the square of some counts, and a small file may ask for much memory.
#pragma once

#include <cstddef>
#include <string>

namespace android {

// libxml2 compares each attribute of a tag with those before it.
inline constexpr size_t kMaxXmlAttributes = 32;
// Elements, attributes and processing instructions under different names: libxml2 looks each name
// up in a table that does not grow beyond 16,384 rows.
inline constexpr size_t kMaxXmlNames = 1024;
// Bytes of the file for each element and each attribute, the first few thousand bytes aside: a node
// takes thirty times the memory of the least element. The formats' own elements take at least six
// bytes, and nothing in them has attributes without text around it.
inline constexpr size_t kMinXmlElementBytes = 6;
inline constexpr size_t kMinXmlAttributeBytes = 12;
inline constexpr size_t kFreeXmlBytes = 8000;
// Attributes whose name begins with "xml", in the whole document: namespaces and identifiers, which
// are searched for one by one.
inline constexpr size_t kMaxXmlReservedAttributes = 256;
// Elements inside elements once there are such attributes: the search for a namespace climbs. Other
// documents may nest as deep as libxml2 allows.
inline constexpr size_t kMaxXmlNamespaceDepth = 32;
// References to entities other than the five of XML itself: each is a node of its own.
inline constexpr size_t kMaxXmlReferences = 4096;
// The document type: its bytes, and its declarations and references to parameter entities.
inline constexpr size_t kMaxXmlDocumentType = size_t{64} << 10;
inline constexpr size_t kMaxXmlDeclarations = 256;

// What was found. An empty fault allows the parser to read the bytes before `end`: all of them, or
// those up to the first that is no XML, which the parser then tells in its own words.
struct XmlScan {
    size_t end = 0;
    std::string fault;     // the bound that is crossed
    size_t faultLine = 0;  // counted from 1
};

// Takes time in proportion to the size. The bytes count as UTF-8, whatever they declare. Any
// thread.
[[nodiscard]] XmlScan scanXml(const std::string& bytes);

}  // namespace android
