#pragma once

#include <binder/Binder.h>
#include <stdint.h>
#include <sys/types.h>

#include <mutex>
#include <string>
#include <vector>

#include "Measure.h"

namespace sonorel::bench {

constexpr size_t kPayload = 64;

// ---- Raw AF_UNIX stream sockets: the yardstick ----

// Each runs in a process of its own until its socket ends.
int runRawEcho(int fd);
int runRawMiddle(int fd, int sinkFd);
// Messages start with the time of their sending. At the end the samples are written to resultFd.
int runRawSink(int fd, int resultFd);

// False at the end of the stream.
bool readExactly(int fd, void* bytes, size_t size);
bool writeExactly(int fd, const void* bytes, size_t size);

// ---- The same through binder ----

// Answers, relays and records, whatever it is called for.
class BenchNode : public android::BBinder {
public:
    enum Code : uint32_t {
        ECHO = FIRST_CALL_TRANSACTION,
        SET_SINK,  // binder
        RELAY,     // payload: one way to the sink, then the reply
        SINK,      // payload that starts with the time of its sending
        COUNT,     // -> int64: SINKs so far
        SAMPLES,   // -> the latencies, which are then forgotten
        REGISTER,  // name, binder
        FILL,      // int32 -> that many bytes
        BLOCK,     // int32 milliseconds
    };
    android::sp<android::IBinder> waitFor(const std::string& name);

protected:
    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags) override;

private:
    void record(const android::Parcel& data);

    std::mutex mMutex;
    android::sp<android::IBinder> mSink;
    Samples mSamples;
    int64_t mCount = 0;
    std::vector<std::pair<std::string, android::sp<android::IBinder>>> mNamed;
};

// Serves a node under that name until standard input ends.
int runBinder(const std::string& name);

}  // namespace sonorel::bench
