package qelto.halvend;

/**
 * The one record that every callback event carries, as input and as answer.
 *
 * A sender starts from the defaults and sets only the fields that its event uses; a client answers
 * a two-way event in a second record that starts from the defaults too. The order of the fields is
 * the order of their bytes in a parcel and never changes.
 */
parcelable CallbackData {
    /** Set by the client in its answer; -1 means that no client answered. */
    int status = -1;
    /** Meta audio on or off. */
    boolean enable = false;
    /** Meta audio mode. */
    byte mode = 0;
    @utf8InCpp String pkgName = "";
    /** Scene number, 1 to 13. */
    int scene = 0;
    /** Kept in the record; no event fills it. */
    int intValue = 0;
    /** Spatializer mode. */
    int spMode = 0;
    boolean isPlaying = false;
    /** Play state as the player reports it, unchanged. */
    int playState = 0;
    /** A position (x, y, z) or head-tracking data (rx, ry, rz, vx, vy, vz, ...). */
    float[] data = {};
    /** Kept in the record; no event fills it. */
    int intValue2 = 0;
    /** Text answer: the list of active meta tracks. */
    @utf8InCpp String strValue = "";
    boolean splitScreenEnabled = false;
    int splitScreenParam1 = 0;
    int splitScreenParam2 = 0;
    /** Text argument: the sizes of the application windows. */
    @utf8InCpp String strValue2 = "";
    /** Sound separation on or off; in the answer to the music-only question, true for music only. */
    boolean mssEnable = false;
    /** Sound separation render mode; the game effect's event carries its switch value here. */
    int renderMode = 0;
    /** Sound separation track gains. */
    float[] gains = {};
}
