#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace sonorel::ctl {

// One argument of a method, from its text on the command line. False with the reason in outError,
// and the value untouched, when the text is no value of the type. Vectors are separated by commas;
// the empty text is the empty vector.
[[nodiscard]] bool parseArgument(const std::string& text, bool* outValue, std::string* outError);
[[nodiscard]] bool parseArgument(const std::string& text, int8_t* outValue, std::string* outError);
[[nodiscard]] bool parseArgument(const std::string& text, int32_t* outValue, std::string* outError);
[[nodiscard]] bool parseArgument(const std::string& text, int64_t* outValue, std::string* outError);
[[nodiscard]] bool parseArgument(const std::string& text, float* outValue, std::string* outError);
[[nodiscard]] bool parseArgument(const std::string& text, std::string* outValue,
                                 std::string* outError);
[[nodiscard]] bool parseArgument(const std::string& text, std::vector<float>* outValue,
                                 std::string* outError);
[[nodiscard]] bool parseArgument(const std::string& text, std::vector<int32_t>* outValue,
                                 std::string* outError);

}  // namespace sonorel::ctl
