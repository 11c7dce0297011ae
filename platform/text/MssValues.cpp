#define LOG_TAG "SonorelText"

#include <qelto/PolicyText.h>

#include <charconv>
#include <cmath>
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

bool parseFinite(std::string_view item, float* outNumber) {
    if (!item.empty() && item.front() == '+') item.remove_prefix(1);
    float number = 0.0f;
    const char* end = item.data() + item.size();
    // Unlike strtof, this reads the same whatever the process's locale says.
    const auto result = std::from_chars(item.data(), end, number);
    if (result.ec != std::errc() || result.ptr != end || !std::isfinite(number)) return false;
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
