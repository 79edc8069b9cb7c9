#pragma once

#include "platform/events/SystemNotificationCenter.h"

#include <memory>
#include <mutex>
#include <vector>

namespace tessel {

// Delivers only within this process and remembers every posted name, for
// hosts without a message bus and for tests. Same delivery rules as
// NotificationCenter.
class InProcessSystemNotificationCenter final : public SystemNotificationCenter {
public:
    ObserverId addObserver(std::string name, Callback callback) override;
    void removeObserver(ObserverId id) override;
    void postNotification(const std::string& name) override;

    std::vector<std::string> postedNames() const;

private:
    struct Registration;

    mutable std::mutex _lock;
    ObserverId _nextId = 1;
    std::vector<std::shared_ptr<Registration>> _registrations;
    std::vector<std::string> _postedNames;
};

} // namespace tessel
