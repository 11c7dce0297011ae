#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <utils/String8.h>

namespace android {

// Writes one JSON value into a growing buffer, front to back, without an object tree. The caller
// opens and closes what it began; commas are the writer's business. Forms of numbers and strings:
// see <qelto/PolicyText.h>.
class JsonWriter {
public:
    explicit JsonWriter(size_t expectedBytes) { mText.reserve(expectedBytes); }

    void beginObject() { open('{'); }
    void endObject() { close('}'); }
    void beginArray() { open('['); }
    void endArray() { close(']'); }

    // A key that is known to need no escaping.
    void key(std::string_view plainName);
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

    const std::string& text() const { return mText; }
    void copyTo(String8* out) const { out->setTo(mText.data(), mText.size()); }

private:
    void open(char bracket);
    void close(char bracket);
    void separate();
    void raw(std::string_view token);
    void quoted(std::string_view bytes);

    std::string mText;
    bool mNeedComma = false;
};

}  // namespace android
