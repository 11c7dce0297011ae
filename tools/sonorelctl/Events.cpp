#include "sonorelctl/Events.h"

#include <qelto/halvend/IHalvendClient.h>

namespace sonorel::ctl {
namespace {

using Client = qelto::halvend::IHalvendClient;

struct Event {
    int32_t number;
    const char* name;
};

constexpr Event kEvents[] = {
        {Client::CB_SET_META_AUDIO_ON, "CB_SET_META_AUDIO_ON"},
        {Client::CB_SET_META_AUDIO_MODE, "CB_SET_META_AUDIO_MODE"},
        {Client::CB_SET_CURRENT_POS, "CB_SET_CURRENT_POS"},
        {Client::CB_IS_SCENE_PLAYING, "CB_IS_SCENE_PLAYING"},
        {Client::CB_META_THREAD_TICK, "CB_META_THREAD_TICK"},
        {Client::CB_PLAY_STATE_CHANGED, "CB_PLAY_STATE_CHANGED"},
        {Client::CB_GET_META_AUDIO_ON, "CB_GET_META_AUDIO_ON"},
        {Client::CB_GET_META_AUDIO_MODE, "CB_GET_META_AUDIO_MODE"},
        {Client::CB_GET_CURRENT_POS, "CB_GET_CURRENT_POS"},
        {Client::CB_IS_META_TRACK_PLAYING, "CB_IS_META_TRACK_PLAYING"},
        {Client::CB_SET_SP_MODE, "CB_SET_SP_MODE"},
        {Client::CB_HEAD_TO_STAGE_DATA, "CB_HEAD_TO_STAGE_DATA"},
        {Client::CB_GET_ACTIVE_META_LIST, "CB_GET_ACTIVE_META_LIST"},
        {Client::CB_SET_META_THREAD_ENABLE, "CB_SET_META_THREAD_ENABLE"},
        {Client::CB_LOAD_XML_AND_SQLITE, "CB_LOAD_XML_AND_SQLITE"},
        {Client::CB_SET_SPLIT_SCREEN_MODE, "CB_SET_SPLIT_SCREEN_MODE"},
        {Client::CB_SET_APK_WINDOW_SIZE, "CB_SET_APK_WINDOW_SIZE"},
        {Client::CB_SET_MSS_ENABLE, "CB_SET_MSS_ENABLE"},
        {Client::CB_GET_MSS_ENABLE, "CB_GET_MSS_ENABLE"},
        {Client::CB_SET_MSS_RENDER_MODE, "CB_SET_MSS_RENDER_MODE"},
        {Client::CB_GET_MSS_RENDER_MODE, "CB_GET_MSS_RENDER_MODE"},
        {Client::CB_SET_MSS_TRACKS_GAIN, "CB_SET_MSS_TRACKS_GAIN"},
        {Client::CB_NOTIFY_MSS_STATE, "CB_NOTIFY_MSS_STATE"},
        {Client::CB_META_AUDIO_ON_TO_CLIENT, "CB_META_AUDIO_ON_TO_CLIENT"},
        {Client::CB_SET_FAST_GAME_EFFECT, "CB_SET_FAST_GAME_EFFECT"},
        {Client::CB_IS_MSS_MUSIC_ONLY, "CB_IS_MSS_MUSIC_ONLY"},
};

}  // namespace

const char* eventName(int32_t event) {
    for (const Event& known : kEvents) {
        if (known.number == event) return known.name;
    }
    return nullptr;
}

}  // namespace sonorel::ctl
