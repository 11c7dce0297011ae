#define LOG_TAG "sonoreld"

#include "ServiceHooks.h"

#include <dlfcn.h>
#include <log/log.h>

#include <cstring>
#include <system_error>
#include <thread>
#include <typeinfo>

namespace sonorel::host {
namespace {

using android::IBinder;
using android::Mutex;
using android::sp;

// android::SonorelService, and of its members:
constexpr char kClass[] = "N7android14SonorelServiceE";
// void onAudioServerDied()
constexpr char kDied[] = "_ZN7android14SonorelService17onAudioServerDiedEv";
// int onAudioServerRestarted()
constexpr char kRestarted[] = "_ZN7android14SonorelService22onAudioServerRestartedEv";
// int finishStoreWrites(int timeoutMs)
constexpr char kFinishStoreWrites[] = "_ZN7android14SonorelService17finishStoreWritesEi";

// For a service that minds the limit itself.
constexpr nsecs_t kGrace = ms2ns(100);

template <typename Function>
void find(void* library, const char* symbol, Function* outFunction) {
    *outFunction = reinterpret_cast<Function>(dlsym(library, symbol));
    if (*outFunction == nullptr) ALOGW("the service library has no %s", symbol);
}

}  // namespace

void ServiceHooks::attach(void* library, const sp<IBinder>& service) {
    const IBinder& object = *service;
    if (strcmp(typeid(object).name(), kClass) != 0) {
        ALOGW("the service is no SonorelService but %s", typeid(object).name());
        return;
    }
    Members members;
    members.service = service;
    // The members of the most derived class take it whole.
    members.object = dynamic_cast<void*>(service.get());
    find(library, kDied, &members.died);
    find(library, kRestarted, &members.restarted);
    find(library, kFinishStoreWrites, &members.finishStoreWrites);
    {
        Mutex::Autolock lock(mLock);
        mMembers = members;
    }
    std::thread([this] { tellAudioServer(); }).detach();
}

void ServiceHooks::audioServerDied() {
    Mutex::Autolock lock(mLock);
    if (mMembers.died == nullptr) return;
    mDied = true;
    // A return that was not told yet is of the server that has died now.
    mRestarted = false;
    mChanged.broadcast();
}

void ServiceHooks::audioServerRestarted() {
    Mutex::Autolock lock(mLock);
    if (mMembers.restarted == nullptr) return;
    mRestarted = true;
    mChanged.broadcast();
}

void ServiceHooks::tellAudioServer() {
    for (;;) {
        Members members;
        bool died = false;
        bool restarted = false;
        {
            Mutex::Autolock lock(mLock);
            while (!mDied && !mRestarted)
                (void)mChanged.wait(mLock);
            std::swap(died, mDied);
            std::swap(restarted, mRestarted);
            members = mMembers;
        }
        if (died) {
            members.died(members.object);
            ALOGI("told the service that the audio server died");
        }
        if (restarted) {
            (void)members.restarted(members.object);  // always 0
            ALOGI("told the service that the audio server is back");
        }
    }
}

void ServiceHooks::finishStoreWrites(nsecs_t limit) {
    Members members;
    {
        Mutex::Autolock lock(mLock);
        members = mMembers;
    }
    if (members.finishStoreWrites == nullptr) return;
    try {
        std::thread([this, members, limit] {
            // The service logs what it could not carry out.
            (void)members.finishStoreWrites(members.object, static_cast<int>(ns2ms(limit)));
            Mutex::Autolock lock(mLock);
            mFinished = true;
            mChanged.broadcast();
        }).detach();
    } catch (const std::system_error& error) {
        ALOGE("posted store writes are not waited for: %s", error.what());
        return;
    }
    const nsecs_t deadline = systemTime(SYSTEM_TIME_MONOTONIC) + limit + kGrace;
    Mutex::Autolock lock(mLock);
    while (!mFinished) {
        const nsecs_t left = deadline - systemTime(SYSTEM_TIME_MONOTONIC);
        if (left <= 0) {
            ALOGE("the service does not come back from its store writes");
            return;
        }
        (void)mChanged.waitRelative(mLock, left);
    }
}

}  // namespace sonorel::host
