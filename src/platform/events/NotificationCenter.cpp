#include "platform/events/NotificationCenter.h"

#include <atomic>

namespace tessel {

struct NotificationCenter::Registration {
    ObserverId id;
    const void* owner;
    std::string name;
    const void* object;
    Callback callback;
    // Read by deliveries in progress after they let go of the lock.
    std::atomic<bool> removed { false };
};

NotificationCenter::ObserverId NotificationCenter::addObserver(
    const void* owner, std::string name, const void* object, Callback callback)
{
    std::lock_guard lock(_lock);
    auto registration = std::make_shared<Registration>();
    registration->id = _nextId++;
    registration->owner = owner;
    registration->name = std::move(name);
    registration->object = object;
    registration->callback = std::move(callback);
    _registrations.push_back(registration);
    return registration->id;
}

template <typename Predicate> void NotificationCenter::removeWhere(Predicate predicate)
{
    std::lock_guard lock(_lock);
    std::erase_if(_registrations, [&](const std::shared_ptr<Registration>& registration) {
        if (!predicate(*registration))
            return false;
        registration->removed = true;
        return true;
    });
}

void NotificationCenter::removeObserver(ObserverId id)
{
    removeWhere([id](const Registration& registration) { return registration.id == id; });
}

void NotificationCenter::removeObserver(const void* owner)
{
    removeWhere([owner](const Registration& registration) { return registration.owner == owner; });
}

void NotificationCenter::removeObserver(const void* owner, std::string_view name)
{
    removeWhere([owner, name](const Registration& registration) {
        return registration.owner == owner && registration.name == name;
    });
}

void NotificationCenter::postNotification(std::string name, const void* object, Value userInfo)
{
    std::vector<std::shared_ptr<Registration>> matching;
    {
        std::lock_guard lock(_lock);
        for (const auto& registration : _registrations) {
            if ((registration->name.empty() || registration->name == name)
                && (!registration->object || registration->object == object))
                matching.push_back(registration);
        }
    }
    Notification notification { std::move(name), object, std::move(userInfo) };
    for (const auto& registration : matching) {
        if (!registration->removed)
            registration->callback(notification);
    }
}

} // namespace tessel
