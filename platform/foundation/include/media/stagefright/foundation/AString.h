#pragma once

#include <stdarg.h>
#include <sys/types.h>

#include <string>

namespace android {

// A text of bytes, the string type of messages. Not thread-safe.
class AString {
public:
    AString() = default;
    AString(const char* s) : mData(s) {}
    AString(const char* s, size_t size) : mData(s, size) {}
    AString(const AString& from, size_t offset, size_t size);

    void setTo(const char* s) { mData = s; }
    void setTo(const char* s, size_t size) { mData.assign(s, size); }
    void setTo(const AString& from, size_t offset, size_t size);

    size_t size() const { return mData.size(); }
    const char* c_str() const { return mData.c_str(); }
    bool empty() const { return mData.empty(); }
    void clear() { mData.clear(); }

    // Removes the blanks at both ends.
    void trim();
    // Offsets lie within the text.
    void erase(size_t start, size_t size) { mData.erase(start, size); }
    void insert(const AString& from, size_t position) { mData.insert(position, from.mData); }
    void insert(const char* from, size_t size, size_t position) {
        mData.insert(position, from, size);
    }

    void append(char c) { mData.push_back(c); }
    void append(const char* s) { mData.append(s); }
    void append(const char* s, size_t size) { mData.append(s, size); }
    void append(const AString& from) { mData.append(from.mData); }
    void append(const AString& from, size_t offset, size_t size);
    void append(int x) { mData.append(std::to_string(x)); }
    void append(unsigned x) { mData.append(std::to_string(x)); }
    void append(long x) { mData.append(std::to_string(x)); }
    void append(unsigned long x) { mData.append(std::to_string(x)); }
    void append(long long x) { mData.append(std::to_string(x)); }
    void append(unsigned long long x) { mData.append(std::to_string(x)); }

    // The offset of the first `substring` at or behind `start`, -1 when there is none.
    ssize_t find(const char* substring, size_t start = 0) const;

    size_t hash() const { return std::hash<std::string>()(mData); }
    int compare(const AString& other) const { return mData.compare(other.mData); }
    bool startsWith(const char* prefix) const;
    bool endsWith(const char* suffix) const;
    void tolower();

    bool operator==(const AString& other) const { return mData == other.mData; }
    bool operator!=(const AString& other) const { return mData != other.mData; }
    bool operator<(const AString& other) const { return mData < other.mData; }
    bool operator>(const AString& other) const { return mData > other.mData; }

private:
    std::string mData;
};

AString AStringPrintf(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace android
