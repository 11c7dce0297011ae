#include "SocketIo.h"

#include <errno.h>
#include <string.h>
#include <sys/socket.h>

#include "FlakeDelay.h"
#include "Wire.h"

namespace android::transport {

ssize_t sendMessage(int socket, iovec* parts, int count, const int* descriptors,
                    size_t descriptorCount, int flags) {
    alignas(cmsghdr) char ancillary[CMSG_SPACE(kMaxDescriptors * sizeof(int))];
    msghdr message = {};
    message.msg_iov = parts;
    message.msg_iovlen = count;
    if (descriptorCount > 0) {
        message.msg_control = ancillary;
        message.msg_controllen = CMSG_SPACE(descriptorCount * sizeof(int));
        cmsghdr* const header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(descriptorCount * sizeof(int));
        memcpy(CMSG_DATA(header), descriptors, descriptorCount * sizeof(int));
    }
    flakeDelay();
    ssize_t sent;
    do {
        sent = sendmsg(socket, &message, flags | MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    return sent < 0 ? -errno : sent;
}

ssize_t receiveMessage(int socket, void* room, size_t size, int flags,
                       std::vector<base::unique_fd>* outDescriptors, bool* outLost) {
    alignas(cmsghdr) char ancillary[CMSG_SPACE(kMaxDescriptors * sizeof(int))];
    iovec part = {room, size};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = ancillary;
    message.msg_controllen = sizeof(ancillary);
    flakeDelay();
    ssize_t got;
    do {
        got = recvmsg(socket, &message, flags | MSG_CMSG_CLOEXEC);
    } while (got < 0 && errno == EINTR);
    if (got < 0) return -errno;
    if (message.msg_controllen == 0) return got;
    if ((message.msg_flags & MSG_CTRUNC) != 0) *outLost = true;
    for (cmsghdr* header = CMSG_FIRSTHDR(&message); header != nullptr;
         header = CMSG_NXTHDR(&message, header)) {
        if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS) continue;
        const size_t count = (header->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (size_t i = 0; i < count; ++i) {
            int fd;
            memcpy(&fd, CMSG_DATA(header) + i * sizeof(int), sizeof(fd));
            outDescriptors->emplace_back(fd);
        }
    }
    return got;
}

}  // namespace android::transport
