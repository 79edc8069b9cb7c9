#include "platform/events/SystemNotificationCenter.h"

namespace tessel {

SystemNotificationCenter::~SystemNotificationCenter() = default;

} // namespace tessel
