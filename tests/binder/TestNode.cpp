#include "TestNode.h"

#include <binder/IPCThreadState.h>
#include <dirent.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <iterator>

namespace sonorel::test {

using android::IBinder;
using android::IPCThreadState;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;
using android::wp;

namespace {

std::atomic<int> sLive{0};

int countThreads() {
    int count = 0;
    DIR* const tasks = opendir("/proc/self/task");
    if (tasks == nullptr) return -1;
    while (const dirent* entry = readdir(tasks)) {
        if (entry->d_name[0] != '.') ++count;
    }
    closedir(tasks);
    return count;
}

std::string readName(const Parcel& data) {
    const char* const text = data.readCString();
    return text == nullptr ? "" : text;
}

}  // namespace

class TestNode::Mourner : public IBinder::DeathRecipient {
public:
    explicit Mourner(TestNode* node) : mNode(node) {}
    void binderDied(const wp<IBinder>& who) override {
        const sp<TestNode> node = mNode.promote();
        if (node == nullptr) return;
        // Allowed inside binderDied, and harmless.
        if (const sp<IBinder> dead = who.promote(); dead != nullptr)
            (void)dead->unlinkToDeath(this);
        const std::lock_guard lock(node->mMutex);
        ++node->mDeaths;
        node->mChanged.notify_all();
    }

private:
    const wp<TestNode> mNode;
};

TestNode::TestNode() {
    ++sLive;
}
TestNode::~TestNode() {
    --sLive;
}

int TestNode::liveNodes() {
    return sLive;
}

template <typename Condition>
bool TestNode::waitUntil(Condition condition) {
    std::unique_lock lock(mMutex);
    return mChanged.wait_for(lock, kEventDeadline, condition);
}

bool TestNode::waitForKept(const std::string& name) {
    return waitUntil([&] { return mKept.count(name) != 0; });
}
bool TestNode::waitForNotes(size_t count) {
    return waitUntil([&] { return mNotes.size() >= count; });
}
bool TestNode::waitForBlocked(int count) {
    return waitUntil([&] { return mBlocked >= count; });
}
bool TestNode::waitForDeaths(int count) {
    return waitUntil([&] { return mDeaths >= count; });
}

sp<IBinder> TestNode::kept(const std::string& name) {
    const std::lock_guard lock(mMutex);
    const auto entry = mKept.find(name);
    return entry == mKept.end() ? nullptr : entry->second;
}

void TestNode::drop(const std::string& name) {
    sp<IBinder> last;  // its destructor may call out
    const std::lock_guard lock(mMutex);
    last = mKept[name];
    mKept.erase(name);
}

std::vector<int32_t> TestNode::notes() {
    const std::lock_guard lock(mMutex);
    return mNotes;
}
int TestNode::deaths() {
    const std::lock_guard lock(mMutex);
    return mDeaths;
}
uid_t TestNode::noteUid() {
    const std::lock_guard lock(mMutex);
    return mNoteUid;
}
pid_t TestNode::notePid() {
    const std::lock_guard lock(mMutex);
    return mNotePid;
}

void TestNode::unblock() {
    const std::lock_guard lock(mMutex);
    ++mUnblocks;
    mChanged.notify_all();
}

status_t TestNode::onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    if (code >= KEEP && code <= DROP) return handleObjects(code, data, reply);
    if (code >= RELAY && code <= HAND_OVER) return handleCalls(code, data, reply);
    if (code >= ECHO && code <= EXIT) return handleProcess(code, data, reply);
    return BBinder::onTransact(code, data, reply, flags);
}

status_t TestNode::handleObjects(uint32_t code, const Parcel& data, Parcel* reply) {
    const std::string name = readName(data);
    if (code == GIVE) return reply->writeStrongBinder(kept(name));
    if (code == DROP) {
        drop(name);
        return OK;
    }
    sp<IBinder> object;
    if (const status_t status = data.readNullableStrongBinder(&object); status != OK) return status;
    const std::lock_guard lock(mMutex);
    mKept[name] = object;
    mChanged.notify_all();
    return OK;
}

status_t TestNode::handleCalls(uint32_t code, const Parcel& data, Parcel* reply) {
    const sp<IBinder> target = kept(readName(data));
    if (target == nullptr) return android::NAME_NOT_FOUND;
    if (code == RELAY) {
        const uint32_t relayed = data.readUint32();
        Parcel out;
        Parcel in;
        out.write(data.data() + data.dataPosition(), data.dataAvail());
        reply->writeInt32(target->transact(relayed, out, &in));
        return reply->writeInt32(in.readInt32());
    }
    if (code == HAND_OVER) {
        const sp<IBinder> object = kept(readName(data));
        const std::string nameThere = readName(data);
        const uint32_t flags = data.readBool() ? IBinder::FLAG_ONEWAY : 0;
        return callKeep(target, nameThere, object, flags);
    }
    const int32_t first = data.readInt32();
    const int32_t count = data.readInt32();
    int32_t accepted = 0;
    while (accepted < count && callNote(target, first + accepted) == OK)
        ++accepted;
    return reply->writeInt32(accepted);
}

