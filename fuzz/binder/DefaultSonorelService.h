#pragma once

#include <memory>
#include <string>
#include <vector>

#include <qelto/halvend/BnSonorelService.h>

/** A service whose methods do nothing: what is exercised is the stub in front of it. */
class DefaultSonorelService : public qelto::halvend::BnSonorelService {
    using Status = android::binder::Status;
    using IHalvendClient = qelto::halvend::IHalvendClient;

public:
    Status testSonorelService() override { return Status::ok(); }
    Status getMetaInfoByPkgName(const std::string& /*pkgName*/, std::string* /*result*/) override {
        return Status::ok();
    }
    Status getMetaAudioSceMap(std::string* /*result*/) override { return Status::ok(); }
    Status setHeadTrackerEnable(bool /*enable*/) override { return Status::ok(); }
    Status sendHeadToStageData(const std::vector<float>& /*data*/) override { return Status::ok(); }
    Status getHeadToStageData(std::vector<float>* /*data*/) override { return Status::ok(); }
    Status registerClient(const android::sp<IHalvendClient>& /*client*/,
                          int8_t /*clientId*/) override {
        return Status::ok();
    }
    Status unregisterClient(int8_t /*clientId*/) override { return Status::ok(); }
    Status javaCallGetMetaInfoByPkgName(const std::string& /*pkgName*/,
                                        std::string* /*result*/) override {
        return Status::ok();
    }
    Status javaCallSetCurrentPos(int32_t /*scene*/, const std::vector<float>& /*pos*/) override {
        return Status::ok();
    }
    Status javaCallGetCurrentPos(int32_t /*scene*/, std::vector<float>* /*pos*/) override {
        return Status::ok();
    }
    Status javaCallGetDefaultPos(int32_t /*scene*/, std::vector<float>* /*pos*/) override {
        return Status::ok();
    }
    Status javaCallIsScenePlaying(int32_t /*scene*/, bool* /*result*/) override {
        return Status::ok();
    }
    Status javaCallGetSupportSceneArray(std::vector<int32_t>* /*scenes*/) override {
        return Status::ok();
    }
    Status onPlayStateChange(int32_t /*scene*/, const std::vector<float>& /*pos*/,
                             int32_t /*playState*/, const std::string& /*name*/) override {
        return Status::ok();
    }
    Status setMetaAudioOn(bool /*on*/, int32_t* /*result*/) override { return Status::ok(); }
    Status getMetaAudioOn(bool* /*result*/) override { return Status::ok(); }
    Status setMetaAudioMode(int8_t /*mode*/, int32_t* /*result*/) override { return Status::ok(); }
    Status getMetaAudioMode(int8_t* /*result*/) override { return Status::ok(); }
    Status setCurrentUserID(int32_t /*userId*/) override { return Status::ok(); }
    Status setParameters(const std::string& /*keyValuePairs*/) override { return Status::ok(); }
    Status getParameters(const std::string& /*keys*/, std::string* /*result*/) override {
        return Status::ok();
    }
    Status isMetaTrackPlaying(bool* /*result*/) override { return Status::ok(); }
    Status setMetaAudioThreadEnable(bool /*enable*/) override { return Status::ok(); }
    Status notitySpHeadsetConnectionState(bool /*isConnected*/) override { return Status::ok(); }
    Status setSpatializerState(int32_t /*mode*/) override { return Status::ok(); }
    Status getActiveMetaList(std::string* /*result*/) override { return Status::ok(); }
    Status checkAndUpdatePolicy(bool* /*result*/) override { return Status::ok(); }
    Status registerClientOneWay(const android::sp<IHalvendClient>& /*client*/,
                                int8_t /*clientId*/) override {
        return Status::ok();
    }
    Status isUnsupportDevice(const std::string& /*device*/, bool* /*result*/) override {
        return Status::ok();
    }
    Status setMetaAudioOnWithDev(bool /*on*/, int8_t /*device*/, int32_t* /*result*/) override {
        return Status::ok();
    }
    Status getMetaAudioOnWithDev(int8_t /*device*/, bool* /*result*/) override {
        return Status::ok();
    }
    Status setMetaAudioModeWithDev(int8_t /*mode*/, int8_t /*device*/,
                                   int32_t* /*result*/) override {
        return Status::ok();
    }
    Status getMetaAudioModeWithDev(int8_t /*device*/, int8_t* /*result*/) override {
        return Status::ok();
    }
    Status setCurrentPosWithDev(int32_t /*scene*/, const std::vector<float>& /*pos*/,
                                int8_t /*device*/) override {
        return Status::ok();
    }
    Status getCurrentPosWithDev(int32_t /*scene*/, std::vector<float>* /*pos*/,
                                int8_t /*device*/) override {
        return Status::ok();
    }
    Status getDefaultPosWithDev(int32_t /*scene*/, std::vector<float>* /*pos*/,
                                int8_t /*device*/) override {
        return Status::ok();
    }
    Status getHeadsetConnectionState(bool* /*result*/) override { return Status::ok(); }
    Status setSplitScreenModeEnabled(bool /*enabled*/, int32_t /*splitMode*/,
                                     int32_t /*splitParam*/) override {
        return Status::ok();
    }
    Status setApkWindowSize(const std::string& /*screenPosMapString*/) override {
        return Status::ok();
    }
    Status notifySpHeadsetConnectionStateOneway(bool /*isConnected*/) override {
        return Status::ok();
    }
    Status setMssEnable(const std::string& /*pkgName*/, bool /*enable*/,
                        int32_t* /*result*/) override {
        return Status::ok();
    }
    Status getMssEnable(const std::string& /*pkgName*/, bool* /*result*/) override {
        return Status::ok();
    }
    Status setMssTracksGain(const std::string& /*pkgName*/, const std::vector<float>& /*gains*/,
                            int32_t* /*result*/) override {
        return Status::ok();
    }
    Status getMssTracksGain(const std::string& /*pkgName*/, std::vector<float>* /*gains*/,
                            int32_t* /*result*/) override {
        return Status::ok();
    }
    Status setMssSpatialRenderMode(int32_t /*mode*/, int32_t* /*result*/) override {
        return Status::ok();
    }
    Status getMssSpatialRenderMode(int32_t* /*result*/) override { return Status::ok(); }
    Status onMultiChnSpatializerTrackChanged(bool /*added*/, int32_t /*trackId*/,
                                             const std::string& /*pkgName*/) override {
        return Status::ok();
    }
    Status setSpatilizerAudioEnable(bool /*enable*/) override { return Status::ok(); }
    Status getDynamicProcessorInfMap(std::string* /*result*/) override { return Status::ok(); }
    Status getAudioDetectorInfMap(std::string* /*result*/) override { return Status::ok(); }
    Status setOutputDeviceForMss(int64_t /*deviceType*/) override { return Status::ok(); }
    Status getMssParamInfoMap(std::string* /*result*/) override { return Status::ok(); }
    Status setFastGameEffectOn(const std::string& /*pkgName*/, int32_t /*value*/,
                               int32_t* /*result*/) override {
        return Status::ok();
    }
    Status getFastGameEffectOn(const std::string& /*pkgName*/, int32_t* /*result*/) override {
        return Status::ok();
    }
    Status loadPkgSwitchInFastSql(std::string* /*result*/) override { return Status::ok(); }
    Status syncGameListInfo(const std::string& /*moduleInfo*/) override { return Status::ok(); }
};
