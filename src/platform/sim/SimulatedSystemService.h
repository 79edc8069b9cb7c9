#pragma once

#include "platform/processes/SystemService.h"

#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace tessel {

// Remembers every badge set, per application and in order.
class SimulatedSystemService final : public SystemService {
public:
    void setBadgeValue(const Value& value, const std::string& bundleID) override;

    // Null when none was set or the last one removed it.
    Value badgeValue(const std::string& bundleID) const;
    std::vector<std::pair<std::string, Value>> badgeHistory() const;

private:
    mutable std::mutex _lock;
    std::map<std::string, Value> _badges;
    std::vector<std::pair<std::string, Value>> _history;
};

} // namespace tessel
