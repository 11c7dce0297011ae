#include <utils/AndroidThreads.h>

#include "meta/MetaAudioThread.h"
#include "service/ServiceLog.h"
#include "service/SonorelService.h"

namespace android {

namespace {

constexpr int32_t kSpatializerHeadTracked = 2;

}  // namespace

binder::Status SonorelService::setMetaAudioThreadEnable(bool enable) {
    if (!isAllowedFindHalvend()) return binder::Status::ok();
    // Whoever switches off from here on comes after this caller, and so decides.
    const uint32_t stops = mMetaAudioThreadStops;
    SONOREL_LOGD("%s(): %d,mMetaAudioOn:%d mHeadtrackOn:%d", __func__, enable, mMetaAudioOn.load(),
                 mHeadtrackOn.load());
    if (!mIsHeadSetConnected || !mMetaAudioOn) return binder::Status::ok();
    if (!enable) {
        (void)stopMetaAudioThread();  // always 0
    } else if (!mMetaAudioThreadEnable) {
        SONOREL_LOGD("%s: NATIVE_NOTIFY_SP_CHECK_SENSOR", __func__);
        callClient(IHalvendClient::CLIENT_ID_META_THREAD, IHalvendClient::CB_SET_META_THREAD_ENABLE,
                   CallbackData(), nullptr);
        startMetaAudioThread(stops);
    }
    return binder::Status::ok();
}

void SonorelService::startMetaAudioThread() {
    startMetaAudioThread(mMetaAudioThreadStops);
}

void SonorelService::startMetaAudioThread(uint32_t stops) {
    Mutex::Autolock starting(mThreadStartLock);
    if (!mHeadtrackOn) return;
    sp<MetaAudioThread> thread;
    {
        Mutex::Autolock leaf(mThreadLock);
        if (mMetaAudioThreadStops != stops) return;
        if (mMetaAudioThread == nullptr) {
            mMetaAudioThread = new MetaAudioThread(this);
        }
        thread = mMetaAudioThread;
    }
    // A thread that was asked to exit a moment ago may still sleep out its last period; without the
    // wait, run() would refuse and the tick would be missing until the next switch.
    if (thread->isExiting()) {
        (void)thread->join();  // refused only on the thread itself, which never gets here
    }
    // Refused while the thread runs: then the running one goes on.
    const status_t started = thread->run("MetaAudioThread", ANDROID_PRIORITY_AUDIO, 0);
    if (started != OK && started != INVALID_OPERATION) {
        SONOREL_LOGE("%s: no worker thread, ret=%d", __func__, started);
        return;
    }
    Mutex::Autolock leaf(mThreadLock);
    if (mMetaAudioThreadStops == stops) {
        mMetaAudioThreadEnable = true;
    } else {
        thread->requestExit();  // run() has taken back the request of whoever stopped it meanwhile
    }
}

int SonorelService::stopMetaAudioThread() {
    Mutex::Autolock leaf(mThreadLock);
    ++mMetaAudioThreadStops;
    mMetaAudioThreadEnable = false;
    if (mMetaAudioThread != nullptr) {
        mMetaAudioThread->requestExit();
    }
    return 0;
}

binder::Status SonorelService::setSpatializerState(int32_t mode) {
    if (!isAllowedFindHalvend()) return binder::Status::ok();
    SONOREL_LOGD("%s mode=%d, mMode=%d", __func__, mode, mMode.load());
    if (mMode.exchange(mode) == mode) return binder::Status::ok();
    binder::Status status;
    for (int32_t sent = mode;; sent = mMode) {
        setSpMode2Meta(sent);
        status = setHeadTrackerEnable(sent == kSpatializerHeadTracked);
        // Another caller's state may have overtaken this one on its way to the renderer.
        if (sent == mMode) return status;
    }
}

void SonorelService::setSpMode2Meta(int32_t mode) {
    SONOREL_LOGD("%s +++ mode :%d", __func__, mode);
    CallbackData in;
    in.spMode = mode;
    callClient(IHalvendClient::CLIENT_ID_META_AUDIO, IHalvendClient::CB_SET_SP_MODE, in, nullptr);
    SONOREL_LOGD("%s --- mode :%d", __func__, mode);
}

binder::Status SonorelService::isMetaTrackPlaying(bool* playing) {
    CallbackData reply;
    callClient(IHalvendClient::CLIENT_ID_META_AUDIO, IHalvendClient::CB_IS_META_TRACK_PLAYING,
               CallbackData(), &reply);
    *playing = reply.isPlaying;
    return binder::Status::ok();
}

binder::Status SonorelService::getActiveMetaList(std::string* list) {
    SONOREL_LOGD("%s +++", __func__);
    CallbackData reply;
    callClient(IHalvendClient::CLIENT_ID_META_AUDIO, IHalvendClient::CB_GET_ACTIVE_META_LIST,
               CallbackData(), &reply);
    *list = std::move(reply.strValue);
    SONOREL_LOGD("%s ---", __func__);
    return binder::Status::ok();
}

}  // namespace android
