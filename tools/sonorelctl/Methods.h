#pragma once

#include <binder/Status.h>
#include <qelto/halvend/ISonorelService.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "sonorelctl/Json.h"

namespace sonorel::ctl {

// A call whose arguments are parsed. Calls the service on this thread; on an ok status outResult
// becomes an object with the return value under "return" and each out-vector under its name.
using Call = std::function<android::binder::Status(qelto::halvend::ISonorelService& service,
                                                   Json* outResult)>;

// One method of the service, driven from text.
struct Method {
    const char* name;
    // "setMssEnable(string pkgName, boolean enable) -> int"
    std::string signature;
    // Makes the call from one text for each parameter or, with a size, for each parameter that is
    // no out-vector; the out-vectors then have that many zeros. Empty with the reason in outError
    // when the texts do not fit.
    std::function<Call(const std::vector<std::string>& texts, std::optional<size_t> size,
                       std::string* outError)>
            prepare;
};

// All methods, in the order of their transaction codes.
const std::vector<Method>& methods();

// Null when there is none of this name.
const Method* findMethod(const std::string& name);

}  // namespace sonorel::ctl
