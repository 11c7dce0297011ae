#pragma once

#include <chrono>
#include <functional>

namespace sonorel::test {

// How long a test waits for an event that must come. Only a broken build ever waits this long, so
// it is generous enough for a sanitizer build on a busy machine.
constexpr std::chrono::milliseconds kEventDeadline{30000};

// Asks `predicate` again and again until it is true or `within` has passed; returns its last
// answer. Only for conditions that announce themselves by no event; everything else waits on the
// event.
[[nodiscard]] bool eventually(const std::function<bool()>& predicate,
                              std::chrono::milliseconds within = kEventDeadline);

}  // namespace sonorel::test
