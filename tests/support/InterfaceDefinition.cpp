#include "support/InterfaceDefinition.h"

#include <regex>

#include "support/ProjectFile.h"
#include "support/TempDir.h"

namespace sonorel::test {

std::vector<std::string> definedSignatures() {
    std::string text = readFile(projectFile("interfaces/qelto/halvend/ISonorelService.aidl"));
    text = std::regex_replace(text, std::regex(R"(/\*[^]*?\*/|//.*)"), "");
    text = std::regex_replace(text, std::regex(R"(@\w+ |oneway |\bin )"), "");
    std::vector<std::string> signatures;
    const std::regex method(R"(([\w\[\]]+) (\w+\([^)]*\));)");
    for (std::sregex_iterator it(text.begin(), text.end(), method), end; it != end; ++it) {
        const std::string result = (*it)[1];
        signatures.push_back((*it)[2].str() + (result == "void" ? "" : " -> " + result));
    }
    return signatures;
}

std::vector<std::string> definedMethods() {
    std::vector<std::string> names = definedSignatures();
    for (std::string& name : names)
        name.erase(name.find('('));
    return names;
}

}  // namespace sonorel::test
