#include "support/ScopedEnv.h"

#include <cstdlib>

namespace sonorel::test {

// The class's contract is that no other thread reads the environment meanwhile.
// NOLINTBEGIN(concurrency-mt-unsafe)
ScopedEnv::ScopedEnv(const std::string& name, const std::string& value)
        : mName(name), mWasSet(getenv(name.c_str()) != nullptr) {
    if (mWasSet) mEarlier = getenv(name.c_str());
    setenv(name.c_str(), value.c_str(), 1);
}

ScopedEnv::~ScopedEnv() {
    if (mWasSet) {
        setenv(mName.c_str(), mEarlier.c_str(), 1);
    } else {
        unsetenv(mName.c_str());
    }
}
// NOLINTEND(concurrency-mt-unsafe)

}  // namespace sonorel::test
