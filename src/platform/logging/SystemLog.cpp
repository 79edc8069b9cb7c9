#include "platform/logging/SystemLog.h"

namespace tessel {

SystemLog::~SystemLog() = default;

} // namespace tessel
