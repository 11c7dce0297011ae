#include "service/SonorelService.h"

#include <cstring>

#include <binder/IServiceManager.h>
#include <cutils/properties.h>
#include <media/stagefright/foundation/ALooper.h>
#include <qelto/FgeDatabase.h>
#include <qelto/MetaInfoSqliteUtil.h>
#include <qelto/MssDatabase.h>
#include <utils/AndroidThreads.h>

#include "game/GameFlags.h"
#include "meta/MetaAudioThread.h"
#include "meta/SettingsDevices.h"
#include "policy/PolicyTables.h"
#include "service/ServiceLog.h"
#include "service/SpHandler.h"

namespace android {

namespace {

constexpr char kServiceName[] = "SonorelService";
constexpr char kSettingsTable[] = "META_INFO";
constexpr int kSceneBound = 14;  // scene numbers stay below it
constexpr float kSettingsLayout = 1.5f;

// A longer value that begins with these characters counts too.
bool isAudioxMergeProduct() {
    constexpr char kPrefix[] = "audiox_merge";
    char type[PROPERTY_VALUE_MAX] = {};
    property_get("ro.qelto.audio.effect.type", type, "");
    return std::strncmp(type, kPrefix, sizeof(kPrefix) - 1) == 0;
}

}  // namespace

void SonorelService::instantiate() {
    const sp<SonorelService> service = new SonorelService();
    const sp<IServiceManager> manager = defaultServiceManager();
    const status_t result =
            manager == nullptr
                    ? static_cast<status_t>(NO_INIT)
                    : manager->addService(String16(kServiceName), service, false /*allowIsolated*/,
                                          IServiceManager::DUMP_FLAG_PRIORITY_DEFAULT);
    if (result == OK) {
        SONOREL_LOGD("add halvend ok");
    } else {
        SONOREL_LOGD("add halvend fail, ret=%d ", result);
    }
}

sp<SonorelService> SonorelService::testInstantiate() {
    return new SonorelService();
}

SonorelService::SonorelService() {
    SONOREL_LOGD("%s", __func__);
    mSupportSpeaker = property_get_bool("ro.qelto.audio.support.meta_audio_speaker", false) != 0;
    mCurrentDevice = 0;
    init();
    if (mSupportSpeaker && mMetaInfoSqliteUtil != nullptr) {
        // The other device class gets its default home positions as well.
        seedHomePos(kDeviceHeadset);
    }
    mLooper = new ALooper();
    mSpHandler = new SpHandler(mMetaInfoSqliteUtil);
    mLooper->setName("SpHandler");
    const status_t started = mLooper->start(false /*runOnCallingThread*/, false /*canCallJava*/,
                                            ANDROID_PRIORITY_AUDIO);
    mLooper->registerHandler(mSpHandler);
    if (started != OK) {
        // Without its thread nothing posted would ever be done, and who waits for it would hang.
        SONOREL_LOGE("%s: no looper thread, ret=%d", __func__, started);
        mSpHandler.clear();
        mLooper.clear();
    }
    mIsAudioxMerge = isAudioxMergeProduct();
}

SonorelService::~SonorelService() {
    SONOREL_LOGD("%s", __func__);
    // The tables own their records.
    std::atomic_store(&mPolicyTables, std::shared_ptr<const PolicyTables>());
    std::atomic_store(&mMssTables, std::shared_ptr<const MssTables>());
    if (mLooper != nullptr) {
        mLooper->stop();
    }
}

void SonorelService::init() {
    SONOREL_LOGD("%s", __func__);
    Mutex::Autolock lock(mLock);
    if (mInited) {
        SONOREL_LOGD("%s halvend already inited", __func__);
        return;
    }
    mMetaInfoSqliteUtil = new MetaInfoSqliteUtil(
            mDbPath, kSettingsTable, kSceneBound, kSettingsLayout,
            static_cast<meta_devices_t>(getDbDeviceType(mIsHeadSetConnected)));
    // Only the location that the two checks leave behind matters here.
    (void)isNeedUpdateMetaPolicyXML(true);
    (void)isNeedUpdateMetaPolicyXML(false);
    loadMetaAudioXml();
    initCustomDefaultSceneHomePos();
    loadMssAudioXml();
    (void)spNotifyLoadXmlAndSqlite();  // no client can have registered yet

    mSupportMss = property_get_int32("ro.qelto.audio.support.mss", 0) >= 1;
    if (mSupportMss && mMssDatabase == nullptr) {
        mMssDatabase = new MssDatabase(mDbPath);
    }
    if (gSupportFastGameEffect && gFastGameEffectShowUi && mFgeDatabase == nullptr) {
        SONOREL_LOGD("FastGameEffect: make fgedatabase %s", __func__);
        mFgeDatabase = new FgeDatabase(mDbPath);
    }
    mInited = true;
}

void SonorelService::onFirstRef() {
    SONOREL_LOGD("%s", __func__);
}

void SonorelService::binderDied(const wp<IBinder>&) {
    SONOREL_LOGD("%s", __func__);
}

void SonorelService::onAudioServerDied() {
    (void)needSettingsPush();  // the next registration looks
}

int SonorelService::onAudioServerRestarted() {
    SettingsPush push;
    push.need = needSettingsPush();
    {
        Mutex::Autolock lock(mClientLock);
        const sp<CallbackClient> renderer = findClient(IHalvendClient::CLIENT_ID_META_AUDIO);
        if (renderer != nullptr) push.registration = renderer->mRegistration;
        mPush = push;
    }
    pushSettings(push);
    return 0;
}

binder::Status SonorelService::testSonorelService() {
    SONOREL_LOGD("%s", __func__);
    return binder::Status::ok();
}

}  // namespace android
