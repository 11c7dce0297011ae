#include "Wire.h"

#include <errno.h>
#include <log/log.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/random.h>
#include <sys/socket.h>

#include "SocketIo.h"

namespace android::transport {

std::string ProcessName::toString() const {
    char text[48];
    int length = snprintf(text, sizeof(text), "%u-", pid);
    for (uint8_t byte : random) {
        length += snprintf(text + length, sizeof(text) - length, "%02x", byte);
    }
    return std::string(text, length);
}

bool ProcessName::parse(const std::string& text, ProcessName* outName) {
    ProcessName name = {};
    char* rest = nullptr;
    errno = 0;
    const unsigned long pid = strtoul(text.c_str(), &rest, 10);
    if (errno != 0 || pid > UINT32_MAX || *rest != '-') return false;
    name.pid = static_cast<uint32_t>(pid);
    const char* digits = rest + 1;
    if (strlen(digits) != 2 * sizeof(name.random)) return false;
    for (uint8_t& byte : name.random) {
        const char pair[] = {digits[0], digits[1], '\0'};
        byte = static_cast<uint8_t>(strtoul(pair, &rest, 16));
        if (rest != pair + 2) return false;
        digits += 2;
    }
    // One text for one name: refuses signs, blanks, leading zeros and capitals.
    if (name.toString() != text) return false;
    *outName = name;
    return true;
}

Greeting makeGreeting(ConnectionKind kind, const ProcessName& sender) {
    return {kGreetingMagic, kGreetingVersion, kind, 0, sender, 0};
}

bool sendGreeting(int socket, const Greeting& greeting, int pageDescriptor) {
    iovec part = {const_cast<Greeting*>(&greeting), sizeof(greeting)};
    const ssize_t sent = sendMessage(socket, &part, 1, &pageDescriptor, 1, MSG_DONTWAIT);
    return sent == static_cast<ssize_t>(sizeof(greeting));
}

bool isSane(const FrameHeader& header) {
    if (header.magic != kFrameMagic) return false;
    if (header.type < FrameType::REQUEST || header.type > FrameType::CLAIM) return false;
    if (header.dataSize > kMaxTransactionSize) return false;
    if (header.objectCount > header.dataSize / kMinObjectSize) return false;
    if (header.objectCount > kMaxObjects || header.waiterCount > kMaxWaiters) return false;
    return header.descriptorCount <= kMaxDescriptors;
}

bool areSane(const FrameHeader& header, const WireObject* objects) {
    size_t descriptors = 0;
    size_t end = 0;
    for (uint32_t i = 0; i < header.objectCount; ++i) {
        const WireObject& object = objects[i];
        if (object.position < end || object.position % 4 != 0) return false;
        if (object.position + kMinObjectSize > header.dataSize) return false;
        end = object.position + kMinObjectSize;
        if (object.kind == ObjectKind::DESCRIPTOR) {
            ++descriptors;
        } else if (object.kind != ObjectKind::BINDER) {
            return false;
        }
    }
    return descriptors == header.descriptorCount;
}

FrameHeader makeHeader(FrameType type, uint64_t target, uint64_t word) {
    FrameHeader header = {};
    header.magic = kFrameMagic;
    header.type = type;
    header.target = target;
    header.word = word;
    return header;
}

void fillRandom(void* bytes, size_t size) {
    auto* next = static_cast<uint8_t*>(bytes);
    while (size > 0) {
        const ssize_t got = getrandom(next, size, 0);
        if (got < 0 && errno == EINTR) continue;
        // Object numbers are what keeps strangers out: without randomness there is no going on.
        LOG_ALWAYS_FATAL_IF(got <= 0, "getrandom: %d", errno);
        next += got;
        size -= got;
    }
}

}  // namespace android::transport
