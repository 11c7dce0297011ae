// SonorelService: policy and settings of spatial audio, one binder object per process.
//
// What runs where
//   binder threads     every public method; CallbackClient::binderDied
//   "SpHandler"        the looper: deferred store writes (service/SpHandler.h)
//   "MetaAudioThread"  the 8 ms tick to client 3 (meta/MetaAudioThread.h)
//
// Contents: section, and where it is implemented
//   1 Lifecycle         service/SonorelService.cpp
//   2 Caller check      service/SonorelServiceAccess.cpp
//   3 Clients           service/SonorelServiceClients.cpp
//   4 Policy            policy/SonorelServicePolicy.cpp
//   5 Users, devices    meta/SonorelServiceDevices.cpp
//   6 On/off and mode   meta/SonorelServiceSettings.cpp
//   7 Scene positions   meta/SonorelServiceScenes.cpp
//   8 Playback          meta/SonorelServicePlayback.cpp
//   9 Head tracking     meta/SonorelServiceHeadTracking.cpp
//  10 Spatializer       meta/SonorelServiceSpatializer.cpp
//  11 Sound separation  mss/SonorelServiceMss.cpp, mss/SonorelServiceMssRender.cpp
//  12 Game effect       game/SonorelServiceGame.cpp
//  13 Parameters        params/SonorelServiceParams.cpp
//  then all data members.
//
// Every binder method answers with an ok status. What a method does not reach in its out-parameters
// stays as the caller passed it. A method ending in Int is the worker that talks to the client; the
// method of the same name without Int checks the caller and keeps the books.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <binder/IBinder.h>
#include <binder/Status.h>
#include <qelto/halvend/BnSonorelService.h>
#include <qelto/halvend/CallbackData.h>
#include <qelto/halvend/IHalvendClient.h>
#include <utils/KeyedVector.h>
#include <utils/Mutex.h>
#include <utils/RefBase.h>
#include <utils/String8.h>

namespace android {

struct ALooper;
class FgeDatabase;
class MetaAudioThread;
class MetaInfoSqliteUtil;
class MssDatabase;
struct MssTables;
struct PolicyTables;
struct SettingRow;
class SpHandler;

class SonorelService : public qelto::halvend::BnSonorelService, public IBinder::DeathRecipient {
public:
    using CallbackData = qelto::halvend::CallbackData;
    using IHalvendClient = qelto::halvend::IHalvendClient;

    // One registration: keeps the client's callback binder, and ends the registration when the
    // client's process ends. The table owns it, and so does its death while it is handled.
    class CallbackClient : public IBinder::DeathRecipient {
    public:
        CallbackClient(const sp<SonorelService>& service, const sp<IHalvendClient>& client,
                       int8_t clientId, uint64_t registration);
        ~CallbackClient() override;
        CallbackClient(const CallbackClient&) = delete;
        CallbackClient& operator=(const CallbackClient&) = delete;

        void binderDied(const wp<IBinder>& who) override;

        // Set for life at construction.
        sp<SonorelService> mService;
        sp<IHalvendClient> mClient;
        int8_t mClientId;
        // No two registrations of a service have the same number.
        const uint64_t mRegistration;
        // Its client's death has been counted. Guarded by the service's mClientLock.
        bool mHasDied = false;
    };

    // ---- 1 Lifecycle: service/SonorelService.cpp

    // Creates the service and publishes it as "SonorelService". Called once, by the host process.
    static void instantiate();
    // Creates the service without publishing it, for use in process.
    static sp<SonorelService> testInstantiate();

    SonorelService();
    ~SonorelService() override;
    SonorelService(const SonorelService&) = delete;
    SonorelService& operator=(const SonorelService&) = delete;

    // Loads policy and settings, once; a later call changes nothing. Called by the constructor.
    void init() EXCLUDES(mLock);
    void onFirstRef() override;
    void binderDied(const wp<IBinder>& who) override;
    // The host process calls these at the audio server's end and return. After a restart the stored
    // settings are pushed to the renderer again, or to the next one that registers; always 0.
    void onAudioServerDied();
    int onAudioServerRestarted();
    binder::Status testSonorelService() override;

