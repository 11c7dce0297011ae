// Raw bytes to a process's socket: what a stranger sends after a good greeting, or in its place.
//
// The first byte chooses the connection, whether the bytes are the greeting itself, and whether
// they are repaired on the way, without which hardly any input gets past the first check. They go
// out in two pieces, so that frames and greetings are cut anywhere, and lie in the shared page from
// between the pieces on; then the stranger hangs up, and the process must do the same.

#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <fcntl.h>
#include <log/log.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "platform/binder/transport/connection/Wire.h"

using namespace android;
using namespace android::transport;

namespace {

// Of the first byte; the lowest bits choose the kind.
enum Mode { TWO_DESCRIPTORS = 0x10, NO_DESCRIPTOR = 0x20, BARE = 0x40, REPAIR = 0x80 };

// Takes every value that it is given, and answers with what it read and with an object of its own.
class GreedyNode : public BBinder {
protected:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override {
        if (code > 16) return BBinder::onTransact(code, data, reply, flags);
        sp<IBinder> binder;
        if (data.readNullableStrongBinder(&binder) == OK) reply->writeStrongBinder(binder);
        base::unique_fd fd;
        if (data.readUniqueFileDescriptor(&fd) == OK) reply->writeInt32(1);
        reply->writeStrongBinder(new GreedyNode());
        return reply->write(data.data(), data.dataSize());
    }
};

sockaddr_un sAddress = {};
ProcessId sServer = {};
ProcessId sStranger = {};
int sPageFd = -1;       // of the page that the stranger shares
void* sPage = nullptr;  // its memory
constexpr size_t kPageSize = 4096;

int connectToServer() {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    // What never comes back is found as a time-out of the fuzzer.
    if (connect(fd, reinterpret_cast<sockaddr*>(&sAddress), sizeof(sAddress)) != 0) abort();
    return fd;
}

int greet(ConnectionKind kind, uint64_t waiter) {
    const int fd = connectToServer();
    Greeting greeting = makeGreeting(kind, sStranger.name);
    greeting.waiter = waiter;
    if (!sendGreeting(fd, greeting, sPageFd)) abort();
    return fd;
}

ProcessId someProcess(uint64_t choice) {
    if (choice % 3 == 0) return sServer;
    if (choice % 3 == 1) return sStranger;
    return {{0x7fffffff, {static_cast<uint8_t>(choice)}}, 0, 0};  // nobody
}

// Changes the T at `at`, if one is there.
template <typename T, typename Change>
void edit(std::vector<uint8_t>* bytes, size_t at, Change change) {
    T value;
    if (at + sizeof(value) > bytes->size()) return;
    memcpy(&value, bytes->data() + at, sizeof(value));
    change(&value);
    memcpy(bytes->data() + at, &value, sizeof(value));
}

// Right magic, a type that fits, small sizes, the context manager as target.
void repairHeader(FrameHeader* header, bool stream) {
    const uint32_t choice = static_cast<uint32_t>(header->type) % 4;
    header->magic = kFrameMagic;
    header->type = stream ? static_cast<FrameType>(3 + choice) : FrameType::REQUEST;
    header->dataSize = header->type >= FrameType::GRANT ? sizeof(ProcessId) : header->dataSize % 99;
    header->objectCount %= header->dataSize / kMinObjectSize + 1;
    header->waiterCount %= 3;
    header->descriptorCount = 0;
    header->target %= 4;
}

// Makes frames of what lies where frames would, with processes that exist and that do not.
void repairFrames(std::vector<uint8_t>* bytes, bool stream) {
    FrameHeader header;
    for (size_t at = 0; at + sizeof(header) <= bytes->size(); at += frameSize(header)) {
        edit<FrameHeader>(bytes, at, [&](auto* it) { repairHeader(it, stream), header = *it; });
        const size_t data = at + sizeof(header);
        if (header.type >= FrameType::GRANT && header.flags % 4 != 0)
            edit<ProcessId>(bytes, data, [&](auto* it) { *it = someProcess(header.code); });
        for (uint32_t i = 0; i < header.objectCount; ++i) {
            const size_t place = data + padTo8(header.dataSize) + i * sizeof(WireObject);
            const auto position = static_cast<uint32_t>(i * kMinObjectSize);
            edit<WireObject>(bytes, place, [&](auto* it) {
                *it = {position, ObjectKind::BINDER, it->id, someProcess(it->id)};
            });
        }
    }
}

// With the page `descriptors` times, two at most. Fails when hung up on: so it should be.
void sendAll(int fd, const uint8_t* bytes, size_t size, size_t descriptors = 0) {
    if (size == 0) return;
    iovec part = {const_cast<uint8_t*>(bytes), size};
    alignas(cmsghdr) char ancillary[CMSG_SPACE(2 * sizeof(int))] = {};
    msghdr message = {nullptr, 0, &part, 1, ancillary, 0, 0};
    message.msg_controllen = descriptors == 0 ? 0 : CMSG_SPACE(descriptors * sizeof(int));
    if (cmsghdr* const header = CMSG_FIRSTHDR(&message)) {
        const int fds[] = {sPageFd, sPageFd};
        *header = {CMSG_LEN(descriptors * sizeof(int)), SOL_SOCKET, SCM_RIGHTS};
        memcpy(CMSG_DATA(header), fds, descriptors * sizeof(int));
    }
    (void)!sendmsg(fd, &message, MSG_NOSIGNAL);
}

void finish(int fd) {
    char sink[4096];
    shutdown(fd, SHUT_WR);
    while (recv(fd, sink, sizeof(sink), 0) > 0) {
    }
    close(fd);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    char folder[] = "/tmp/frame_fuzzer.XXXXXX";
    if (mkdtemp(folder) == nullptr || setenv("SONOREL_RUNTIME_DIR", folder, 1) != 0) abort();
    __android_log_set_logger([](const struct __android_logger_data*, const char*) {});
    ProcessState::self()->startThreadPool();
    if (ProcessState::self()->becomeContextManager(new GreedyNode()) != OK) abort();
    char target[64] = {};
    if (readlink((std::string(folder) + "/manager").c_str(), target, sizeof(target) - 1) <= 0 ||
        !ProcessName::parse(target, &sServer.name)) {
        abort();
    }
    sServer.uid = sStranger.uid = geteuid();
    // The same name each time: references to the stranger's own objects then lead to a peer.
    sStranger.name.pid = sServer.name.pid;
    sAddress.sun_family = AF_UNIX;
    snprintf(sAddress.sun_path, sizeof(sAddress.sun_path), "%s/%s", folder, target);
    sPageFd = memfd_create("page", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (ftruncate(sPageFd, kPageSize) != 0 || fcntl(sPageFd, F_ADD_SEALS, F_SEAL_SHRINK) != 0)
        abort();
    sPage = mmap(nullptr, kPageSize, PROT_READ | PROT_WRITE, MAP_SHARED, sPageFd, 0);
    return sPage == MAP_FAILED;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const uint8_t mode = data[0];
    const bool bare = (mode & BARE) != 0;
    const auto kind = static_cast<ConnectionKind>(1 + (mode & 0x0f) % 3);
    std::vector<uint8_t> bytes(data + 2, data + size);
    const Greeting good = makeGreeting(ConnectionKind::CALL, sStranger.name);
    if ((mode & REPAIR) != 0 && bare) {  // then zeros are a good one
        for (size_t i = 0; i < std::min(bytes.size(), sizeof(good)); ++i)
            bytes[i] ^= reinterpret_cast<const uint8_t*>(&good)[i];
    }
    if ((mode & REPAIR) != 0 && !bare) repairFrames(&bytes, kind == ConnectionKind::STREAM);
    const size_t piece = bare && data[1] >= 0x80 ? sizeof(Greeting) : data[1];
    const size_t cut = std::min(piece, bytes.size());
    size_t descriptors = 0;
    if (bare && (mode & NO_DESCRIPTOR) == 0) descriptors = (mode & TWO_DESCRIPTORS) != 0 ? 2 : 1;
    const int stream = greet(ConnectionKind::STREAM, 0);
    const bool second = bare || kind != ConnectionKind::STREAM;
    const int fd = bare ? connectToServer() : second ? greet(kind, data[1]) : stream;
    memset(sPage, 0, kPageSize);
    sendAll(fd, bytes.data(), cut, descriptors);
    memcpy(sPage, bytes.data(), std::min(bytes.size(), kPageSize));
    sendAll(fd, bytes.data() + cut, bytes.size() - cut);
    if (second) finish(fd);
    finish(stream);
    return 0;
}
