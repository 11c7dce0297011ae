#pragma once

#include <string>

namespace sonorel::test {

// Sets an environment variable of this process, and puts the earlier state back when it goes. Only
// while no other thread reads the environment.
class ScopedEnv {
public:
    ScopedEnv(const std::string& name, const std::string& value);
    ~ScopedEnv();
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    const std::string mName;
    bool mWasSet;
    std::string mEarlier;
};

}  // namespace sonorel::test
