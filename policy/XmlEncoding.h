#pragma once

#include <string>

namespace android {

// Whether the document's XML declaration names an encoding in which the bytes of ASCII mean other
// characters than in ASCII (UTF-7, an EBCDIC, one with escape sequences). libxml2 would then see
// other markup than a reader of the bytes does, and has to be told to ignore the name. An encoding
// that libxml2 does not know is none: libxml2 refuses it. Any thread.
[[nodiscard]] bool hidesMarkup(const std::string& document);

}  // namespace android
