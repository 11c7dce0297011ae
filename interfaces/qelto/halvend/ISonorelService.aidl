package qelto.halvend;

import qelto.halvend.IHalvendClient;

/**
 * Spatial-audio policy and settings, published under the name "SonorelService".
 *
 * The order of the methods is the order of the transaction codes and never changes. Every method
 * answers with an ok status; the service does not touch the outputs of a refused caller, who reads
 * false, 0 or empty (getFastGameEffectOn: -1). Vectors that a method fills are sized by the caller
 * and are never resized by the service. Positions are three floats x, y, z.
 * "device" is a device class: 0 built-in speaker, 1 headset, -1 none given.
 */
interface ISonorelService {
    void testSonorelService();
    /** The policy record of one application package, as text. */
    @utf8InCpp String getMetaInfoByPkgName(@utf8InCpp String pkgName);
    /** The scene parameters of the policy file, as text. */
    @utf8InCpp String getMetaAudioSceMap();
    void setHeadTrackerEnable(boolean enable);
    /** Relays rx, ry, rz, vx, vy, vz to the renderer while head tracking is on. */
    void sendHeadToStageData(in float[] data);
    void getHeadToStageData(out float[] data);
    void registerClient(@nullable IHalvendClient client, byte clientId);
    void unregisterClient(byte clientId);
    @utf8InCpp String javaCallGetMetaInfoByPkgName(@utf8InCpp String pkgName);
    void javaCallSetCurrentPos(int scene, in float[] pos);
    void javaCallGetCurrentPos(int scene, out float[] pos);
    void javaCallGetDefaultPos(int scene, out float[] pos);
    boolean javaCallIsScenePlaying(int scene);
    /** Fills a vector of 14 or more with the scenes 0 to 13, -1 where a scene is not offered. */
    void javaCallGetSupportSceneArray(out int[] scenes);
    void onPlayStateChange(int scene, in float[] pos, int playState, @utf8InCpp String name);
    /** The renderer's status, -1 when none answered. */
    int setMetaAudioOn(boolean on);
    boolean getMetaAudioOn();
    int setMetaAudioMode(byte mode);
    byte getMetaAudioMode();
    void setCurrentUserID(int userId);
    void setParameters(@utf8InCpp String keyValuePairs);
    @utf8InCpp String getParameters(@utf8InCpp String keys);
    boolean isMetaTrackPlaying();
    void setMetaAudioThreadEnable(boolean enable);
    void notitySpHeadsetConnectionState(boolean isConnected);
    /** Head tracking is on exactly in mode 2. */
    void setSpatializerState(int mode);
    @utf8InCpp String getActiveMetaList();
    /** True when an online policy file of the same or a newer version was loaded. */
    boolean checkAndUpdatePolicy();
    oneway void registerClientOneWay(@nullable IHalvendClient client, byte clientId);
    boolean isUnsupportDevice(@utf8InCpp String device);
    int setMetaAudioOnWithDev(boolean on, byte device);
    boolean getMetaAudioOnWithDev(byte device);
    int setMetaAudioModeWithDev(byte mode, byte device);
    byte getMetaAudioModeWithDev(byte device);
    void setCurrentPosWithDev(int scene, in float[] pos, byte device);
    void getCurrentPosWithDev(int scene, out float[] pos, byte device);
    void getDefaultPosWithDev(int scene, out float[] pos, byte device);
    boolean getHeadsetConnectionState();
    void setSplitScreenModeEnabled(boolean enabled, int splitMode, int splitParam);
    void setApkWindowSize(@utf8InCpp String screenPosMapString);
    oneway void notifySpHeadsetConnectionStateOneway(boolean isConnected);
    /** 0 when accepted, -1 when the package may not use sound separation. */
    int setMssEnable(@utf8InCpp String pkgName, boolean enable);
    boolean getMssEnable(@utf8InCpp String pkgName);
    int setMssTracksGain(@utf8InCpp String pkgName, in float[] gains);
    int getMssTracksGain(@utf8InCpp String pkgName, out float[] gains);
    int setMssSpatialRenderMode(int mode);
    int getMssSpatialRenderMode();
    void onMultiChnSpatializerTrackChanged(boolean added, int trackId, @utf8InCpp String pkgName);
    void setSpatilizerAudioEnable(boolean enable);
    @utf8InCpp String getDynamicProcessorInfMap();
    @utf8InCpp String getAudioDetectorInfMap();
    void setOutputDeviceForMss(long deviceType);
    @utf8InCpp String getMssParamInfoMap();
    /** The client's status, -1 when the package has no switch or no client answered. */
    int setFastGameEffectOn(@utf8InCpp String pkgName, int value);
    int getFastGameEffectOn(@utf8InCpp String pkgName);
    @utf8InCpp String loadPkgSwitchInFastSql();
    void syncGameListInfo(@utf8InCpp String moduleInfo);
}
