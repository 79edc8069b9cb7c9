#include "platform/Clock.h"

namespace tessel {

Clock::~Clock() = default;

} // namespace tessel
