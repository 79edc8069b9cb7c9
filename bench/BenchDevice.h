#pragma once

#include "platform/sim/SimulatedDevice.h"

namespace tessel {

// One simulated device for the whole run: singletons such as the notification
// store bind to the Library they first see, so every benchmark shares it.
SimulatedDevice& benchDevice();

} // namespace tessel
