// The service's interface as its definition has it, for tables that must follow it.
#pragma once

#include <string>
#include <vector>

namespace sonorel::test {

// "setMssEnable(String pkgName, boolean enable) -> int", in the order of the transaction codes.
std::vector<std::string> definedSignatures();
// The names alone.
std::vector<std::string> definedMethods();

}  // namespace sonorel::test
