#include "game/GameFlags.h"

#include <cutils/properties.h>

namespace android {

const bool gSupportFastGameEffect =
        property_get_bool("ro.qelto.audio.support.low_latency_game_effect", false) != 0;
const bool gFastGameEffectShowUi =
        property_get_bool("ro.qelto.audio.support.low_latency_game_effect.show_ui", false) != 0;

}  // namespace android
