#pragma once

#include "platform/foundation/Value.h"
#include "platform/records/LocalNotification.h"

#include <memory>

namespace tessel {

// Decodes a local notification an application sent. Only the classes a
// notification may hold (LocalNotification, Region) may appear; any other
// class anywhere, another root or a malformed archive answers null.
std::shared_ptr<LocalNotification> KTSLocalNotificationWhitelistedUnarchiveFromData(const Bytes& data);

} // namespace tessel
