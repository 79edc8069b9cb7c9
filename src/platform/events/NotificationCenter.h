#pragma once

#include "platform/foundation/Value.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace tessel {

// Posted by the host on the in-process center when the user's locale changes
// and when the system asks processes to give memory back.
inline constexpr const char* CurrentLocaleDidChangeNotification = "CurrentLocaleDidChangeNotification";
inline constexpr const char* ApplicationDidReceiveMemoryWarningNotification
    = "ApplicationDidReceiveMemoryWarningNotification";

struct Notification {
    std::string name;
    const void* object = nullptr;
    Value userInfo;
};

// In-process notifications, delivered synchronously on the posting thread in
// registration order. Observers run without the lock held, so they may post,
// add or remove. One removed during a delivery is not called afterwards in it;
// one added during a delivery is not called for it. Removing does not wait for
// a callback already running on another thread.
class NotificationCenter {
public:
    using ObserverId = uint64_t;
    using Callback = std::function<void(const Notification&)>;

    // An empty name observes every name; a null object observes any object.
    ObserverId addObserver(const void* owner, std::string name, const void* object, Callback callback);
    void removeObserver(ObserverId id);
    // Every registration of that owner.
    void removeObserver(const void* owner);
    void removeObserver(const void* owner, std::string_view name);

    void postNotification(std::string name, const void* object = nullptr, Value userInfo = {});

private:
    struct Registration;
    template <typename Predicate> void removeWhere(Predicate predicate);

    std::mutex _lock;
    ObserverId _nextId = 1;
    std::vector<std::shared_ptr<Registration>> _registrations;
};

} // namespace tessel
