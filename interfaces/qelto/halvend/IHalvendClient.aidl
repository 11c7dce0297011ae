package qelto.halvend;

import qelto.halvend.CallbackData;

/**
 * Implemented by a native audio component that registers with ISonorelService.
 *
 * The service calls these on the client's binder threads. While onClientEvent runs, the service
 * holds its client lock: the client must answer soon, and must not call registerClient,
 * unregisterClient or any method that sends a callback from inside it.
 */
interface IHalvendClient {
    /** Told of play-state changes. */
    const int CLIENT_ID_PLAYBACK = 0;
    /** The renderer: receives almost every event, and the stored settings when it first registers. */
    const int CLIENT_ID_META_AUDIO = 1;
    /** Receives the tick while head tracking works. */
    const int CLIENT_ID_META_THREAD = 3;
    /** The audio effect centre: told of on/off and mode on products that work on the loudspeaker. */
    const int CLIENT_ID_EFFECT_CENTER = 4;
    const int CLIENT_ID_MSS_APP = 5;

    // Event numbers. 22 is kept unused. Behind each: client, way, fields set -> fields read back.
    /** 1, two-way: enable -> status */
    const int CB_SET_META_AUDIO_ON = 0;
    /** 1, two-way: mode -> status */
    const int CB_SET_META_AUDIO_MODE = 1;
    /** 1, one-way: scene, data */
    const int CB_SET_CURRENT_POS = 2;
    /** 1, two-way: scene -> isPlaying */
    const int CB_IS_SCENE_PLAYING = 3;
    /** 3, one-way, every 8 ms: nothing */
    const int CB_META_THREAD_TICK = 4;
    /** 0, one-way: scene, data, playState, pkgName */
    const int CB_PLAY_STATE_CHANGED = 5;
    /** 1, two-way: nothing -> enable */
    const int CB_GET_META_AUDIO_ON = 6;
    /** 1, two-way: nothing -> mode */
    const int CB_GET_META_AUDIO_MODE = 7;
    /** 1, two-way: scene -> status, data */
    const int CB_GET_CURRENT_POS = 8;
    /** 1, two-way: nothing -> isPlaying */
    const int CB_IS_META_TRACK_PLAYING = 9;
    /** 1, one-way: spMode */
    const int CB_SET_SP_MODE = 10;
    /** 1, one-way: data */
    const int CB_HEAD_TO_STAGE_DATA = 11;
    /** 1, two-way: nothing -> strValue */
    const int CB_GET_ACTIVE_META_LIST = 12;
    /** 3, one-way: nothing */
    const int CB_SET_META_THREAD_ENABLE = 13;
    /** 1, two-way: nothing -> status */
    const int CB_LOAD_XML_AND_SQLITE = 14;
    /** 1, one-way: splitScreenEnabled, splitScreenParam1, splitScreenParam2 */
    const int CB_SET_SPLIT_SCREEN_MODE = 15;
    /** 1, one-way: strValue2 */
    const int CB_SET_APK_WINDOW_SIZE = 16;
    /** 1, one-way: pkgName, mssEnable */
    const int CB_SET_MSS_ENABLE = 17;
    /** 1, two-way: pkgName -> mssEnable */
    const int CB_GET_MSS_ENABLE = 18;
    /** 1, one-way: renderMode */
    const int CB_SET_MSS_RENDER_MODE = 19;
    /** 1, two-way: nothing -> renderMode */
    const int CB_GET_MSS_RENDER_MODE = 20;
    /** 1, one-way: pkgName, gains */
    const int CB_SET_MSS_TRACKS_GAIN = 21;
    /** 5, one-way: nothing */
    const int CB_NOTIFY_MSS_STATE = 23;
    /** Any id (4 in practice), one-way: enable, mode */
    const int CB_META_AUDIO_ON_TO_CLIENT = 24;
    /** 1, two-way: pkgName, renderMode (the switch value) -> status */
    const int CB_SET_FAST_GAME_EFFECT = 25;
    /** 1, two-way: nothing -> mssEnable (true means music only) */
    const int CB_IS_MSS_MUSIC_ONLY = 26;

    /** A two-way event. The answer starts from the defaults of CallbackData. */
    void onClientEvent(int event, in CallbackData input, out CallbackData answer);
    /** A one-way event; arrives in the order in which the service sent it. */
    oneway void onClientEventOneWay(int event, in CallbackData input);
}
