package qelto.halvend;
parcelable CallbackData {
  int status = -1;
  boolean enable = false;
  byte mode = 0;
  @utf8InCpp String pkgName = "";
  int scene = 0;
  int intValue = 0;
  int spMode = 0;
  boolean isPlaying = false;
  int playState = 0;
  float[] data = {};
  int intValue2 = 0;
  @utf8InCpp String strValue = "";
  boolean splitScreenEnabled = false;
  int splitScreenParam1 = 0;
  int splitScreenParam2 = 0;
  @utf8InCpp String strValue2 = "";
  boolean mssEnable = false;
  int renderMode = 0;
  float[] gains = {};
}
