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
    SONOREL_LOGD("%s(): %d,mMetaAudioOn:%d mHeadtrackOn:%d", __func__, enable, mMetaAudioOn.load(),
                 mHeadtrackOn.load());
    if (!mIsHeadSetConnected || !mMetaAudioOn) return binder::Status::ok();
    if (enable == mMetaAudioThreadEnable) return binder::Status::ok();
    if (enable) {
        SONOREL_LOGD("%s: NATIVE_NOTIFY_SP_CHECK_SENSOR", __func__);
        callClient(IHalvendClient::CLIENT_ID_META_THREAD, IHalvendClient::CB_SET_META_THREAD_ENABLE,
                   CallbackData(), nullptr);
        startMetaAudioThread();
    } else {
        requestMetaAudioThreadExit();
        mMetaAudioThreadEnable = false;
    }
    return binder::Status::ok();
}

void SonorelService::startMetaAudioThread() {
    if (!mHeadtrackOn) return;
    sp<MetaAudioThread> thread;
    {
        Mutex::Autolock leaf(mThreadLock);
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
    (void)thread->run("MetaAudioThread", ANDROID_PRIORITY_AUDIO, 0);
    mMetaAudioThreadEnable = true;
}

int SonorelService::stopMetaAudioThread() {
    requestMetaAudioThreadExit();
    mMetaAudioThreadEnable = false;
    return 0;
}

void SonorelService::requestMetaAudioThreadExit() {
    sp<MetaAudioThread> thread;
    {
        Mutex::Autolock leaf(mThreadLock);
        thread = mMetaAudioThread;
    }
    if (thread != nullptr) {
        thread->requestExit();
    }
}

binder::Status SonorelService::setSpatializerState(int32_t mode) {
    if (!isAllowedFindHalvend()) return binder::Status::ok();
    SONOREL_LOGD("%s mode=%d, mMode=%d", __func__, mode, mMode.load());
    if (mMode.exchange(mode) == mode) return binder::Status::ok();
    setSpMode2Meta(mode);
    return setHeadTrackerEnable(mode == kSpatializerHeadTracked);
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
