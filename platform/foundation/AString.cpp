#include <media/stagefright/foundation/AString.h>

#include <algorithm>
#include <cctype>
#include <cstdarg>
#include <cstring>

#include <utils/String8.h>

namespace android {

AString::AString(const AString& from, size_t offset, size_t size)
        : mData(from.mData.substr(offset, size)) {}

void AString::setTo(const AString& from, size_t offset, size_t size) {
    mData = from.mData.substr(offset, size);
}

void AString::append(const AString& from, size_t offset, size_t size) {
    mData.append(from.mData.substr(offset, size));
}

void AString::trim() {
    const auto isBlank = [](unsigned char c) { return std::isspace(c) != 0; };
    mData.erase(std::find_if_not(mData.rbegin(), mData.rend(), isBlank).base(), mData.end());
    mData.erase(mData.begin(), std::find_if_not(mData.begin(), mData.end(), isBlank));
}

ssize_t AString::find(const char* substring, size_t start) const {
    const size_t found = mData.find(substring, start);
    return found == std::string::npos ? -1 : static_cast<ssize_t>(found);
}

bool AString::startsWith(const char* prefix) const {
    return mData.compare(0, strlen(prefix), prefix) == 0;
}

bool AString::endsWith(const char* suffix) const {
    const size_t size = strlen(suffix);
    return mData.size() >= size && mData.compare(mData.size() - size, size, suffix) == 0;
}

void AString::tolower() {
    std::transform(mData.begin(), mData.end(), mData.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
}

AString AStringPrintf(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const String8 text = String8::formatV(format, arguments);
    va_end(arguments);
    return {text.c_str(), text.size()};
}

}  // namespace android
