#include "support/Wait.h"

#include <thread>

namespace sonorel::test {

bool eventually(const std::function<bool()>& predicate, std::chrono::milliseconds within) {
    const auto end = std::chrono::steady_clock::now() + within;
    while (!predicate()) {
        if (std::chrono::steady_clock::now() >= end) return predicate();
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

}  // namespace sonorel::test
