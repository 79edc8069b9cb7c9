#pragma once

#include "platform/foundation/Value.h"
#include "platform/records/NotificationSettings.h"

#include <memory>

namespace tessel {

// Decodes notification settings an application sent. Only the classes settings
// may hold (settings, categories, actions) may appear; any other class
// anywhere, another root or a malformed archive answers null.
std::shared_ptr<NotificationSettings> KTSNotificationSettingsWhitelistedUnarchiveFromData(const Bytes& data);

} // namespace tessel
