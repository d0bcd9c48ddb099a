// Bodies of the controls that belong to no one room.
#include "sdk/sim_control.h"

#include "sdk/runtime/settings.h"

namespace sim {

void control(const char* text) { apply_settings(settings(), text); }

void control_reset() { reset_settings(); }

}  // namespace sim