status_t TestNode::handleProcess(uint32_t code, const Parcel& data, Parcel* reply) {
    const IPCThreadState* const thread = IPCThreadState::self();
    switch (code) {
        case ECHO:
            return reply->write(data.data(), data.dataSize());
        case IDENTITY:
            reply->writeUint32(thread->getCallingUid());
            reply->writeInt32(thread->getCallingPid());
            return reply->writeBool(thread->isServingCall());
        case MAKE:
            return reply->writeStrongBinder(new TestNode());
        case LIVE:
            return reply->writeInt32(sLive);
        case NOTE: {
            const std::lock_guard lock(mMutex);
            mNotes.push_back(data.readInt32());
            mNoteUid = thread->getCallingUid();
            mNotePid = thread->getCallingPid();
            mChanged.notify_all();
            return OK;
        }
        case BLOCK: {
            std::unique_lock lock(mMutex);
            ++mBlocked;
            mChanged.notify_all();
            mChanged.wait_for(lock, kEventDeadline, [this] { return mUnblocks > 0; });
            --mBlocked;
            return OK;
        }
        case UNBLOCK:
            unblock();
            return OK;
        case LINK: {
            const sp<IBinder> object = kept(readName(data));
            if (object == nullptr) return android::NAME_NOT_FOUND;
            const sp<Mourner> mourner = new Mourner(this);
            {
                const std::lock_guard lock(mMutex);
                mMourners.push_back(mourner);
            }
            return object->linkToDeath(mourner);
        }
        case SAME: {
            const sp<IBinder> first = data.readStrongBinder();
            const sp<IBinder> second = data.readStrongBinder();
            reply->writeBool(first == second);
            return reply->writeBool(first != nullptr && first->localBinder() != nullptr);
        }
        case WRITE_FD: {
            android::base::unique_fd fd;
            if (const status_t status = data.readUniqueFileDescriptor(&fd); status != OK) {
                return status;
            }
            const std::string text = readName(data);
            return ::write(fd.get(), text.data(), text.size()) < 0 ? -errno : OK;
        }
        case BIG_REPLY:
            return reply->setDataSize(data.readInt32());
        case STATUS:
            return data.readInt32();
        case THREADS:
            return reply->writeInt32(countThreads());
        case CALL_BACK:
            return callEcho(data.readStrongBinder(), 400);
        case EXIT:
            exit(0);
        default:
            return android::UNKNOWN_TRANSACTION;
    }
}

status_t callEcho(const sp<IBinder>& node, size_t size, size_t* outSize) {
    Parcel data;
    Parcel reply;
    if (const status_t status = data.setDataSize(size); status != OK) return status;
    const status_t status = node->transact(TestNode::ECHO, data, &reply);
    if (outSize != nullptr) *outSize = reply.dataSize();
    return status;
}

status_t callNote(const sp<IBinder>& node, int32_t value, size_t padding) {
    Parcel data;
    data.writeInt32(value);
    if (padding > 0) data.setDataSize(padding);
    return node->transact(TestNode::NOTE, data, nullptr, IBinder::FLAG_ONEWAY);
}

status_t callKeep(const sp<IBinder>& node, const std::string& name, const sp<IBinder>& object,
                  uint32_t flags) {
    Parcel data;
    Parcel reply;
    data.writeCString(name.c_str());
    data.writeStrongBinder(object);
    return node->transact(TestNode::KEEP, data, &reply, flags);
}

sp<IBinder> callGive(const sp<IBinder>& node, const std::string& name) {
    Parcel data;
    Parcel reply;
    data.writeCString(name.c_str());
    if (node->transact(TestNode::GIVE, data, &reply) != OK) return nullptr;
    return reply.readStrongBinder();
}

status_t callNamed(const sp<IBinder>& node, uint32_t code, const std::string& name,
                   uint32_t flags) {
    Parcel data;
    Parcel reply;
    data.writeCString(name.c_str());
    return node->transact(code, data, &reply, flags);
}

int32_t callInt(const sp<IBinder>& node, uint32_t code) {
    Parcel data;
    Parcel reply;
    if (node->transact(code, data, &reply) != OK) return -1;
    return reply.readInt32();
}

status_t callBack(const sp<IBinder>& node, const sp<IBinder>& self) {
    Parcel data;
    Parcel reply;
    data.writeStrongBinder(self);
    return node->transact(TestNode::CALL_BACK, data, &reply);
}

status_t callPlain(const sp<IBinder>& node, uint32_t code, uint32_t flags) {
    Parcel data;
    Parcel reply;
    return node->transact(code, data, &reply, flags);
}

}  // namespace sonorel::test
