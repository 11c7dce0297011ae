#include <qelto/PolicyText.h>

#include "policy/PolicyTables.h"
#include "service/ServiceLog.h"
#include "service/SonorelService.h"

namespace android {

namespace {

constexpr size_t kSceneBound = 14;
constexpr size_t kSceneNotOffered = 12;

}  // namespace

binder::Status SonorelService::onPlayStateChange(int32_t scene, const std::vector<float>& pos,
                                                 int32_t playState, const std::string& name) {
    CallbackData in;
    in.scene = scene;
    in.data = pos;
    in.playState = playState;
    in.pkgName = name;
    callClient(IHalvendClient::CLIENT_ID_PLAYBACK, IHalvendClient::CB_PLAY_STATE_CHANGED, in,
               nullptr);
    SONOREL_LOGD("%s() scene:%d, playState:%d, name:%s", __func__, scene, playState, name.c_str());
    return binder::Status::ok();
}

binder::Status SonorelService::javaCallIsScenePlaying(int32_t scene, bool* playing) {
    if (!isMetaAudioCanWork()) {
        *playing = false;
        return binder::Status::ok();
    }
    CallbackData in;
    in.scene = scene;
    CallbackData reply;
    callClient(IHalvendClient::CLIENT_ID_META_AUDIO, IHalvendClient::CB_IS_SCENE_PLAYING, in,
               &reply);
    *playing = reply.isPlaying;
    SONOREL_LOGD("%s() scene:%d, play:%d", __func__, scene, reply.isPlaying);
    return binder::Status::ok();
}

binder::Status SonorelService::javaCallGetSupportSceneArray(std::vector<int32_t>* scenes) {
    SONOREL_LOGD("%s +++", __func__);
    if (scenes->size() < kSceneBound) return binder::Status::ok();
    for (size_t i = 0; i < scenes->size(); ++i) {
        const bool offered = i < kSceneBound && i != kSceneNotOffered;
        (*scenes)[i] = offered ? static_cast<int32_t>(i) : -1;
    }
    return binder::Status::ok();
}

binder::Status SonorelService::javaCallGetMetaInfoByPkgName(const std::string& pkgName,
                                                            std::string* info) {
    SONOREL_LOGD("%s +++", __func__);
    const auto tables = policyTables();
    String8 text;
    MetaAudioFormat2String(tables->mPkgMetaInfoVec.valueFor(String8(pkgName.c_str())), &text);
    info->assign(text.c_str(), text.size());
    return binder::Status::ok();
}

}  // namespace android
