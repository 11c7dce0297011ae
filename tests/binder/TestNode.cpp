#include "TestNode.h"

#include <binder/IPCThreadState.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <filesystem>

namespace sonorel::test {

using android::IBinder;
using android::IPCThreadState;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;

namespace {

std::string readName(const Parcel& data) {
    const char* const text = data.readCString();
    return text == nullptr ? "" : text;
}

// Passes a call on whose code and arguments are what is left in `data`.
status_t passOn(const Parcel& data, const sp<IBinder>& target, Parcel* reply) {
    const uint32_t code = data.readUint32();
    Parcel rest;
    rest.appendFrom(&data, data.dataPosition(), data.dataAvail());
    return target->transact(code, rest, reply);
}

// Bytes of a round: what is cut or moved shows.
std::string pattern(int32_t size) {
    std::string bytes(size, '\0');
    for (int32_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>(i * 31 + (i >> 8));
    return bytes;
}

bool endsInPattern(const Parcel& parcel, int32_t size) {
    return parcel.dataAvail() == static_cast<size_t>(size) &&
           memcmp(parcel.data() + parcel.dataPosition(), pattern(size).data(), size) == 0;
}

}  // namespace

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

void TestNode::keep(const std::string& name, sp<IBinder> object) {
    const std::lock_guard lock(mMutex);
    std::swap(mKept[name], object);  // the destructor of an earlier one may call out
    mChanged.notify_all();
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
std::pair<uid_t, pid_t> TestNode::noteCaller() {
    const std::lock_guard lock(mMutex);
    return mNoteCaller;
}

void TestNode::unblock() {
    const std::lock_guard lock(mMutex);
    mUnblocked = true;
    mChanged.notify_all();
}

status_t TestNode::onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    if (code >= RELAY && code <= STORM) return handleCalls(code, data, reply);
    if (code >= ECHO && code <= EXIT) return handleProcess(code, data, reply);
    return BBinder::onTransact(code, data, reply, flags);
}

status_t TestNode::handleCalls(uint32_t code, const Parcel& data, Parcel* reply) {
    const std::string name = readName(data);
    const sp<IBinder> target = kept(name);
    if (target == nullptr) return android::NAME_NOT_FOUND;
    switch (code) {
        case RELAY: {
            Parcel in;
            reply->writeInt32(passOn(data, target, &in));
            return reply->appendFrom(&in, 0, in.dataSize());
        }
        case FETCH: {
            const std::string newName = readName(data);
            Parcel in;
            const status_t status = passOn(data, target, &in);
            keep(newName, in.readStrongBinder());
            return status;
        }
        case HAND_OVER: {
            const uint32_t way = data.readUint32();
            const std::string object = readName(data);
            const status_t status = Call(target, way, object, kept(object)).status;
            if (data.readBool()) return raise(SIGKILL);
            drop(object);
            return status;
        }
        case SEND_NOTES: {
            const int32_t first = data.readInt32();
            reply->writeInt32(sendNotes(target, first, data.readInt32(), 0));
            drop(name);
            return OK;
        }
        default:
            while (callKeep(target, "storm", new TestNode()) == OK &&
                   callGive(target, "storm") != nullptr) {
            }
            return OK;
    }
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
        case KEEP: {
            const std::string name = readName(data);
            keep(name, data.readStrongBinder());
            return OK;
        }
        case GIVE:
        case TAKE:
        case DROP: {
            const std::string name = readName(data);
            if (code != DROP) reply->writeStrongBinder(kept(name));
            if (code != GIVE) drop(name);
            return OK;
        }
        case MAKE:
            return reply->writeStrongBinder(new TestNode());
        case LIVE:
            return reply->writeInt32(sLive);
        case NOTE: {
            const std::lock_guard lock(mMutex);
            mNotes.push_back(data.readInt32());
            mNoteCaller = {thread->getCallingUid(), thread->getCallingPid()};
            mChanged.notify_all();
            return OK;
        }
        case NOTES:
            return reply->writeInt32Vector(notes());
        case BLOCK: {
            std::unique_lock lock(mMutex);
            ++mBlocked;
            mChanged.notify_all();
            mChanged.wait_for(lock, kEventDeadline, [this] { return mUnblocked; });
            --mBlocked;
            return OK;
        }
        case UNBLOCK:
            unblock();
            return OK;
        case ALIVE: {
            const sp<IBinder> object = kept(readName(data));
            return reply->writeBool(object != nullptr && object->isBinderAlive());
        }
        case WRITE_FD: {
            android::base::unique_fd fd;
            (void)data.readUniqueFileDescriptor(&fd);
            const std::string text = readName(data);
            return ::write(fd.get(), text.data(), text.size()) < 0 ? -errno : OK;
        }
        case BIG_REPLY:
            return reply->setDataSize(data.readInt32());
        case STATUS:
            return data.readInt32();
        case THREADS: {
            const std::filesystem::directory_iterator tasks("/proc/self/task");
            return reply->writeInt32(std::distance(tasks, {}));
        }
        case ROUND: {
            const int32_t size = data.readInt32();
            Hops hops;
            data.readStrongBinderVector(&hops);
            if (!endsInPattern(data, size)) return android::BAD_VALUE;
            const pid_t caller = thread->getCallingPid();
            const status_t status = callRound(hops, size, reply);
            return thread->getCallingPid() == caller ? status : android::INVALID_OPERATION;
        }
        case EXIT:
            exit(0);
        default:
            return android::UNKNOWN_TRANSACTION;
    }
}

status_t callRound(const Hops& hops, int32_t size, Parcel* reply) {
    if (hops.empty()) {
        reply->writeUint32(IPCThreadState::self()->getCallingUid());
        reply->writeInt32(IPCThreadState::self()->getCallingPid());
        reply->writeInt32(gettid());
        return reply->write(pattern(size).data(), size);
    }
    Parcel data;
    data.writeInt32(size);
    data.writeStrongBinderVector({hops.begin() + 1, hops.end()});
    data.write(pattern(size).data(), size);
    const status_t status = hops.front()->transact(TestNode::ROUND, data, reply);
    if (status != OK) return status;
    reply->setDataPosition(3 * sizeof(int32_t));
    const bool whole = endsInPattern(*reply, size);
    reply->setDataPosition(0);
    return whole ? OK : android::BAD_VALUE;
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

int32_t sendNotes(const sp<IBinder>& node, int32_t first, int32_t count, size_t padding) {
    int32_t accepted = 0;
    while (accepted < count && callNote(node, first + accepted, padding) == OK)
        ++accepted;
    return accepted;
}

status_t callKeep(const sp<IBinder>& node, const std::string& name, const sp<IBinder>& object) {
    return Call(node, TestNode::KEEP, name, object).status;
}

sp<IBinder> callGive(const sp<IBinder>& node, const std::string& name) {
    return Call(node, TestNode::GIVE, name).reply.readStrongBinder();
}

int32_t callInt(const sp<IBinder>& node, uint32_t code) {
    const Call call(node, code);
    return call.status == OK ? call.reply.readInt32() : -1;
}

}  // namespace sonorel::test
