#include "platform/SystemNotificationCenter.h"

namespace tessel {

SystemNotificationCenter::~SystemNotificationCenter() = default;

} // namespace tessel
