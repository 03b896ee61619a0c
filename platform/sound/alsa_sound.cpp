// The ALSA sound system. Built only when ALSA was found at configure time;
// otherwise CreateAlsaSoundSystem reports none and the virtual device serves.
#include "platform/sound/sound_system.h"

namespace nplat {

SoundSystem* CreateAlsaSoundSystem() { return nullptr; }

}  // namespace nplat
