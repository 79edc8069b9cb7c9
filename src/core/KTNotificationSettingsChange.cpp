#include "core/KTNotificationSettingsChange.h"

#include <tessel/Tessel.h>

namespace tessel {

Value KTNotificationSettingsChange::userInfo() const
{
    return Value(Value::Dictionary {
        { KTNotificationBundleIdentifierKey, Value(bundleIdentifier) },
        { KTNotificationEnabledKey, Value(enabled) },
    });
}

std::optional<KTNotificationSettingsChange> KTNotificationSettingsChange::fromUserInfo(const Value& userInfo)
{
    const Value& bundleIdentifier = userInfo[KTNotificationBundleIdentifierKey];
    if (!bundleIdentifier.isString() || bundleIdentifier.stringValue().empty())
        return std::nullopt;
    return KTNotificationSettingsChange { bundleIdentifier.stringValue(),
        userInfo[KTNotificationEnabledKey].boolValue() };
}

} // namespace tessel
