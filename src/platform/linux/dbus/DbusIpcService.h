#pragma once

#include "platform/ipc/IpcLimits.h"
#include "platform/ipc/IpcPeer.h"
#include "platform/ipc/IpcService.h"

#include <sdbus-c++/sdbus-c++.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

namespace tessel {

class DbusIpcListener;

// The services published on one bus connection. Everything that touches the
// connection runs on its own bus thread: method calls arrive there, replies
// and signals are handed to it. The bus is reached on the first listener's
// resume, never at construction.
class DbusIpcService : public IpcService, public std::enable_shared_from_this<DbusIpcService> {
public:
    // Names the application behind a caller the bus identified; called on the
    // bus thread once per new caller, with its pid pinned.
    using PeerResolver = std::function<IpcPeer(int32_t pid, uint32_t uid)>;

    // An empty address is the session bus of DBUS_SESSION_BUS_ADDRESS.
    explicit DbusIpcService(std::string address, IpcLimits limits = {}, PeerResolver resolver = {});
    // Must not be the bus thread's doing: it waits for that thread.
    ~DbusIpcService() override;

    std::shared_ptr<IpcListener> makeListener(const std::string& serviceName) override;

    const IpcLimits& limits() const { return _limits; }
    IpcPeer peerForProcess(int32_t pid, uint32_t uid) const;

    // Connects and starts the bus thread once; false when the bus cannot be reached.
    bool start();
    bool isBusThread() const;
    // Runs task on the bus thread; dropped once the service stops.
    void post(std::function<void()> task);
    // Runs task on the bus thread and waits for it (at once on the bus thread itself).
    void runOnBusThread(const std::function<void()>& task);

    // The rest is for the bus thread only.
    sdbus::IConnection& connection() { return *_connection; }
    // The pid owning a unique name as the bus says now; 0 when it does not know it.
    uint32_t processIdOfName(const std::string& name);
    // An unanswered call is kept here, not by whoever answers it, so that no
    // message outlives the connection it came on.
    uint64_t keepCall(sdbus::MethodCall call);
    void forgetCall(uint64_t id);
    void addObject(const std::string& path, sdbus::IObject* object);
    void removeObject(const std::string& path);
    void addListener(DbusIpcListener* listener);
    void removeListener(DbusIpcListener* listener);

    // From any thread: replies to a kept call on the bus thread, at most once.
    void answerCall(uint64_t id, std::function<void(const sdbus::MethodCall&)> reply);
    // From any thread: a signal of the object at path for destination only.
    void emitSignal(std::string path, std::string interface, std::string member, std::string destination,
        std::function<void(sdbus::Signal&)> fill);

    // Runs on the bus thread for each matching signal another connection sends.
    using SignalHandler = std::function<void(sdbus::Message& signal)>;
    // From any thread: connects if need be and hears path's interface.member
    // (names without quotes) from other connections; what is sent once this
    // returns is not missed. 0 when the bus cannot be reached.
    uint64_t subscribeToSignal(
        std::string path, std::string interface, std::string member, SignalHandler handler);
    // Once this returns, the handler does not run again.
    void unsubscribeFromSignal(uint64_t id);
    // From any thread: a signal from path to every connection listening for it.
    void broadcastSignal(std::string path, std::string interface, std::string member,
        std::function<void(sdbus::Signal&)> fill);

private:
    void run();
    bool runPostedTasks();
    // True when a task was posted within a short wait.
    bool awaitReplyBriefly();
    void nameOwnerChanged(sdbus::Message& message);

    const std::string _address;
    const IpcLimits _limits;
    const PeerResolver _resolver;

    std::mutex _startMutex;
    bool _started = false;
    std::unique_ptr<sdbus::IConnection> _connection;
    std::unique_ptr<sdbus::IProxy> _busDriver;
    sdbus::Slot _nameOwnerMatch;
    std::string _uniqueName;
    int _wakeFd = -1;
    std::thread _thread;
    std::atomic<bool> _stopping { false };

    std::mutex _tasksMutex;
    std::vector<std::function<void()>> _tasks;

    // Bus thread only.
    bool _broken = false;
    uint64_t _nextCall = 0;
    std::unordered_map<uint64_t, sdbus::MethodCall> _calls;
    std::map<std::string, sdbus::IObject*> _objects;
    std::vector<DbusIpcListener*> _listeners;
    uint64_t _nextSubscription = 0;
    std::unordered_map<uint64_t, sdbus::Slot> _subscriptions;
    // Objects without methods, only for broadcasting from their paths.
    std::map<std::string, std::unique_ptr<sdbus::IObject>> _broadcasters;
};

} // namespace tessel
