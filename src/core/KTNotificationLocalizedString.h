#pragma once

#include "platform/foundation/Value.h"

#include <memory>
#include <optional>
#include <string>

namespace tessel {

class Bundle;

// A key localized in an application's bundle (its default table) and filled
// with network arguments; else the default value as it stands; else the key.
// Only a string key, a string default and an array of arguments count; absent
// when nothing non-empty is left.
std::optional<std::string> KTNotificationLocalizedString(const Value& key, const Value& defaultValue,
    const std::shared_ptr<Bundle>& bundle, const Value& arguments);

} // namespace tessel
