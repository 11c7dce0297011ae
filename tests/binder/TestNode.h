#pragma once

#include <binder/Binder.h>
#include <binder/Parcel.h>

#include <atomic>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "support/Wait.h"

namespace sonorel::test {

// A remote-controlled object: the tests call it in other processes to have things done there, and
// ask it what happened. The same class stands in the test's own process, where processes report.
class TestNode : public android::BBinder {
public:
    enum Code : uint32_t {
        ECHO = FIRST_CALL_TRANSACTION,  // bytes -> the same bytes
        IDENTITY,                       // -> uid, pid, serving
        KEEP,                           // name, binder
        GIVE,                           // name -> binder
        TAKE,                           // as GIVE, and drops it
        DROP,                           // name
        RELAY,                          // name, code, arguments -> status, reply of the kept object
        FETCH,       // name, its new name, code, arguments: keeps what the kept object gives
        HAND_OVER,   // name of receiver, KEEP or one-way KEEP, name of object, dies? Drops it
        SEND_NOTES,  // name, first, count: drops it -> number of NOTEs accepted
        STORM,       // name: calls with references until one fails
        MAKE,        // -> a new node
        LIVE,        // -> how many nodes exist in that process
        NOTE,        // int, bytes: appends the int
        NOTES,       // -> the ints so far
        BLOCK,       // until UNBLOCK
        UNBLOCK,
        ALIVE,                 // name -> alive, as far as that process has noticed?
        WRITE_FD,              // fd, text: writes the text
        BIG_REPLY,             // size -> that many bytes
        STATUS,                // status: what the call then fails with
        THREADS,               // -> threads of the process
        ROUND,                 // see callRound
        EXIT,                  // leaves by exit
        ONE_WAY = 0x80000000,  // added to the code of a Call
    };

    TestNode() { ++sLive; }
    ~TestNode() override { --sLive; }

    // Events of this node, in this process. Each waits until the condition holds.
    [[nodiscard]] bool waitForKept(const std::string& name);
    [[nodiscard]] bool waitForNotes(size_t count);
    [[nodiscard]] bool waitForBlocked(int count);

    void keep(const std::string& name, android::sp<android::IBinder> object);
    android::sp<android::IBinder> kept(const std::string& name);
    void drop(const std::string& name);
    std::vector<int32_t> notes();
    // Caller of the last NOTE.
    std::pair<uid_t, pid_t> noteCaller();
    void unblock();

    static int liveNodes() { return sLive; }

protected:
    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags) override;

private:
    android::status_t handleCalls(uint32_t code, const android::Parcel& data,
                                  android::Parcel* reply);
    android::status_t handleProcess(uint32_t code, const android::Parcel& data,
                                    android::Parcel* reply);
    template <typename Condition>
    bool waitUntil(Condition condition);

    static inline std::atomic<int> sLive{0};
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::map<std::string, android::sp<android::IBinder>> mKept;
    std::vector<int32_t> mNotes;
    std::pair<uid_t, pid_t> mNoteCaller;
    int mBlocked = 0;
    bool mUnblocked = false;
};

// A call of a node, from any process, with its arguments and what came back.
struct Call {
    template <typename... Args>
    Call(const android::sp<android::IBinder>& node, uint32_t code, const Args&... args) {
        (put(args), ...);
        const bool oneWay = (code & TestNode::ONE_WAY) != 0;
        status = node->transact(code & ~TestNode::ONE_WAY, data, &reply,
                                oneWay ? android::IBinder::FLAG_ONEWAY : 0);
    }
    android::Parcel data;
    android::Parcel reply;
    android::status_t status;

private:
    void put(int32_t value) { data.writeInt32(value); }
    void put(uint32_t value) { data.writeUint32(value); }
    void put(const char* name) { data.writeCString(name); }
    void put(const std::string& name) { put(name.c_str()); }
    void put(const android::sp<android::IBinder>& object) { data.writeStrongBinder(object); }
};

using Hops = std::vector<android::sp<android::IBinder>>;
// Calls through all the nodes, each inside of the one before, with `size` bytes down and up again;
// the last one answers the uid and pid that called it and its thread's number.
android::status_t callRound(const Hops& hops, int32_t size, android::Parcel* reply);
android::status_t callEcho(const android::sp<android::IBinder>& node, size_t size,
                           size_t* outSize = nullptr);
android::status_t callNote(const android::sp<android::IBinder>& node, int32_t value,
                           size_t padding = 0);
// How many of the NOTEs were accepted: those before the first refusal.
int32_t sendNotes(const android::sp<android::IBinder>& node, int32_t first, int32_t count,
                  size_t padding);
android::status_t callKeep(const android::sp<android::IBinder>& node, const std::string& name,
                           const android::sp<android::IBinder>& object);
android::sp<android::IBinder> callGive(const android::sp<android::IBinder>& node,
                                       const std::string& name);
// A call without arguments whose reply starts with an int, -1 when it failed.
int32_t callInt(const android::sp<android::IBinder>& node, uint32_t code);

}  // namespace sonorel::test
