#pragma once

#include <binder/Binder.h>
#include <binder/Parcel.h>

#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
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
        DROP,                           // name
        RELAY,          // name, code, bytes -> status, int of the kept object's reply
        RELAY_ONE_WAY,  // name, first, count -> number of NOTEs accepted
        HAND_OVER,      // name of receiver, name of object, name there, one way?
        MAKE,           // -> a new node
        LIVE,           // -> how many nodes exist in that process
        NOTE,           // int, bytes: appends the int
        BLOCK,          // until UNBLOCK
        UNBLOCK,
        LINK,       // name: told of its death
        SAME,       // binder, binder -> equal?, is the first one local there?
        WRITE_FD,   // fd, text: writes the text
        BIG_REPLY,  // size -> that many bytes
        STATUS,     // status: what the call then fails with
        THREADS,    // -> threads of the process
        CALL_BACK,  // binder: calls its ECHO -> status
        EXIT,       // leaves by exit
    };

    TestNode();
    ~TestNode() override;

    // Events of this node, in this process. Each waits until the condition holds.
    [[nodiscard]] bool waitForKept(const std::string& name);
    [[nodiscard]] bool waitForNotes(size_t count);
    [[nodiscard]] bool waitForBlocked(int count);
    [[nodiscard]] bool waitForDeaths(int count);
    int deaths();

    android::sp<android::IBinder> kept(const std::string& name);
    void drop(const std::string& name);
    std::vector<int32_t> notes();
    // Identity of the last NOTE.
    uid_t noteUid();
    pid_t notePid();
    void unblock();

    static int liveNodes();

protected:
    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags) override;

private:
    android::status_t handleObjects(uint32_t code, const android::Parcel& data,
                                    android::Parcel* reply);
    android::status_t handleCalls(uint32_t code, const android::Parcel& data,
                                  android::Parcel* reply);
    android::status_t handleProcess(uint32_t code, const android::Parcel& data,
                                    android::Parcel* reply);
    template <typename Condition>
    bool waitUntil(Condition condition);

    class Mourner;

    std::mutex mMutex;
    std::condition_variable mChanged;
    std::map<std::string, android::sp<android::IBinder>> mKept;
    std::vector<int32_t> mNotes;
    uid_t mNoteUid = 0;
    pid_t mNotePid = 0;
    int mBlocked = 0;
    int mUnblocks = 0;
    int mDeaths = 0;
    std::vector<android::sp<android::IBinder::DeathRecipient>> mMourners;
};

// Calls of a node, from any process.
android::status_t callEcho(const android::sp<android::IBinder>& node, size_t size,
                           size_t* outSize = nullptr);
android::status_t callNote(const android::sp<android::IBinder>& node, int32_t value,
                           size_t padding = 0);
android::status_t callKeep(const android::sp<android::IBinder>& node, const std::string& name,
                           const android::sp<android::IBinder>& object, uint32_t flags = 0);
android::sp<android::IBinder> callGive(const android::sp<android::IBinder>& node,
                                       const std::string& name);
android::status_t callNamed(const android::sp<android::IBinder>& node, uint32_t code,
                            const std::string& name, uint32_t flags = 0);
// A call without arguments whose reply starts with an int, -1 when it failed.
int32_t callInt(const android::sp<android::IBinder>& node, uint32_t code);
android::status_t callBack(const android::sp<android::IBinder>& node,
                           const android::sp<android::IBinder>& self);
android::status_t callPlain(const android::sp<android::IBinder>& node, uint32_t code,
                            uint32_t flags = 0);

}  // namespace sonorel::test
