#pragma once

#include "platform/events/SystemNotificationCenter.h"

#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

namespace tessel {

// Delivers only within this process and, unless told not to, remembers every
// posted name: for hosts without a message bus, for tests, and as the local
// half of a center that does cross processes. Same delivery rules as
// NotificationCenter.
class InProcessSystemNotificationCenter final : public SystemNotificationCenter {
public:
    // Names from other processes would pile up in a center that forwards them.
    explicit InProcessSystemNotificationCenter(bool remembersPostedNames = true)
        : _remembersPostedNames(remembersPostedNames)
    {
    }

    ObserverId addObserver(std::string name, Callback callback) override;
    void removeObserver(ObserverId id) override;
    void postNotification(const std::string& name) override;

    std::vector<std::string> postedNames() const;
    bool hasObservers(std::string_view name) const;

private:
    struct Registration;

    const bool _remembersPostedNames;
    mutable std::mutex _lock;
    ObserverId _nextId = 1;
    std::vector<std::shared_ptr<Registration>> _registrations;
    std::vector<std::string> _postedNames;
};

} // namespace tessel
