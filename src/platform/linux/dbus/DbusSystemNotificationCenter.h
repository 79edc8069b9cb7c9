#pragma once

#include "platform/events/SystemNotificationCenter.h"

#include <cstddef>
#include <memory>
#include <mutex>
#include <string_view>

namespace tessel {

class DbusIpcService;

// Named notifications shared by the processes on a bus. A posted name reaches
// local observers at once and goes out as a broadcast signal; names other
// processes broadcast reach local observers on a queue of the center's own.
class DbusSystemNotificationCenter final : public SystemNotificationCenter {
public:
    static constexpr const char* objectPath = "/com/tamber/Tessel/SystemNotifications";
    static constexpr const char* interfaceName = "com.tamber.Tessel.SystemNotifications1";
    static constexpr const char* signalName = "Posted";
    // Names longer than this, or not UTF-8, stay in the process and are
    // ignored when they come from the bus.
    static constexpr size_t maximumNameLength = 255;

    // Shares the service's connection and bus thread; the bus is reached on
    // first use, not here.
    explicit DbusSystemNotificationCenter(std::shared_ptr<DbusIpcService> bus);
    ~DbusSystemNotificationCenter() override;

    ObserverId addObserver(std::string name, Callback callback) override;
    void removeObserver(ObserverId id) override;
    void postNotification(const std::string& name) override;

    static bool isValidName(std::string_view name);

private:
    struct Deliveries;

    void listen();

    const std::shared_ptr<DbusIpcService> _bus;
    const std::shared_ptr<Deliveries> _deliveries;
    std::once_flag _listening;
    uint64_t _subscription = 0;
};

} // namespace tessel
