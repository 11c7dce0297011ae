#include "policy/XmlBounds.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <random>
#include <string_view>
#include <vector>

namespace android {
namespace {

constexpr bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

constexpr bool endsName(char c) {
    return isBlank(c) || c == '\0' || c == '<' || c == '>' || c == '/' || c == '=' || c == '?' ||
           c == '"' || c == '\'' || c == '&' || c == ';' || c == '[' || c == ']' || c == '%';
}

constexpr std::array<bool, 256> makeNameEnds() {
    std::array<bool, 256> ends{};
    for (int i = 0; i < 256; ++i)
        ends[static_cast<size_t>(i)] = endsName(static_cast<char>(i));
    return ends;
}

constexpr std::array<bool, 256> kNameEnds = makeNameEnds();

// Counts different names by their hashes. The seed keeps the author of a file from choosing names
// that share one.
class NameCounter {
public:
    // False when this is one name too many.
    bool add(std::string_view name) {
        const uint64_t hash = hashOf(name);
        size_t row = hash % kRows;
        while (mHashes[row] != 0) {
            if (mHashes[row] == hash) return true;
            row = (row + 1) % kRows;
        }
        mHashes[row] = hash;
        return ++mCount <= kMaxXmlNames;
    }

private:
    static constexpr size_t kRows = 4 * kMaxXmlNames;

    static uint64_t hashOf(std::string_view name) {
        static const uint64_t kSeed = (uint64_t{std::random_device()()} << 32) | 1U;
        constexpr uint64_t kFactor = 0x9E3779B97F4A7C15;
        uint64_t hash = kSeed + name.size();
        while (!name.empty()) {
            const size_t length = std::min(name.size(), sizeof(uint64_t));
            uint64_t word = 0;
            if (length == sizeof(word)) {
                std::memcpy(&word, name.data(), sizeof(word));
            } else {
                for (const char c : name)
                    word = word << 8 | static_cast<unsigned char>(c);
            }
            hash = (hash ^ word) * kFactor;
            hash ^= hash >> 32;
            name.remove_prefix(length);
        }
        return hash != 0 ? hash : 1;
    }

    std::vector<uint64_t> mHashes = std::vector<uint64_t>(kRows);
    size_t mCount = 0;
};

// Walks the markup from front to back. A step returns false when the walk is over: a bound is
// crossed, or here is no XML.
class Scanner {
public:
    // The byte behind the last one is a zero, as in every std::string. No XML holds a zero.
    explicit Scanner(const std::string& bytes)
            : mBegin(bytes.data()),
              mEnd(mBegin + std::strlen(mBegin)),
              mAt(mBegin),
              mReference(find(mBegin, '&')),
              mUnpaid(bytes.size() + kFreeXmlBytes) {}

    XmlScan run() {
        while (step())
            continue;
        XmlScan scan;
        scan.fault = mFault;
        scan.end = static_cast<size_t>(std::min(mAt + 1, mEnd) - mBegin);
        scan.faultLine = 1 + static_cast<size_t>(std::count(mBegin, std::min(mAt, mEnd), '\n'));
        return scan;
    }

private:
    const char* find(const char* from, char what) const {
        const void* found = std::memchr(from, what, static_cast<size_t>(mEnd - from));
        return found != nullptr ? static_cast<const char*>(found) : mEnd;
    }

    bool startsWith(std::string_view what) const {
        return std::string_view(mAt, static_cast<size_t>(mEnd - mAt)).substr(0, what.size()) ==
               what;
    }

    bool fail(const char* what, size_t bound) {
        mFault = "more than " + std::to_string(bound) + " " + what;
        return false;
    }

    // Text up to the next markup, and that.
    bool step() {
        const char* markup = find(mAt, '<');
        if (!passReferences(markup)) return false;
        mAt = markup;
        if (mAt == mEnd) return false;
        switch (mAt[1]) {
            case '/':
                if (mDepth > 0) --mDepth;
                mAt += 2;
                return true;
            case '!':
                return passSpecial();
            case '?':
                return passInstruction();
            default:
                ++mAt;
                return passStartTag();
        }
    }

    // References to entities up to `end`.
    bool passReferences(const char* end) {
        for (; mReference < end; mReference = find(mReference + 1, '&')) {
            if (isOwnReference(mReference + 1)) continue;
            if (++mReferences <= kMaxXmlReferences) continue;
            mAt = mReference;
            return fail("references to entities", kMaxXmlReferences);
        }
        return true;
    }

    // A character's number or one of the five names that XML itself defines: no node of its own.
    bool isOwnReference(const char* name) const {
        const std::string_view rest(name, std::min<size_t>(static_cast<size_t>(mEnd - name), 5));
        if (rest.substr(0, 1) == "#") return true;
        for (const std::string_view own : {"lt;", "gt;", "amp;", "quot;", "apos;"}) {
            if (rest.substr(0, own.size()) == own) return true;
        }
        return false;
    }

    // Everything to the end of `mark`, in which '&' means nothing.
    bool passTo(std::string_view mark) {
        const std::string_view rest(mAt, static_cast<size_t>(mEnd - mAt));
        const size_t found = rest.find(mark);
        mAt = found == std::string_view::npos ? mEnd : mAt + found + mark.size();
        if (mReference < mAt) mReference = find(mAt, '&');
        return mAt < mEnd;
    }

