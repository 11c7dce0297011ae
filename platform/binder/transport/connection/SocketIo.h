#pragma once

#include <android-base/unique_fd.h>
#include <sys/types.h>
#include <sys/uio.h>

#include <vector>

namespace android::transport {

/**
 * One sendmsg of all parts, or as much as there is room for; the descriptors go with the first
 * byte. Bytes, or -errno.
 */
[[nodiscard]] ssize_t sendMessage(int socket, iovec* parts, int count, const int* descriptors,
                                  size_t descriptorCount, int flags);

/**
 * One recvmsg. Bytes, 0 at the end of the stream, or -errno. Adds the descriptors that came;
 * `outLost` is set when the kernel dropped some, as when this process has no room for more.
 */
[[nodiscard]] ssize_t receiveMessage(int socket, void* room, size_t size, int flags,
                                     std::vector<base::unique_fd>* outDescriptors, bool* outLost);

}  // namespace android::transport
