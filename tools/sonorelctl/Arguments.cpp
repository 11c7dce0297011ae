#include "sonorelctl/Arguments.h"

#include <algorithm>
#include <charconv>
#include <system_error>
#include <utility>

namespace sonorel::ctl {
namespace {

// The whole text, or nothing.
template <typename Number>
bool parseNumber(const std::string& text, const char* kind, Number* outValue,
                 std::string* outError) {
    Number value{};
    const char* end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, value);
    if (error == std::errc::result_out_of_range) {
        *outError = "'" + text + "' is out of range for " + kind;
        return false;
    }
    if (error != std::errc() || stopped != end) {
        *outError = "'" + text + "' is not " + kind;
        return false;
    }
    *outValue = value;
    return true;
}

template <typename T>
bool parseVector(const std::string& text, std::vector<T>* outValues, std::string* outError) {
    std::vector<T> values;
    size_t start = 0;
    while (!text.empty() && start <= text.size()) {
        const size_t comma = std::min(text.find(',', start), text.size());
        if (!parseArgument(text.substr(start, comma - start), &values.emplace_back(), outError)) {
            return false;
        }
        start = comma + 1;
    }
    *outValues = std::move(values);
    return true;
}

}  // namespace

bool parseArgument(const std::string& text, bool* outValue, std::string* outError) {
    if (text != "true" && text != "false") {
        *outError = "'" + text + "' is neither true nor false";
        return false;
    }
    *outValue = text == "true";
    return true;
}

bool parseArgument(const std::string& text, int8_t* outValue, std::string* outError) {
    return parseNumber(text, "an integer of 8 bits", outValue, outError);
}

bool parseArgument(const std::string& text, int32_t* outValue, std::string* outError) {
    return parseNumber(text, "an integer of 32 bits", outValue, outError);
}

bool parseArgument(const std::string& text, int64_t* outValue, std::string* outError) {
    return parseNumber(text, "an integer of 64 bits", outValue, outError);
}

bool parseArgument(const std::string& text, float* outValue, std::string* outError) {
    return parseNumber(text, "a 32-bit float", outValue, outError);
}

bool parseArgument(const std::string& text, std::string* outValue, std::string*) {
    *outValue = text;
    return true;
}

bool parseArgument(const std::string& text, std::vector<float>* outValue, std::string* outError) {
    return parseVector(text, outValue, outError);
}

bool parseArgument(const std::string& text, std::vector<int32_t>* outValue, std::string* outError) {
    return parseVector(text, outValue, outError);
}

}  // namespace sonorel::ctl
