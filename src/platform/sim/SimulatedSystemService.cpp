#include "platform/sim/SimulatedSystemService.h"

namespace tessel {

void SimulatedSystemService::setBadgeValue(const Value& value, const std::string& bundleID)
{
    std::lock_guard lock(_lock);
    _badges[bundleID] = value;
    _history.emplace_back(bundleID, value);
}

Value SimulatedSystemService::badgeValue(const std::string& bundleID) const
{
    std::lock_guard lock(_lock);
    auto found = _badges.find(bundleID);
    return found == _badges.end() ? Value() : found->second;
}

std::vector<std::pair<std::string, Value>> SimulatedSystemService::badgeHistory() const
{
    std::lock_guard lock(_lock);
    return _history;
}

} // namespace tessel