    bool passSpecial() {
        if (startsWith("<!--")) {
            mAt += 4;
            return passTo("-->");
        }
        if (startsWith("<![CDATA[")) {
            mAt += 9;
            return passTo("]]>");
        }
        return startsWith("<!DOCTYPE") && passDocumentType();
    }

    bool passInstruction() {
        mAt += 2;
        return passName() && passTo("?>");
    }

    bool passName() {
        const char* begin = mAt;
        while (!kNameEnds[static_cast<unsigned char>(*mAt)])
            ++mAt;
        if (mAt == begin) return false;
        if (mNames.add({begin, static_cast<size_t>(mAt - begin)})) return true;
        return fail("different names", kMaxXmlNames);
    }

    void passBlanks() {
        while (isBlank(*mAt))
            ++mAt;
    }

    // False once elements and attributes are too many for the size of the file.
    bool payFor(size_t bytes) {
        if (bytes <= mUnpaid) {
            mUnpaid -= bytes;
            return true;
        }
        mFault = "more elements or attributes than one for " + std::to_string(bytes) + " bytes";
        return false;
    }

    bool passStartTag() {
        if (!payFor(kMinXmlElementBytes) || !passName()) return false;
        for (size_t attributes = 0; *mAt != '>'; ++attributes) {
            passBlanks();
            if (*mAt == '>') break;
            if (mAt[0] == '/' && mAt[1] == '>') {
                mAt += 2;
                return true;
            }
            if (attributes == kMaxXmlAttributes) return fail("attributes", kMaxXmlAttributes);
            if (!passAttribute()) return false;
        }
        ++mAt;
        if (++mDepth > kMaxXmlNamespaceDepth && mReserved > 0) {
            return fail("elements inside each other, with namespaces", kMaxXmlNamespaceDepth);
        }
        return true;
    }

    bool passAttribute() {
        if (!payFor(kMinXmlAttributeBytes)) return false;
        if (startsWith("xml") && ++mReserved > kMaxXmlReservedAttributes) {
            return fail("attributes of XML itself", kMaxXmlReservedAttributes);
        }
        if (!passName()) return false;
        passBlanks();
        if (*mAt != '=') return false;
        ++mAt;
        passBlanks();
        if (*mAt != '"' && *mAt != '\'') return false;
        const char* close = find(mAt + 1, *mAt);
        if (!passReferences(close)) return false;
        mAt = close;
        if (mAt == mEnd) return false;
        ++mAt;
        return true;
    }

    // The document type with its declarations. What its entities hold is markup that is read again
    // elsewhere, so attributes are counted in there too.
    bool passDocumentType() {
        const char* limit = mAt + kMaxXmlDocumentType;
        bool isInside = false;
        for (++mAt; mAt < mEnd; ++mAt) {
            if (mAt > limit) return fail("bytes of document type", kMaxXmlDocumentType);
            if (*mAt == '"' || *mAt == '\'') {
                if (!passLiteral()) return false;
            } else if (*mAt == '[' || *mAt == ']') {
                isInside = *mAt == '[';
            } else if (*mAt == '<' || *mAt == '%') {
                if (!passDeclaration()) return false;
            } else if (*mAt == '>' && !isInside) {
                ++mAt;
                return true;
            }
        }
        return false;
    }

    // Stays on the last byte.
    bool passLiteral() {
        const char* close = find(mAt + 1, *mAt);
        for (const char* at = mAt; at < close; ++at) {
            if (*at != '=' && !(at[0] == '&' && at[1] == '#')) continue;
            if (++mEntityAttributes <= kMaxXmlAttributes) continue;
            mAt = at;
            return fail("attributes in entities", kMaxXmlAttributes);
        }
        if (!passReferences(close)) return false;
        mAt = close;
        return mAt < mEnd;
    }

    // The beginning of a declaration, a comment, or a reference to a parameter entity. Stays on the
    // last byte of what it passed.
    bool passDeclaration() {
        if (startsWith("<!--") || startsWith("<?")) {
            const bool isComment = mAt[1] == '!';
            mAt += isComment ? 4 : 2;
            const bool goesOn = passTo(isComment ? "-->" : "?>");
            --mAt;
            return goesOn;
        }
        if (++mDeclarations > kMaxXmlDeclarations) {
            return fail("declarations", kMaxXmlDeclarations);
        }
        // Defaults and identifiers: each would be added to every element of a name.
        if (startsWith("<!ATTLIST")) return fail("attribute declarations", 0);
        if (*mAt == '%') return passParameterEntity();
        return true;
    }

    // One that lies outside is never read; one with a value of its own multiplies declarations.
    bool passParameterEntity() {
        const char* at = mAt + 1;
        if (!isBlank(*at)) return true;
        while (isBlank(*at))
            ++at;
        while (!kNameEnds[static_cast<unsigned char>(*at)])
            ++at;
        while (isBlank(*at))
            ++at;
        if (*at == '"' || *at == '\'') return fail("parameter entities", 0);
        return true;
    }

    const char* const mBegin;
    const char* const mEnd;
    const char* mAt;
    const char* mReference;  // the next '&' that was not passed
    size_t mUnpaid;
    NameCounter mNames;
    size_t mDepth = 0;
    size_t mReserved = 0;
    size_t mReferences = 0;
    size_t mEntityAttributes = 0;
    size_t mDeclarations = 0;
    std::string mFault;
};

}  // namespace

XmlScan scanXml(const std::string& bytes) {
    return Scanner(bytes).run();
}

}  // namespace android
