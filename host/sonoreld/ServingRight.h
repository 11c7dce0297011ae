#pragma once

#include <sys/types.h>

#include <string>

namespace sonorel::host {

// The right to serve in one runtime folder, which one sonoreld of a user has at a time: a lock on a
// file in the folder, which the kernel takes back however the process ends, and whose holder it
// names. Processes of another user have a lock of their own. Construct one, and never destroy it:
// closing the file would give the right up.
class ServingRight {
public:
    explicit ServingRight(const std::string& folder);
    ~ServingRight() = default;
    ServingRight(const ServingRight&) = delete;
    ServingRight& operator=(const ServingRight&) = delete;

    // 0 when this process now has the right, or when the folder holds no usable file; else the
    // process that has it. One that is about to leave is waited for, for three seconds at most.
    [[nodiscard]] pid_t take();

    // Lets others know that this process is about to end. Any thread.
    void announceLeaving();

private:
    int mFile;  // -1 without one
};

}  // namespace sonorel::host
