#include "JsonWriter.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <utility>

namespace android {
namespace {

// Holds any number in its shortest form.
constexpr size_t kNumberBytes = 32;

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

bool isContinuation(unsigned char byte) {
    return (byte & 0xC0) == 0x80;
}

// The length of the well-formed UTF-8 sequence at the front of `bytes`, 0 if there is none.
// Overlong forms, surrogates and values past U+10FFFF are not well-formed.
size_t sequenceLength(std::string_view bytes) {
    const auto at = [bytes](size_t i) { return static_cast<unsigned char>(bytes[i]); };
    const unsigned char lead = at(0);
    if (lead < 0x80) return 1;

    size_t length = 0;
    unsigned char secondMin = 0x80;
    unsigned char secondMax = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        if (lead == 0xE0) secondMin = 0xA0;
        if (lead == 0xED) secondMax = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        if (lead == 0xF0) secondMin = 0x90;
        if (lead == 0xF4) secondMax = 0x8F;
    }
    if (length == 0 || bytes.size() < length) return 0;
    if (at(1) < secondMin || at(1) > secondMax) return 0;
    for (size_t i = 2; i < length; ++i) {
        if (!isContinuation(at(i))) return 0;
    }
    return length;
}

bool isPlain(unsigned char byte) {
    return byte >= 0x20 && byte < 0x80 && byte != '"' && byte != '\\';
}

}  // namespace

void JsonWriter::grow(size_t bytes) {
    const size_t capacity = std::max(2 * mCapacity, mSize + bytes);
    std::unique_ptr<char[]> text(new char[capacity]);
    std::memcpy(text.get(), mText.get(), mSize);
    mText = std::move(text);
    mCapacity = capacity;
}

void JsonWriter::open(char bracket) {
    separate();
    append(bracket);
    mNeedComma = false;
}

void JsonWriter::close(char bracket) {
    append(bracket);
    mNeedComma = true;
}

void JsonWriter::key(int number) {
    char digits[kNumberBytes];
    const auto end = std::to_chars(digits, digits + sizeof(digits), number).ptr;
    key(std::string_view(digits, static_cast<size_t>(end - digits)));
}

void JsonWriter::keyBytes(std::string_view bytes) {
    separate();
    quoted(bytes);
    append(':');
    mNeedComma = false;
}

void JsonWriter::value(int32_t number) {
    separate();
    char* const at = claim(kNumberBytes);
    finish(std::to_chars(at, at + kNumberBytes, number).ptr);
}

void JsonWriter::value(float number) {
    if (std::isnan(number)) return raw("\"NaN\"");
    if (std::isinf(number)) return raw(number > 0 ? "\"Infinity\"" : "\"-Infinity\"");
    // Readers that take "-0" for an integer would lose the sign.
    if (number == 0.0f && std::signbit(number)) return raw("-0.0");
    separate();
    char* const at = claim(kNumberBytes);
    finish(std::to_chars(at, at + kNumberBytes, number).ptr);
}

void JsonWriter::valueBytes(std::string_view bytes) {
    separate();
    quoted(bytes);
}

void JsonWriter::appendEscaped(unsigned char byte) {
    switch (byte) {
        case '"':
            return append("\\\"");
        case '\\':
            return append("\\\\");
        case '\n':
            return append("\\n");
        case '\r':
            return append("\\r");
        case '\t':
            return append("\\t");
        default:
            break;
    }
    constexpr char kHex[] = "0123456789abcdef";
    append("\\u00");
    append(kHex[byte >> 4]);
    append(kHex[byte & 0xF]);
}

void JsonWriter::quoted(std::string_view bytes) {
    append('"');
    while (!bytes.empty()) {
        size_t plain = 0;
        while (plain < bytes.size() && isPlain(static_cast<unsigned char>(bytes[plain])))
            ++plain;
        append(bytes.substr(0, plain));
        bytes.remove_prefix(plain);
        if (bytes.empty()) break;

        const size_t length = sequenceLength(bytes);
        if (length > 1) {
            append(bytes.substr(0, length));
        } else if (length == 1) {
            appendEscaped(static_cast<unsigned char>(bytes[0]));
        } else {
            append(kReplacement);
        }
        bytes.remove_prefix(length > 0 ? length : 1);
    }
    append('"');
}

}  // namespace android
