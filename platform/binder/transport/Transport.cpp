#define LOG_TAG "BinderTransport"

#include "Transport.h"

#include <log/log.h>
#include <stdlib.h>
#include <unistd.h>

namespace android::transport {

namespace {

ProcessName makeName() {
    ProcessName name = {};
    name.pid = static_cast<uint32_t>(getpid());
    fillRandom(name.random, sizeof(name.random));
    return name;
}

}  // namespace

Transport& Transport::get() {
    static Transport* const sTransport = new Transport();
    return *sTransport;
}

Transport::Transport() : mSelf(makeName()) {}

void Transport::removeFiles() {
    Transport& transport = get();
    // A child of fork() that calls exit must not remove its parent's socket.
    if (static_cast<uint32_t>(getpid()) != transport.mSelf.pid) return;
    const bool isManager = transport.mLocals.contextManager() != nullptr;
    if (transport.mListening) transport.mDir.remove(transport.mSelf, isManager);
}

status_t Transport::ensureListeningLocked() {
    if (mListening) return OK;
    base::unique_fd socket;
    if (const status_t status = mDir.listen(mSelf, &socket); status != OK) return status;
    mDriver.listen(std::move(socket));
    mListening = true;
    // Without these the next process to start sweeps. quick_exit is for programs that leave while
    // their pool serves calls.
    (void)atexit(removeFiles);
    (void)at_quick_exit(removeFiles);
    return OK;
}

status_t Transport::ensureListening() {
    if (mListening) return OK;
    Mutex::Autolock lock(mLock);
    return ensureListeningLocked();
}

status_t Transport::becomeContextManager(const sp<BBinder>& object) {
    if (object == nullptr) return BAD_VALUE;
    Mutex::Autolock lock(mLock);
    if (mLocals.contextManager() != nullptr) return ALREADY_EXISTS;
    if (const status_t status = ensureListeningLocked(); status != OK) return status;
    // The object first: the moment the name is there, calls come.
    base::unique_fd lockFile;
    mLocals.setContextManager(object);
    if (const status_t status = mDir.publishManager(mSelf, &lockFile); status != OK) {
        mLocals.setContextManager(nullptr);
        return status;
    }
    mManagerLock = std::move(lockFile);
    return OK;
}

sp<IBinder> Transport::contextObject() {
    if (sp<BBinder> local = mLocals.contextManager(); local != nullptr) return local;
    ProcessName name;
    if (mDir.findManager(&name) != OK) return nullptr;
    const PeerPtr manager = mPeers.reach(name);
    if (manager == nullptr) return nullptr;
    return mRemotes.take(manager, kContextManagerId, /*credits*/ 0);
}

}  // namespace android::transport
