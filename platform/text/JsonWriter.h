#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>

#include <utils/String8.h>

namespace android {

// Writes one JSON value into a growing buffer, front to back, without an object tree. The caller
// opens and closes what it began; commas are the writer's business. Forms of numbers and strings:
// see <qelto/PolicyText.h>.
class JsonWriter {
public:
    explicit JsonWriter(size_t expectedBytes)
            : mText(new char[expectedBytes]), mCapacity(expectedBytes) {}

    void beginObject() { open('{'); }
    void endObject() { close('}'); }
    void beginArray() { open('['); }
    void endArray() { close(']'); }

    // A key that is known to need no escaping. Inline, so that a literal is copied as words.
    void key(std::string_view plainName) {
        char* at = claim(plainName.size() + 4);
        if (mNeedComma) *at++ = ',';
        *at++ = '"';
        std::memcpy(at, plainName.data(), plainName.size());
        at += plainName.size();
        *at++ = '"';
        *at++ = ':';
        finish(at);
        mNeedComma = false;
    }
    void key(int number);
    // A key of any bytes.
    void keyBytes(std::string_view bytes);

    void value(bool flag) { raw(flag ? "true" : "false"); }
    void value(int32_t number);
    void value(float number);
    void value(const String8& text) { valueBytes({text.c_str(), text.length()}); }
    void valueBytes(std::string_view bytes);
    void null() { raw("null"); }

    template <size_t N>
    void value(const float (&numbers)[N]) {
        beginArray();
        for (float number : numbers)
            value(number);
        endArray();
    }

    template <typename T>
    void field(std::string_view plainName, const T& fieldValue) {
        key(plainName);
        value(fieldValue);
    }

    void copyTo(String8* out) const { out->setTo(mText.get(), mSize); }

private:
    // Room for `bytes` more at the end of the text; finish() says how far it was filled.
    char* claim(size_t bytes) {
        if (mCapacity - mSize < bytes) grow(bytes);
        return mText.get() + mSize;
    }
    void finish(const char* end) { mSize = static_cast<size_t>(end - mText.get()); }
    void grow(size_t bytes);

    void open(char bracket);
    void close(char bracket);
    void append(char character) {
        *claim(1) = character;
        ++mSize;
    }
    void append(std::string_view bytes) {
        std::memcpy(claim(bytes.size()), bytes.data(), bytes.size());
        mSize += bytes.size();
    }
    void separate() {
        if (mNeedComma) append(',');
        mNeedComma = true;
    }
    void raw(std::string_view token) {
        separate();
        append(token);
    }
    void quoted(std::string_view bytes);
    void appendEscaped(unsigned char byte);

    std::unique_ptr<char[]> mText;
    size_t mCapacity;
    size_t mSize = 0;
    bool mNeedComma = false;
};

}  // namespace android
