#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <string.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "Roles.h"

namespace sonorel::bench {

using android::IBinder;
using android::OK;
using android::Parcel;
using android::ProcessState;
using android::sp;
using android::status_t;

void BenchNode::record(const Parcel& data) {
    const int64_t now = nowNs();
    const std::lock_guard lock(mMutex);
    mSamples.push_back(now - data.readInt64());
    ++mCount;
}

status_t BenchNode::onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    switch (code) {
        case ECHO:
            return reply->write(data.data(), data.dataSize());
        case SET_SINK:
            return data.readStrongBinder(&mSink);
        case RELAY: {
            Parcel out;
            out.write(data.data(), data.dataSize());
            if (mSink == nullptr) return android::NO_INIT;
            if (const status_t status = mSink->transact(SINK, out, nullptr, IBinder::FLAG_ONEWAY);
                status != OK) {
                return status;
            }
            return reply->write(data.data(), data.dataSize());
        }
        case SINK:
            record(data);
            return OK;
        case COUNT: {
            const std::lock_guard lock(mMutex);
            return reply->writeInt64(mCount);
        }
        case SAMPLES: {
            const std::lock_guard lock(mMutex);
            const status_t status = reply->writeInt64Vector(mSamples);
            mSamples.clear();
            return status;
        }
        case REGISTER: {
            const char* const name = data.readCString();
            const std::lock_guard lock(mMutex);
            mNamed.emplace_back(name == nullptr ? "" : name, data.readStrongBinder());
            return OK;
        }
        case FILL: {
            const int32_t size = data.readInt32();
            void* const room = size < 0 ? nullptr : reply->writeInplace(size);
            if (room == nullptr) return android::BAD_VALUE;
            memset(room, 0, size);
            return OK;
        }
        case BLOCK:
            std::this_thread::sleep_for(std::chrono::milliseconds(data.readInt32()));
            return OK;
        default:
            return BBinder::onTransact(code, data, reply, flags);
    }
}

sp<IBinder> BenchNode::waitFor(const std::string& name) {
    for (;;) {
        {
            const std::lock_guard lock(mMutex);
            for (const auto& [known, binder] : mNamed) {
                if (known == name) return binder;
            }
        }
        std::this_thread::yield();
    }
}

int runBinder(const std::string& name) {
    const sp<BenchNode> node = new BenchNode();
    ProcessState::self()->startThreadPool();
    const sp<IBinder> manager = ProcessState::self()->getContextObject(nullptr);
    Parcel data;
    Parcel reply;
    data.writeCString(name.c_str());
    data.writeStrongBinder(node);
    if (manager == nullptr || manager->transact(BenchNode::REGISTER, data, &reply) != OK) return 1;
    char sink;
    while (read(STDIN_FILENO, &sink, 1) > 0) {
    }
    return 0;
}

}  // namespace sonorel::bench
