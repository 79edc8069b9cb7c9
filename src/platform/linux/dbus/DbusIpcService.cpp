#include "platform/linux/dbus/DbusIpcService.h"

#include "platform/Platform.h"
#include "platform/linux/dbus/DbusIpcListener.h"
#include "services/dbus/DbusAddressProbe.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <future>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace tessel {

namespace {

    constexpr const char* busDriverName = "org.freedesktop.DBus";
    constexpr const char* busDriverPath = "/org/freedesktop/DBus";
    // Requests handled before posted replies get their turn again, so that a
    // flood of calls cannot hold answers back.
    constexpr int requestsPerTurn = 64;

    thread_local DbusIpcService* busThreadService = nullptr;

    void logError(std::string_view what, const std::exception& error)
    {
        Platform::log(LogPriority::Error, std::string("D-Bus: ") + std::string(what) + ": " + error.what());
    }

} // namespace

DbusIpcService::DbusIpcService(std::string address, IpcLimits limits, PeerResolver resolver)
    : _address(std::move(address))
    , _limits(limits)
    , _resolver(std::move(resolver))
{
}

DbusIpcService::~DbusIpcService()
{
    if (isBusThread()) {
        // Joining ourselves would hang; releasing the service from its own bus
        // thread is a programming error.
        Platform::log(LogPriority::Error, "D-Bus: service released on its own bus thread");
        std::abort();
    }
    if (_thread.joinable()) {
        _stopping = true;
        uint64_t one = 1;
        (void)!write(_wakeFd, &one, sizeof one);
        _thread.join();
    }
    // Messages and slots refer to the connection: they go first.
    _tasks.clear();
    _calls.clear();
    _subscriptions.clear();
    _broadcasters.clear();
    _nameOwnerMatch.reset();
    _busDriver.reset();
    _connection.reset();
    if (_wakeFd >= 0)
        close(_wakeFd);
}

std::shared_ptr<IpcListener> DbusIpcService::makeListener(const std::string& serviceName)
{
    return std::make_shared<DbusIpcListener>(serviceName, shared_from_this());
}

IpcPeer DbusIpcService::peerForProcess(int32_t pid, uint32_t uid) const
{
    IpcPeer peer = _resolver ? _resolver(pid, uid) : IpcPeer {};
    // The bus's word on who called, whatever the resolver says.
    peer.pid = pid;
    peer.uid = uid;
    return peer;
}

bool DbusIpcService::start()
{
    std::lock_guard guard(_startMutex);
    if (_started)
        return _connection != nullptr;
    _started = true;
    if (!_address.empty()) {
        if (auto reason = dbusAddressUnreachable(_address)) {
            Platform::log(LogPriority::Error, "D-Bus: " + *reason);
            return false;
        }
    }
    try {
        _connection = _address.empty() ? sdbus::createSessionBusConnection()
                                       : sdbus::createSessionBusConnectionWithAddress(_address);
        _busDriver = sdbus::createProxy(*_connection, busDriverName, busDriverPath);
        // Installed before any name is requested, so that no caller can leave unseen.
        _nameOwnerMatch = _connection->addMatch(
            "type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',"
            "interface='org.freedesktop.DBus',member='NameOwnerChanged'",
            [this](sdbus::Message& message) { nameOwnerChanged(message); });
        _uniqueName = _connection->getUniqueName();
    } catch (const sdbus::Error& error) {
        logError("cannot connect to the bus", error);
        _nameOwnerMatch.reset();
        _busDriver.reset();
        _connection.reset();
        return false;
    }
    _wakeFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (_wakeFd < 0) {
        Platform::log(LogPriority::Error, "D-Bus: no eventfd for the bus thread");
        _nameOwnerMatch.reset();
        _busDriver.reset();
        _connection.reset();
        return false;
    }
    _thread = std::thread([this] { run(); });
    return true;
}

bool DbusIpcService::isBusThread() const { return busThreadService == this; }

void DbusIpcService::post(std::function<void()> task)
{
    {
        std::lock_guard guard(_tasksMutex);
        if (_stopping || _wakeFd < 0)
            return;
        _tasks.push_back(std::move(task));
    }
    uint64_t one = 1;
    (void)!write(_wakeFd, &one, sizeof one);
}

void DbusIpcService::runOnBusThread(const std::function<void()>& task)
{
    bool running;
    {
        std::lock_guard guard(_startMutex);
        running = _thread.joinable();
    }
    if (isBusThread() || !running) {
        task();
        return;
    }
    std::promise<void> done;
    post([&] {
        task();
        done.set_value();
    });
    done.get_future().wait();
}

void DbusIpcService::run()
{
    busThreadService = this;
    while (!_stopping) {
        bool moreTasks = runPostedTasks();
        if (_stopping)
            break;
        int handled = 0;
        if (!_broken) {
            try {
                while (handled < requestsPerTurn && _connection->processPendingRequest())
                    ++handled;
            } catch (const sdbus::Error& error) {
                // The bus went away; replies and teardown still come through here.
                logError("connection lost", error);
                _broken = true;
            }
        }
        if (handled == requestsPerTurn || moreTasks || (handled > 0 && awaitReplyBriefly()))
            continue;
        pollfd fds[2] = { { _wakeFd, POLLIN, 0 }, { -1, 0, 0 } };
        int timeout = -1;
        if (!_broken) {
            try {
                auto data = _connection->getEventLoopPollData();
                fds[1] = { data.fd, data.events, 0 };
                timeout = data.getPollTimeout();
            } catch (const sdbus::Error& error) {
                logError("connection lost", error);
                _broken = true;
            }
        }
        if (poll(fds, _broken ? 1 : 2, timeout) > 0 && (fds[0].revents & POLLIN)) {
            uint64_t count;
            (void)!read(_wakeFd, &count, sizeof count);
        }
    }
    busThreadService = nullptr;
}