    // ---- 2 Caller check: service/SonorelServiceAccess.cpp

    // True when the caller of the binder call that this thread serves may change or reveal state:
    // system (1000), the audio server (1041), or a holder of the permission.
    bool isAllowedFindHalvend();

    // ---- 3 Clients: service/SonorelServiceClients.cpp

    binder::Status registerClient(const sp<IHalvendClient>& client, int8_t clientId) override
            EXCLUDES(mClientLock);
    binder::Status registerClientOneWay(const sp<IHalvendClient>& client, int8_t clientId) override;
    binder::Status unregisterClient(int8_t clientId) override EXCLUDES(mClientLock);

    // Sends one event to one client; to no one when the id is not registered. With an answer record
    // the call is two-way and blocks until the client answers, mClientLock held; a failed call
    // leaves the answer as it was. Without one it is one-way.
    void callClient(int8_t clientId, int32_t event, CallbackData in, CallbackData* answer)
            EXCLUDES(mClientLock);
    // Tells the renderer that policy and settings are loaded; its status, -1 without one.
    int spNotifyLoadXmlAndSqlite();
    // The registration under an id, or null. Does not take mClientLock: the tick must not wait for
    // a client that is thinking.
    sp<CallbackClient> findClient(int8_t clientId) const EXCLUDES(mClientTableLock);

    // ---- 4 Policy: policy/SonorelServicePolicy.cpp

    binder::Status getMetaInfoByPkgName(const std::string& pkgName, std::string* info) override;
    // The same text for users in process.
    String8 getMetaInfoByPkgName(const String8& pkgName);
    binder::Status getMetaAudioSceMap(std::string* info) override;
    binder::Status getDynamicProcessorInfMap(std::string* info) override;
    binder::Status getAudioDetectorInfMap(std::string* info) override;
    binder::Status getMssParamInfoMap(std::string* info) override;
    binder::Status isUnsupportDevice(const std::string& device, bool* unsupported) override;
    binder::Status checkAndUpdatePolicy(bool* reloaded) override;

    // Checks one copy of the policy file; when it is acceptable, records its version and makes it
    // the copy that the next load reads.
    bool isNeedUpdateMetaPolicyXML(bool isVekUpdateXml) EXCLUDES(mPolicyLock);
    void loadMetaAudioXml();
    void loadMssAudioXml();

    // ---- 5 Users and devices: meta/SonorelServiceDevices.cpp

    binder::Status setCurrentUserID(int32_t userId) override EXCLUDES(mUserLock);
    // Pushes the stored on/off, mode and positions to the clients.
    void initQeltoMetaAudio(bool reload);
    // Returns once every deferred store write that was posted before has been carried out.
    void awaitStoreWrites();
    // For the end of the host process: waits at most `timeoutMs` for the deferred store writes,
    // logs each that was not carried out and returns their number.
    int finishStoreWrites(int timeoutMs);
    // Device class of the settings store: 1 headset, 0 speaker.
    int getDbDeviceType(bool headset) const;
    // True when a request for this device concerns the one that is not live.
    bool justChangeDataBase(int8_t device) const;
    // Meta audio works on the speaker of this product, or a headset is connected.
    bool isMetaAudioCanWork() const;

    // ---- 6 On/off and mode: meta/SonorelServiceSettings.cpp

    binder::Status setMetaAudioOn(bool on, int32_t* status) override;
    binder::Status getMetaAudioOn(bool* on) override;
    binder::Status setMetaAudioMode(int8_t mode, int32_t* status) override;
    binder::Status getMetaAudioMode(int8_t* mode) override;
    binder::Status setMetaAudioOnWithDev(bool on, int8_t device, int32_t* status) override;
    binder::Status getMetaAudioOnWithDev(int8_t device, bool* on) override;
    binder::Status setMetaAudioModeWithDev(int8_t mode, int8_t device, int32_t* status) override;
    binder::Status getMetaAudioModeWithDev(int8_t device, int8_t* mode) override;

    int setMetaAudioOnInt(bool on);
    int setMetaAudioModeInt(int8_t mode);
    void setMetaAudioOnToClient(bool on, int8_t mode, int8_t clientId);

