#define LOG_TAG "SonorelText"

#include <qelto/PolicyText.h>

#include <cmath>
#include <locale>
#include <sstream>
#include <string>
#include <string_view>

#include <log/log.h>

namespace android {
namespace {

constexpr int kLoggedBytes = 32;

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

std::string_view withoutLeadingBlanks(std::string_view text) {
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    return text;
}

// Cuts the next item off the front of *text, with the separator behind it.
std::string_view nextItem(std::string_view* text) {
    size_t length = 0;
    while (length < text->size() && (*text)[length] != ',' && !isBlank((*text)[length]))
        ++length;
    const std::string_view item = text->substr(0, length);
    *text = withoutLeadingBlanks(text->substr(length));
    if (!text->empty() && text->front() == ',') *text = withoutLeadingBlanks(text->substr(1));
    return item;
}

// A decimal number, with or without an exponent, which a float can hold.
bool parseFinite(std::string_view item, float* outNumber) {
    if (!item.empty() && item.front() == '+') item.remove_prefix(1);
    if (item.empty() || item.find_first_not_of("-.0123456789eE+") != std::string_view::npos ||
        item.front() == '+') {
        return false;
    }
    // Not every C++ library has from_chars for floats, and strtof follows the process's locale.
    std::istringstream stream{std::string(item)};
    stream.imbue(std::locale::classic());
    float number = 0.0f;
    if (!(stream >> number) || stream.peek() != std::istringstream::traits_type::eof())
        return false;
    const bool isZero = item.substr(0, item.find_first_of("eE")).find_first_of("123456789") ==
                        std::string_view::npos;
    if (!std::isfinite(number) || (number == 0.0f && !isZero)) return false;
    *outNumber = number;
    return true;
}

}  // namespace

int mssAudioParamInfoStringToArray(const char* text, float* out, int count) {
    if (text == nullptr || out == nullptr) return 0;
    int set = 0;
    int broken = 0;
    std::string_view firstBroken;
    std::string_view rest = withoutLeadingBlanks(text);
    for (int i = 0; i < count && !rest.empty(); ++i) {
        const std::string_view item = nextItem(&rest);
        if (parseFinite(item, &out[i])) {
            ++set;
        } else if (broken++ == 0) {
            firstBroken = item.substr(0, kLoggedBytes);
        }
    }
    if (broken > 0) {
        ALOGW("%s: %d values left as they were, the first is no finite number: '%.*s'", __func__,
              broken, static_cast<int>(firstBroken.size()), firstBroken.data());
    }
    return set;
}

}  // namespace android