bool DbusIpcService::awaitReplyBriefly()
{
    // A request just handed to a connection's queue is often answered within
    // microseconds; staying up for it spares the reply a wake-up from poll.
    auto deadline = std::chrono::steady_clock::now() + std::chrono::microseconds(50);
    while (std::chrono::steady_clock::now() < deadline) {
        {
            std::lock_guard guard(_tasksMutex);
            if (!_tasks.empty())
                return true;
        }
        std::this_thread::yield();
    }
    return false;
}

bool DbusIpcService::runPostedTasks()
{
    std::vector<std::function<void()>> tasks;
    {
        std::lock_guard guard(_tasksMutex);
        tasks.swap(_tasks);
    }
    for (auto& task : tasks) {
        try {
            task();
        } catch (const std::exception& error) {
            logError("posted task failed", error);
        }
    }
    std::lock_guard guard(_tasksMutex);
    return !_tasks.empty();
}

void DbusIpcService::nameOwnerChanged(sdbus::Message& message)
{
    std::string name, oldOwner, newOwner;
    try {
        message >> name >> oldOwner >> newOwner;
    } catch (const sdbus::Error&) {
        return;
    }
    // Unique names are never reused: one that loses its owner is gone for good.
    if (name.empty() || name[0] != ':' || !newOwner.empty())
        return;
    auto listeners = _listeners;
    for (auto* listener : listeners)
        listener->senderDidVanish(name);
}

uint32_t DbusIpcService::processIdOfName(const std::string& name)
{
    uint32_t pid = 0;
    try {
        _busDriver->callMethod("GetConnectionUnixProcessID")
            .onInterface(busDriverName)
            .withTimeout(std::chrono::seconds(5))
            .withArguments(name)
            .storeResultsTo(pid);
    } catch (const sdbus::Error&) {
        return 0;
    }
    return pid;
}

uint64_t DbusIpcService::keepCall(sdbus::MethodCall call)
{
    auto id = ++_nextCall;
    _calls.emplace(id, std::move(call));
    return id;
}

void DbusIpcService::forgetCall(uint64_t id) { _calls.erase(id); }

void DbusIpcService::answerCall(uint64_t id, std::function<void(const sdbus::MethodCall&)> reply)
{
    post([this, id, reply = std::move(reply)] {
        auto found = _calls.find(id);
        if (found == _calls.end())
            return;
        auto call = std::move(found->second);
        _calls.erase(found);
        try {
            reply(call);
        } catch (const sdbus::Error& error) {
            // A caller that asked for no reply, or one that left.
            Platform::log(LogPriority::Debug, std::string("D-Bus: reply not sent: ") + error.what());
        }
    });
}

void DbusIpcService::addObject(const std::string& path, sdbus::IObject* object) { _objects[path] = object; }

void DbusIpcService::removeObject(const std::string& path) { _objects.erase(path); }

void DbusIpcService::addListener(DbusIpcListener* listener) { _listeners.push_back(listener); }

void DbusIpcService::removeListener(DbusIpcListener* listener)
{
    _listeners.erase(std::remove(_listeners.begin(), _listeners.end(), listener), _listeners.end());
}

void DbusIpcService::emitSignal(std::string path, std::string interface, std::string member,
    std::string destination, std::function<void(sdbus::Signal&)> fill)
{
    post([this, path = std::move(path), interface = std::move(interface), member = std::move(member),
             destination = std::move(destination), fill = std::move(fill)] {
        auto found = _objects.find(path);
        if (found == _objects.end() || _broken)
            return;
        try {
            auto signal = found->second->createSignal(interface, member);
            fill(signal);
            // Addressed: the bus hands it to this one connection, whatever others match.
            signal.setDestination(destination);
            found->second->emitSignal(signal);
        } catch (const sdbus::Error& error) {
            logError("signal " + member + " not sent", error);
        }
    });
}

uint64_t DbusIpcService::subscribeToSignal(
    std::string path, std::string interface, std::string member, SignalHandler handler)
{
    if (!start())
        return 0;
    uint64_t id = 0;
    runOnBusThread([&] {
        if (_broken)
            return;
        auto rule = "type='signal',path='" + path + "',interface='" + interface + "',member='" + member + "'";
        try {
            auto slot
                = _connection->addMatch(rule, [this, handler = std::move(handler)](sdbus::Message& signal) {
                      // The bus hands our own broadcasts back too.
                      if (signal.getSender() != _uniqueName)
                          handler(signal);
                  });
            id = ++_nextSubscription;
            _subscriptions.emplace(id, std::move(slot));
        } catch (const sdbus::Error& error) {
            logError("cannot listen for " + member, error);
        }
    });
    return id;
}

void DbusIpcService::unsubscribeFromSignal(uint64_t id)
{
    if (id != 0)
        runOnBusThread([&] { _subscriptions.erase(id); });
}

void DbusIpcService::broadcastSignal(
    std::string path, std::string interface, std::string member, std::function<void(sdbus::Signal&)> fill)
{
    post([this, path = std::move(path), interface = std::move(interface), member = std::move(member),
             fill = std::move(fill)] {
        if (_broken)
            return;
        try {
            auto& broadcaster = _broadcasters[path];
            if (!broadcaster)
                broadcaster = sdbus::createObject(*_connection, path);
            auto signal = broadcaster->createSignal(interface, member);
            fill(signal);
            broadcaster->emitSignal(signal);
        } catch (const sdbus::Error& error) {
            logError("signal " + member + " not sent", error);
        }
    });
}

} // namespace tessel