    // ---- 7 Scene positions: meta/SonorelServiceScenes.cpp

    binder::Status javaCallSetCurrentPos(int32_t scene, const std::vector<float>& pos) override;
    binder::Status javaCallGetCurrentPos(int32_t scene, std::vector<float>* pos) override;
    binder::Status javaCallGetDefaultPos(int32_t scene, std::vector<float>* pos) override;
    binder::Status setCurrentPosWithDev(int32_t scene, const std::vector<float>& pos,
                                        int8_t device) override;
    binder::Status getCurrentPosWithDev(int32_t scene, std::vector<float>* pos,
                                        int8_t device) override;
    binder::Status getDefaultPosWithDev(int32_t scene, std::vector<float>* pos,
                                        int8_t device) override;

    void setCurrentPosInt(int32_t scene, const std::vector<float>& pos);
    // Seeds the store's current user and device with the product's home positions, once.
    void initCustomDefaultSceneHomePos();
    // Pushes every scene's stored position to the renderer.
    void initCustomSceneHomePos();

    // ---- 8 Playback: meta/SonorelServicePlayback.cpp

    binder::Status onPlayStateChange(int32_t scene, const std::vector<float>& pos,
                                     int32_t playState, const std::string& name) override;
    binder::Status javaCallIsScenePlaying(int32_t scene, bool* playing) override;
    binder::Status javaCallGetSupportSceneArray(std::vector<int32_t>* scenes) override;
    binder::Status javaCallGetMetaInfoByPkgName(const std::string& pkgName,
                                                std::string* info) override;

    // ---- 9 Head tracking: meta/SonorelServiceHeadTracking.cpp

    binder::Status setHeadTrackerEnable(bool enable) override;
    binder::Status sendHeadToStageData(const std::vector<float>& data) override;
    binder::Status getHeadToStageData(std::vector<float>* data) override;
    binder::Status notitySpHeadsetConnectionState(bool isConnected) override EXCLUDES(mHeadsetLock);
    binder::Status notifySpHeadsetConnectionStateOneway(bool isConnected) override;
    binder::Status getHeadsetConnectionState(bool* connected) override;

    void setHTData2Audio(const std::vector<float>& data);

    // ---- 10 Spatializer and worker thread: meta/SonorelServiceSpatializer.cpp

    binder::Status setMetaAudioThreadEnable(bool enable) override;
    binder::Status setSpatializerState(int32_t mode) override;
    binder::Status isMetaTrackPlaying(bool* playing) override;
    binder::Status getActiveMetaList(std::string* list) override;

    // Starts the worker, if head tracking is on. May wait for a worker that is ending: a period.
    void startMetaAudioThread() EXCLUDES(mThreadStartLock, mThreadLock);
    // Asks the worker to exit, and cancels every start that has begun. Never waits.
    int stopMetaAudioThread() EXCLUDES(mThreadLock);
    void setSpMode2Meta(int32_t mode);

    // ---- 11 Sound separation: mss/SonorelServiceMss.cpp

    binder::Status setMssEnable(const std::string& pkgName, bool enable, int32_t* result) override;
    binder::Status getMssEnable(const std::string& pkgName, bool* enable) override;
    binder::Status onMultiChnSpatializerTrackChanged(bool added, int32_t trackId,
                                                     const std::string& pkgName) override;
    binder::Status setSpatilizerAudioEnable(bool enable) override;
    binder::Status setOutputDeviceForMss(int64_t deviceType) override;

    void setMssEnableInt(const std::string& pkgName, bool enable);
    // Asks the renderer once; its first answer holds for the life of the service.
    bool isMssMusicOnly();
    // Restores the sound separation state in a renderer that has just registered.
    void initMss();
    // Sound separation may run beside what the spatializer does now.
    bool isMssCanWork();
    bool isAppPlayingMultiChnSpatializer(const std::string& pkgName);
    void notifyStateToMssApp();

