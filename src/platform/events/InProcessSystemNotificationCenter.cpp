#include "platform/events/InProcessSystemNotificationCenter.h"

#include <algorithm>
#include <atomic>

namespace tessel {

struct InProcessSystemNotificationCenter::Registration {
    ObserverId id;
    std::string name;
    Callback callback;
    std::atomic<bool> removed { false };
};

SystemNotificationCenter::ObserverId InProcessSystemNotificationCenter::addObserver(
    std::string name, Callback callback)
{
    std::lock_guard lock(_lock);
    auto registration = std::make_shared<Registration>();
    registration->id = _nextId++;
    registration->name = std::move(name);
    registration->callback = std::move(callback);
    _registrations.push_back(registration);
    return registration->id;
}

void InProcessSystemNotificationCenter::removeObserver(ObserverId id)
{
    std::lock_guard lock(_lock);
    std::erase_if(_registrations, [id](const std::shared_ptr<Registration>& registration) {
        if (registration->id != id)
            return false;
        registration->removed = true;
        return true;
    });
}

void InProcessSystemNotificationCenter::postNotification(const std::string& name)
{
    std::vector<std::shared_ptr<Registration>> matching;
    {
        std::lock_guard lock(_lock);
        if (_remembersPostedNames)
            _postedNames.push_back(name);
        for (const auto& registration : _registrations) {
            if (registration->name == name)
                matching.push_back(registration);
        }
    }
    // A callback may remove observers (or destroy the string the name refers to).
    std::string delivered = name;
    for (const auto& registration : matching) {
        if (!registration->removed)
            registration->callback(delivered);
    }
}

bool InProcessSystemNotificationCenter::hasObservers(std::string_view name) const
{
    std::lock_guard lock(_lock);
    return std::any_of(_registrations.begin(), _registrations.end(),
        [name](const std::shared_ptr<Registration>& registration) { return registration->name == name; });
}

std::vector<std::string> InProcessSystemNotificationCenter::postedNames() const
{
    std::lock_guard lock(_lock);
    return _postedNames;
}

} // namespace tessel
