#pragma once

#include <chrono>
#include <cstddef>

namespace android {

// Stores what the settings stores of this process still keep because another process held the file
// when it was written. For a host process that is about to end: nothing else would be left to do
// it. Waits for locked files for at most `within`, and beyond that only for calls that are under
// way and for a second where another process is just opening the file. Returns how many writes
// could not be stored, each of which is logged. Thread-safe.
size_t finishStoreWrites(std::chrono::milliseconds within);

}  // namespace android
