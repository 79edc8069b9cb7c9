#include "platform/concurrency/Clock.h"

namespace tessel {

Clock::~Clock() = default;

} // namespace tessel
