#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace tessel {

// Named notifications that cross process boundaries. Implementations deliver
// to local observers immediately, on the posting thread; names posted by other
// processes arrive on a thread of the implementation's.
class SystemNotificationCenter {
public:
    using ObserverId = uint64_t;
    using Callback = std::function<void(const std::string& name)>;

    virtual ~SystemNotificationCenter();
    virtual ObserverId addObserver(std::string name, Callback callback) = 0;
    virtual void removeObserver(ObserverId id) = 0;
    virtual void postNotification(const std::string& name) = 0;
};

} // namespace tessel
