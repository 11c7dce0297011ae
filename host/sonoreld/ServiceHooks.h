#pragma once

#include <binder/IBinder.h>
#include <utils/Condition.h>
#include <utils/Mutex.h>
#include <utils/Timers.h>

namespace sonorel::host {

// What the host tells the service beside binder: that the audio server died or is back, and that
// the process is about to end. The members of the service that take these are found in the library
// by name; a library without one of them works without it.
//
// Thread-safe. Never destroyed: the service may be in a call until the process ends.
class ServiceHooks {
public:
    ServiceHooks() = default;
    ~ServiceHooks() = default;
    ServiceHooks(const ServiceHooks&) = delete;
    ServiceHooks& operator=(const ServiceHooks&) = delete;

    // From now on `service`, of the library that dlopen gave, is told. Until then what follows does
    // nothing.
    void attach(void* library, const android::sp<android::IBinder>& service) EXCLUDES(mLock);

    // Return at once: a thread of its own tells the service, as a client may hold up the push after
    // a restart for as long as it thinks. What has not been told yet is at most one death and one
    // return: further ones are the same news.
    void audioServerDied() EXCLUDES(mLock);
    void audioServerRestarted() EXCLUDES(mLock);

    // Has the service finish the store writes that it has posted; returns after `limit`, or the
    // little more that a service takes which minds the limit itself.
    void finishStoreWrites(nsecs_t limit) EXCLUDES(mLock);

private:
    struct Members {
        android::sp<android::IBinder> service;
        void* object = nullptr;  // what the service's members take as `this`
        void (*died)(void* object) = nullptr;
        int (*restarted)(void* object) = nullptr;
        int (*finishStoreWrites)(void* object, int timeoutMs) = nullptr;
    };

    [[noreturn]] void tellAudioServer() EXCLUDES(mLock);

    android::Mutex mLock;
    android::Condition mChanged;
    Members mMembers GUARDED_BY(mLock);
    bool mDied GUARDED_BY(mLock) = false;       // to be told, before a return
    bool mRestarted GUARDED_BY(mLock) = false;  // to be told
    bool mFinished GUARDED_BY(mLock) = false;   // finishStoreWrites has come back
};

}  // namespace sonorel::host