    // mss/SonorelServiceMssRender.cpp: gains, render mode, sound widening
    binder::Status setMssTracksGain(const std::string& pkgName, const std::vector<float>& gains,
                                    int32_t* result) override;
    binder::Status getMssTracksGain(const std::string& pkgName, std::vector<float>* gains,
                                    int32_t* result) override;
    binder::Status setMssSpatialRenderMode(int32_t mode, int32_t* result) override;
    binder::Status getMssSpatialRenderMode(int32_t* mode) override;

    void setMssTracksGainInt(const std::string& pkgName, const std::vector<float>& gains);
    void setMssSpatialRenderModeInt(int32_t mode);
    // Reads the render mode from the store, where there is one, and pushes it to the renderer.
    void initMssSoundWiden();

    // ---- 12 Game effect: game/SonorelServiceGame.cpp

    binder::Status setFastGameEffectOn(const std::string& pkgName, int32_t value,
                                       int32_t* result) override;
    binder::Status getFastGameEffectOn(const std::string& pkgName, int32_t* value) override;
    binder::Status loadPkgSwitchInFastSql(std::string* mapString) override;
    binder::Status syncGameListInfo(const std::string& moduleInfo) override;

    int setFastGameEffectOnInt(const std::string& pkgName, int32_t value);
    void syncGameListInfoInt(const std::string& moduleInfo);
    void initFastEffectSqlInfo();

    // ---- 13 Parameters and windows: params/SonorelServiceParams.cpp

    binder::Status setParameters(const std::string& keyValuePairs) override;
    binder::Status getParameters(const std::string& keys, std::string* values) override;
    binder::Status setSplitScreenModeEnabled(bool enabled, int32_t splitMode,
                                             int32_t splitParam) override;
    binder::Status setApkWindowSize(const std::string& screenPosMapString) override;

    // Pushes stored on/off and mode to an effect centre that has just registered.
    void initAudioEffectCenter();

private:
    // 3 Clients
    // A push of everything stored to the renderer: what made it necessary, and to which
    // registration it goes (0: to none).
    struct SettingsPush {
        uint32_t need = 0;
        uint64_t registration = 0;
    };

