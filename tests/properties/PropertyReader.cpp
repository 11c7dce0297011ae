// Prints, one line KEY=VALUE each, the properties that $KEYS names, as they stood during static
// initialisation.
#include <cutils/properties.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

namespace {

std::string report() {
    const char* keys = getenv("KEYS");  // NOLINT(concurrency-mt-unsafe): before main
    std::istringstream names(keys == nullptr ? "" : keys);
    std::string text;
    for (std::string name; names >> name;) {
        std::array<char, PROPERTY_VALUE_MAX> value{};
        property_get(name.c_str(), value.data(), "(default)");
        text += name + "=" + value.data() + "\n";
    }
    return text;
}

const std::string kReport = report();

}  // namespace

int main() {
    (void)fputs(kReport.c_str(), stdout);
    return 0;
}
