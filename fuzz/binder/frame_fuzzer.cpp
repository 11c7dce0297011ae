// Raw bytes to a process's socket: what a stranger sends after a good greeting, or in its place.
//
// The first byte chooses the connection and whether headers are repaired on the way, without which
// hardly any input gets past the first check. The bytes go out in two pieces, so that frames are
// cut anywhere, and lie in the shared page from between the pieces on; then the stranger hangs up,
// and the process must do the same.

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

#include "platform/binder/transport/Wire.h"

using namespace android;
using namespace android::transport;

namespace {

// Takes every value that it is given, and answers with what it read.
class GreedyNode : public BBinder {
protected:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override {
        if (code > 16) return BBinder::onTransact(code, data, reply, flags);
        sp<IBinder> binder;
        if (data.readNullableStrongBinder(&binder) == OK) reply->writeStrongBinder(binder);
        base::unique_fd fd;
        if (data.readUniqueFileDescriptor(&fd) == OK) reply->writeInt32(1);
        return reply->write(data.data(), data.dataSize());
    }
};

std::string& address() {
    static std::string& sAddress = *new std::string();
    return sAddress;
}

// The page that the stranger shares, as its descriptor and its memory.
struct StrangersPage {
    int fd = memfd_create("page", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    uint8_t* memory = nullptr;

    StrangersPage() {
        if (ftruncate(fd, kSize) != 0 || fcntl(fd, F_ADD_SEALS, F_SEAL_SHRINK) != 0) abort();
        void* const mapped = mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        if (mapped == MAP_FAILED) abort();
        memory = static_cast<uint8_t*>(mapped);
    }
    static constexpr size_t kSize = 4096;
};

StrangersPage& sharedPage() {
    static StrangersPage& sPage = *new StrangersPage();
    return sPage;
}

int connectTo(ConnectionKind kind, bool greeted, const ProcessName& name) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un to = {};
    to.sun_family = AF_UNIX;
    strncpy(to.sun_path, address().c_str(), sizeof(to.sun_path) - 1);
    if (connect(fd, reinterpret_cast<sockaddr*>(&to), sizeof(to)) != 0) abort();
    // What never comes back is found as a time-out of the fuzzer.
    if (!greeted) return fd;
    const int page = kind == ConnectionKind::CONTROL ? -1 : sharedPage().fd;
    if (!sendGreeting(fd, kind, name, page)) abort();
    return fd;
}

// Makes frames of what lies where frames would: right magic, a type that fits, sizes that end
// within the input, the context manager as target.
void repair(std::vector<uint8_t>* bytes, ConnectionKind kind) {
    size_t at = 0;
    while (at + sizeof(FrameHeader) <= bytes->size()) {
        FrameHeader header;
        memcpy(&header, bytes->data() + at, sizeof(header));
        header.magic = kFrameMagic;
        const auto type = static_cast<uint16_t>(header.type);
        if (kind == ConnectionKind::CONTROL) {
            header.type = static_cast<FrameType>(4 + type % 4);
            header.dataSize = header.objectCount = 0;
        } else {
            header.type = kind == ConnectionKind::CALL ? FrameType::REQUEST : FrameType::ONE_WAY;
            header.dataSize %= 128;
            header.objectCount = header.dataSize / 24 == 0 ? 0 : header.objectCount % 3;
        }
        header.descriptorCount = 0;
        header.target = header.target % 4;
        memcpy(bytes->data() + at, &header, sizeof(header));
        at += frameSize(header);
    }
}

void sendAll(int fd, const uint8_t* bytes, size_t size) {
    while (size > 0) {
        const ssize_t sent = send(fd, bytes, size, MSG_NOSIGNAL);
        if (sent <= 0) return;  // hung up on: so it should be
        bytes += sent;
        size -= sent;
    }
}

void drain(int fd) {
    char sink[4096];
    while (recv(fd, sink, sizeof(sink), 0) > 0) {
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    char folder[] = "/tmp/frame_fuzzer.XXXXXX";
    if (mkdtemp(folder) == nullptr) abort();
    setenv("SONOREL_RUNTIME_DIR", folder, 1);
    __android_log_set_logger([](const struct __android_logger_data*, const char*) {});
    ProcessState::self()->startThreadPool();
    if (ProcessState::self()->becomeContextManager(new GreedyNode()) != OK) abort();
    char target[64] = {};
    if (readlink((std::string(folder) + "/manager").c_str(), target, sizeof(target) - 1) <= 0)
        abort();
    address() = std::string(folder) + "/" + target;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const auto kind = static_cast<ConnectionKind>(1 + data[0] % 3);
    const bool greeted = (data[0] & 0x40) == 0;
    const size_t cut = std::min<size_t>(data[1], size - 2);
    std::vector<uint8_t> bytes(data + 2, data + size);
    if ((data[0] & 0x80) != 0) repair(&bytes, kind);
    // The same name each time: references to the stranger's own objects then lead to a peer.
    ProcessName name = {static_cast<uint32_t>(getpid()), {}};
    const int control = connectTo(ConnectionKind::CONTROL, true, name);
    const int fd = connectTo(kind, greeted, name);
    memset(sharedPage().memory, 0, StrangersPage::kSize);
    sendAll(fd, bytes.data(), cut);
    memcpy(sharedPage().memory, bytes.data(), std::min(bytes.size(), StrangersPage::kSize));
    sendAll(fd, bytes.data() + cut, bytes.size() - cut);
    shutdown(fd, SHUT_WR);
    drain(fd);
    shutdown(control, SHUT_WR);
    drain(control);
    close(fd);
    close(control);
    return 0;
}