    void addClientLocked(const sp<IHalvendClient>& client, int8_t clientId) REQUIRES(mClientLock);
    // Takes the registration out of the table. The caller releases what it gets after mClientLock:
    // with it may go the last reference to this service.
    sp<CallbackClient> takeClientLocked(int8_t clientId) REQUIRES(mClientLock)
            EXCLUDES(mClientTableLock);
    // Handles the death of one registration's client, whoever is registered under the id by now.
    void onClientDied(CallbackClient& client) EXCLUDES(mClientLock);
    void countDeathLocked(CallbackClient& client) REQUIRES(mClientLock);
    // From now on a renderer that registers gets everything stored. Returns the need's number.
    uint32_t needSettingsPush();
    // Begins the push that the registered renderer needs; false when it needs none, or when another
    // thread is about it.
    bool beginNeededPushLocked(SettingsPush* outPush) REQUIRES(mClientLock);
    // Pushes everything stored to client 1. The need ends with it if it reached a renderer that is
    // still registered and nothing made another push necessary meanwhile.
    void pushSettings(const SettingsPush& push) EXCLUDES(mClientLock);
    // 4 Policy
    std::shared_ptr<const PolicyTables> policyTables() const;
    std::shared_ptr<const MssTables> mssTables() const;
    struct CheckedPolicy;
    enum class PolicyVerdict { kAccepted, kRefused, kOvertaken };
    // The work of isNeedUpdateMetaPolicyXML: the copy that was accepted, null when none was.
    std::unique_ptr<CheckedPolicy> checkPolicyFile(bool isVekUpdateXml) EXCLUDES(mPolicyLock);
    uint64_t newestAcceptedPolicy() const EXCLUDES(mPolicyLock);
    // Records the version as that of the accepted check `number`; refused when a newer version is
    // held, overtaken when another check has taken that number.
    PolicyVerdict acceptPolicyVersion(const std::string& version, uint64_t number)
            EXCLUDES(mPolicyLock);
    // The work of loadMetaAudioXml. Null stands for the file that lies there now.
    void loadOnlineCopy(std::unique_ptr<CheckedPolicy> checked) EXCLUDES(mPolicyLock);
    void loadPolicyFile(const char* path, std::unique_ptr<CheckedPolicy> checked)
            EXCLUDES(mPolicyLock);
    // Serves the tables unless those of a newer check are.
    void publishPolicy(std::shared_ptr<const PolicyTables> tables, uint64_t number)
            EXCLUDES(mPolicyLock);
    // 5, 6, 7 Settings
    void switchSettingsUser(int32_t userId) REQUIRES(mUserLock);
    // Makes the live device the store's current one, on a product whose speaker takes part.
    void followLiveDevice();
    void pushStoredSettings();
    // Seeds the store's current user and that device with the product's home positions, once. The
    // store must be there.
    void seedHomePos(int8_t device);
    bool canDeferStoreWrites() const;
    // The device class whose row of the settings store an argument means.
    int32_t rowDevice(int8_t device) const;
    // Runs `write`, which stores a value for the row on this thread; no deferred write that was
    // posted before can take it back.
    void storeNow(const SettingRow& row, const std::function<void()>& write);
    // What is stored or about to be. They need the settings store.
    bool readStoredOn(int8_t device) const;
    int8_t readStoredMode(int8_t device) const;
    void readStoredPos(int32_t scene, int8_t device, std::vector<float>* pos) const;
    void getCurrentPos(const char* method, int32_t scene, int8_t device, bool live,
                       std::vector<float>* pos);
    void getDefaultPos(const char* method, int32_t scene, bool speaker, std::vector<float>* pos);
    bool askMetaAudioOn(const char* method);
    int8_t askMetaAudioMode(const char* method);
    // 10 Worker thread
    // Starts the worker unless it was stopped since `stops` was read from mMetaAudioThreadStops.
    void startMetaAudioThread(uint32_t stops) EXCLUDES(mThreadStartLock, mThreadLock);
    // 12 Game effect
    void switchFastGameEffectUser(int32_t userId) REQUIRES(mUserLock);
    // Refills the cache from the store, and returns what it then holds.
    std::map<std::string, int> reloadPkgSwitches() EXCLUDES(mGameLock);
    void updateFastGameEffectStore(const std::map<std::string, int>& stored) EXCLUDES(mGameLock);
    bool isSwitchablePkg(const std::string& pkgName) const EXCLUDES(mGameLock);

    // ---- Data, in construction order.
    //
    // The four service locks. What each operation takes is part of the contract: who waits for
    // whom.
    //   lock           held over                                    calls clients while held
    //   mLock          init()                                       yes (event 14)
    //   mUserLock      setCurrentUserID                             yes
    //   mHeadsetLock   notitySpHeadsetConnectionState               yes
    //   mClientLock    the client table and every callClient; innermost   yes
    // mLock, mUserLock and mHeadsetLock are never held together.
    //
    // Below them, invisible to callers, what they do not cover is kept free of races: an atomic for
    // a lone flag or number, an immutable snapshot for tables that change whole, a leaf mutex for
    // what changes entry by entry. A leaf is held for the copy in or out and never over a client
    // call, a store, a file, a log line or another lock.
    //
    // No heading: constant after construction.

    // Guarded by both mClientLock and the leaf for writing, by either for reading.
    DefaultKeyedVector<int8_t, sp<CallbackClient>> mClients GUARDED_BY(mClientTableLock);

    // Replaced whole by a load, accessed with the atomic functions only: the tables of the two
    // files with their serialised forms, and the device names of every policy file that was loaded.
    std::shared_ptr<const PolicyTables> mPolicyTables;
    std::shared_ptr<const MssTables> mMssTables;
    std::shared_ptr<const std::set<String8>> mUnsupportDeviceSet;
    // The newest accepted check of a policy file: its number and the file's version; and the number
    // of the check whose tables are served.
    uint64_t mAcceptedPolicy GUARDED_BY(mPolicyLock) = 0;
    uint64_t mServedPolicy GUARDED_BY(mPolicyLock) = 0;
    String8 mMetaAudioPolicyVersion GUARDED_BY(mPolicyLock){"0"};
    // Which copy the next load reads.
    std::atomic<int> mPolicyXmlLocation{3};

