#include "platform/SystemLog.h"

namespace tessel {

SystemLog::~SystemLog() = default;

} // namespace tessel
