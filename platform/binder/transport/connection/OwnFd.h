#pragma once

namespace android::transport {

/**
 * A descriptor of the transport. Closes it in the end, and at once in a child of fork(): a child
 * that kept a socket would hide its parent's death from the peers, and one that kept the manager's
 * lock would hold the name.
 */
class OwnFd {
public:
    OwnFd() = default;
    explicit OwnFd(int fd);
    OwnFd(const OwnFd&) = delete;
    OwnFd& operator=(const OwnFd&) = delete;
    OwnFd(OwnFd&& other) noexcept;
    OwnFd& operator=(OwnFd&& other) noexcept;
    ~OwnFd() { reset(); }

    [[nodiscard]] int get() const { return mFd; }
    void reset();

private:
    int mFd = -1;
};

/**
 * True in a child of fork() that has not called exec, once its parent had an OwnFd: nothing of the
 * transport works there, and no thread of it runs.
 */
[[nodiscard]] bool isForkedChild();

}  // namespace android::transport