    std::atomic<bool> mHeadtrackOn{false};
    std::atomic<bool> mMetaAudioOn{false};
    sp<IInterface> mDeathClient;
    sp<MetaInfoSqliteUtil> mMetaInfoSqliteUtil;
    sp<SpHandler> mSpHandler;
    sp<ALooper> mLooper;
    std::string mDbPath{"/data/qelto/multimedia/meta.db"};
    // The flag and the number of stops change under mThreadLock.
    std::atomic<bool> mMetaAudioThreadEnable{false};
    std::atomic<uint32_t> mMetaAudioThreadStops{0};
    sp<MetaAudioThread> mMetaAudioThread GUARDED_BY(mThreadLock);
    std::atomic<int32_t> mCurrentUserId{0};
    // The number of the event (start, death, restart) since which client 1 lacks the settings; 0
    // when it has them.
    std::atomic<uint32_t> mNeedInitMetaAudio{1};
    std::atomic<uint32_t> mLastNeed{1};
    // The push that was begun last.
    SettingsPush mPush GUARDED_BY(mClientLock);
    uint64_t mLastRegistration GUARDED_BY(mClientLock) = 0;
    std::atomic<bool> mIsHeadSetConnected{false};
    std::atomic<int32_t> mMode{0};
    std::atomic<int8_t> mMetaAudioMode{0};
    std::atomic<bool> mNeedInitEffectCenter{true};
    std::atomic<bool> mInited{false};

    Mutex mLock ACQUIRED_BEFORE(mClientLock);
    Mutex mHeadsetLock ACQUIRED_BEFORE(mClientLock);
    Mutex mUserLock ACQUIRED_BEFORE(mClientLock);
    Mutex mClientLock;

    std::atomic<bool> mNeedQueryMssMusicOnly{true};
    std::atomic<bool> mMssMusicOnly{false};
    bool mMssEnable GUARDED_BY(mMssLock) = false;
    std::atomic<int32_t> mCurrentDevice{0};
    bool mSupportSpeaker = false;
    std::string mMssPkgName GUARDED_BY(mMssLock);
    std::array<float, 4> mMssTracksGain GUARDED_BY(mMssLock){};
    std::atomic<int32_t> mMssSpatialRenderMode{0};
    std::atomic<bool> mSpatializerAudioEnable{false};
    bool mIsAudioxMerge = false;
    bool mSupportMss = false;
    std::map<int32_t, std::string> mMultiChnSpatializerTracks GUARDED_BY(mMssLock);
    std::atomic<int32_t> mMssCurrentOutputDevice{-3};
    sp<MssDatabase> mMssDatabase;
    sp<FgeDatabase> mFgeDatabase;
    std::map<std::string, int> mPkgNameSwitchMap GUARDED_BY(mGameLock);
    // The number of each package's last choice, so that a reload takes back none.
    std::map<std::string, uint64_t> mPkgNameChoices GUARDED_BY(mGameLock);
    uint64_t mLastPkgNameChoice GUARDED_BY(mGameLock) = 0;
    std::map<std::string, int> mListPkgNameSwitchMap GUARDED_BY(mGameLock);
    String8 mPkgNameSwitchMapString GUARDED_BY(mGameLock);
    std::vector<std::string> mPkgNameHaveSwitchVec GUARDED_BY(mGameLock);

    // Counts the changes of the user or device whose settings the store reads for -2, each after
    // the store knows it.
    std::atomic<uint32_t> mSettingsSwitches{0};

    // One caller at a time starts the worker; held while an ending worker is waited for.
    Mutex mThreadStartLock;

    // The leaves.
    mutable Mutex mClientTableLock ACQUIRED_AFTER(mClientLock);
    mutable Mutex mPolicyLock;
    // Held over MetaAudioThread::requestExit() too, which only sets a flag.
    mutable Mutex mThreadLock ACQUIRED_AFTER(mThreadStartLock);
    mutable Mutex mMssLock;
    mutable Mutex mGameLock;
};

}  // namespace android
