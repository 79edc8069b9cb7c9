#include "platform/linux/dbus/DbusSystemNotificationCenter.h"

#include "platform/Platform.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/events/InProcessSystemNotificationCenter.h"
#include "platform/foundation/Utf8.h"
#include "platform/linux/dbus/DbusIpcService.h"

#include <chrono>
#include <functional>
#include <set>
#include <string>
#include <thread>

namespace tessel {

namespace {

    // The delivery queue rests this long after each name from elsewhere; what
    // arrives meanwhile folds into one more delivery, so that a flooding peer
    // cannot pile work onto the observers' queues.
    constexpr auto restAfterRemoteDelivery = std::chrono::milliseconds(10);

} // namespace

// Shared with the bus thread's handler and the queued deliveries, which may
// outlive the center.
struct DbusSystemNotificationCenter::Deliveries : std::enable_shared_from_this<Deliveries> {
    InProcessSystemNotificationCenter local { false };
    const std::shared_ptr<WorkQueue> queue = WorkQueue::create("com.tamber.tessel.system-notifications");
    std::mutex mutex;
    // Observed names from elsewhere that wait for their delivery, each once.
    std::set<std::string, std::less<>> pending;

    // On the bus thread.
    void received(sdbus::Message& signal)
    {
        char* text = nullptr;
        try {
            signal >> text;
        } catch (const sdbus::Error&) {
            return;
        }
        std::string_view name = text ? text : "";
        if (!isValidName(name) || !local.hasObservers(name))
            return;
        {
            std::lock_guard guard(mutex);
            if (!pending.emplace(name).second)
                return;
        }
        queue->async([self = shared_from_this(), name = std::string(name)] { self->deliver(name); });
    }

    void deliver(const std::string& name)
    {
        {
            std::lock_guard guard(mutex);
            pending.erase(name);
        }
        local.postNotification(name);
        std::this_thread::sleep_for(restAfterRemoteDelivery);
    }
};

DbusSystemNotificationCenter::DbusSystemNotificationCenter(std::shared_ptr<DbusIpcService> bus)
    : _bus(std::move(bus))
    , _deliveries(std::make_shared<Deliveries>())
{
}

DbusSystemNotificationCenter::~DbusSystemNotificationCenter() { _bus->unsubscribeFromSignal(_subscription); }

SystemNotificationCenter::ObserverId DbusSystemNotificationCenter::addObserver(
    std::string name, Callback callback)
{
    listen();
    return _deliveries->local.addObserver(std::move(name), std::move(callback));
}

void DbusSystemNotificationCenter::removeObserver(ObserverId id) { _deliveries->local.removeObserver(id); }

void DbusSystemNotificationCenter::postNotification(const std::string& name)
{
    if (isValidName(name)) {
        listen();
        _bus->broadcastSignal(
            objectPath, interfaceName, signalName, [name](sdbus::Signal& signal) { signal << name; });
    } else {
        Platform::log(
            LogPriority::Notice, "System notification kept in this process: not a name to broadcast");
    }
    _deliveries->local.postNotification(name);
}

bool DbusSystemNotificationCenter::isValidName(std::string_view name)
{
    return !name.empty() && name.size() <= maximumNameLength && Utf8::isValid(name, false);
}

void DbusSystemNotificationCenter::listen()
{
    // One subscription for every name: an observer added later hears at once.
    std::call_once(_listening, [this] {
        _subscription = _bus->subscribeToSignal(objectPath, interfaceName, signalName,
            [deliveries = _deliveries](sdbus::Message& signal) { deliveries->received(signal); });
    });
}

} // namespace tessel
