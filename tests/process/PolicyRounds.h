#pragma once

#include <cstdint>

#include "process/ProcessTest.h"

namespace sonorel::test {

// Reloads of the online policy file by several processes and several threads at once.
class PolicyRounds : public ProcessTest {
protected:
    // In each round the file is replaced while callers reload the one before; what is served
    // afterwards is the new one.
    void replaceDuringReloads(int rounds, uint32_t seed);
    // After 40 reloads on all threads of the pool little more stays resident than after one.
    void reloadFromManyThreads();

private:
    void deliver(const std::string& text) const;
    bool update();
    std::string sceneMap();
};

}  // namespace sonorel::test
