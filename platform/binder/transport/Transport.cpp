#define LOG_TAG "BinderTransport"

#include "Transport.h"

#include <log/log.h>
#include <stdlib.h>
#include <unistd.h>

#include <sstream>

namespace android::transport {

namespace {

ProcessId makeId() {
    ProcessId id = {};
    id.name.pid = static_cast<uint32_t>(getpid());
    id.uid = geteuid();
    fillRandom(id.name.random, sizeof(id.name.random));
    return id;
}

/** The users beside root that may be the context manager and share the larger part of everything.
 */
std::vector<uid_t> trustedUsers(uid_t owner) {
    std::vector<uid_t> users = {owner};
    // NOLINTNEXTLINE(concurrency-mt-unsafe): read once, under the lock of a static's construction
    const char* const named = getenv("SONOREL_TRUSTED_UIDS");
    std::string text = named == nullptr ? SONOREL_TRUSTED_UIDS : named;
    for (char& c : text)
        c = c == ',' ? ' ' : c;
    std::istringstream words(text);
    for (uid_t uid = 0; words >> uid;)
        users.push_back(uid);
    if (!words.eof()) ALOGE("SONOREL_TRUSTED_UIDS=\"%s\" is no list of numbers", named);
    return users;
}

}  // namespace

Transport& Transport::get() {
    static Transport* const sTransport = [] {
        // Without these the next process to start sweeps. quick_exit is for programs that leave
        // while their pool serves calls.
        (void)atexit(leave);
        (void)at_quick_exit(leave);
        return new Transport("");
    }();
    return *sTransport;
}

Transport::Transport(const std::string& path, const Limits& limits)
        : mSelf(makeId()),
          mDir(path),
          mAccounts(limits, trustedUsers(mDir.ownerUid())),
          mPool([this](uint64_t id) { serve(id); }),
          mDriver({mAccounts, mDir, mPeers, mRemotes, mLinks, mPool, mCalls, mServer, mReader}),
          mCalls(mLocals, mRemotes, mTransfer, mDriver),
          mRemotes(mCalls),
          mSurroundings{mSelf, mDir, mAccounts, mDriver},
          mPeers(mSurroundings),
          mTransfer(mSelf, mLocals, mRemotes, mPeers, [this] { return ensureListening(); }),
          mServer(mCalls, mPool, mDriver),
          mReader(mLocals, mTransfer, mPeers, mAccounts, mDriver, mServer, mPool) {}

/** As the process exits: what was accepted is still sent, and the names go. */
void Transport::leave() {
    if (isForkedChild()) return;
    Transport& transport = get();
    transport.mPeers.flushAll();
    if (transport.mListening) {
        transport.mDir.remove(transport.mSelf.name, transport.mLocals.contextManager() != nullptr);
    }
}

void Transport::setMaxThreads(size_t count) {
    mPool.setMaxThreads(count);
    mAccounts.setThreads(count + 1);
}

void Transport::serve(uint64_t id) {
    const LinkPtr link = mLinks.find(id);
    // Dropped meanwhile, or another thread is with it, which then looks again.
    if (link == nullptr || !link->claim()) return;
    if (link->kind() == ConnectionKind::STREAM) {
        mReader.serve(link);
    } else {
        mServer.serve(link);
    }
}

status_t Transport::ensureListeningLocked() {
    if (mListening) return OK;
    if (isForkedChild()) return INVALID_OPERATION;
    OwnFd socket;
    if (const status_t status = mDir.listen(mSelf.name, &socket); status != OK) return status;
    mDriver.listen(std::move(socket));
    mListening = true;
    return OK;
}

status_t Transport::ensureListening() {
    if (mListening) return OK;
    Mutex::Autolock lock(mLock);
    return ensureListeningLocked();
}

status_t Transport::becomeContextManager(const sp<BBinder>& object) {
    if (object == nullptr) return BAD_VALUE;
    if (!mAccounts.isTrusted(mSelf.uid)) {
        ALOGE("uid %u may not be the context manager in %s", mSelf.uid, mDir.path().c_str());
        return PERMISSION_DENIED;
    }
    Mutex::Autolock lock(mLock);
    if (mLocals.contextManager() != nullptr) return ALREADY_EXISTS;
    if (const status_t status = ensureListeningLocked(); status != OK) return status;
    // The object first: the moment the name is there, calls come.
    OwnFd lockFile;
    mLocals.setContextManager(object);
    const auto trusts = [this](uid_t uid) { return mAccounts.isTrusted(uid); };
    if (const status_t status = mDir.publishManager(mSelf.name, trusts, &lockFile); status != OK) {
        mLocals.setContextManager(nullptr);
        return status;
    }
    mManagerLock = std::move(lockFile);
    return OK;
}

sp<IBinder> Transport::contextObject() {
    if (isForkedChild()) return nullptr;
    if (sp<BBinder> local = mLocals.contextManager(); local != nullptr) return local;
    ProcessName name;
    if (mDir.findManager(&name) != OK) return nullptr;
    const PeerPtr manager = mPeers.reach(name, /*wait*/ true, [this](uid_t uid) {
        if (mAccounts.isTrusted(uid)) return true;
        ALOGE("uid %u is not trusted to be the context manager in %s; refused", uid,
              mDir.path().c_str());
        return false;
    });
    if (manager == nullptr) return nullptr;
    return mRemotes.take(manager, kContextManagerId, /*credits*/ 0);
}

}  // namespace android::transport
