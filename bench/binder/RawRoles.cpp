#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

#include "Roles.h"

namespace sonorel::bench {

bool readExactly(int fd, void* bytes, size_t size) {
    auto* next = static_cast<char*>(bytes);
    while (size > 0) {
        const ssize_t got = read(fd, next, size);
        if (got <= 0) return false;
        next += got;
        size -= got;
    }
    return true;
}

bool writeExactly(int fd, const void* bytes, size_t size) {
    const auto* next = static_cast<const char*>(bytes);
    while (size > 0) {
        const ssize_t sent = write(fd, next, size);
        if (sent <= 0) return false;
        next += sent;
        size -= sent;
    }
    return true;
}

int runRawEcho(int fd) {
    char payload[kPayload];
    while (readExactly(fd, payload, sizeof(payload))) {
        if (!writeExactly(fd, payload, sizeof(payload))) break;
    }
    return 0;
}

int runRawMiddle(int fd, int sinkFd) {
    char payload[kPayload];
    while (readExactly(fd, payload, sizeof(payload))) {
        if (!writeExactly(sinkFd, payload, sizeof(payload))) break;
        if (!writeExactly(fd, payload, sizeof(payload))) break;
    }
    return 0;
}

int runRawSink(int fd, int resultFd) {
    Samples samples;
    char payload[kPayload];
    while (readExactly(fd, payload, sizeof(payload))) {
        int64_t sentAt;
        memcpy(&sentAt, payload, sizeof(sentAt));
        samples.push_back(nowNs() - sentAt);
    }
    writeExactly(resultFd, samples.data(), samples.size() * sizeof(int64_t));
    return 0;
}

}  // namespace sonorel::bench
