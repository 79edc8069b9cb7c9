#include "client/ClientConnection.h"

#include "services/dbus/DbusAddressProbe.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <deque>
#include <optional>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <systemd/sd-bus.h>
#include <thread>
#include <unistd.h>

namespace tessel {

namespace {

    constexpr const char* notEntitledError = "com.tamber.Tessel.Error.NotEntitled";

    ClientErrorCode codeForError(const std::string& name, const std::string& message)
    {
        if (name == "com.tamber.Tessel.Error.LimitExceeded")
            return ClientErrorCode::LimitExceeded;
        if (name == "com.tamber.Tessel.Error.InvalidArguments")
            return ClientErrorCode::InvalidArguments;
        if (name == "org.freedesktop.DBus.Error.ServiceUnknown"
            || name == "org.freedesktop.DBus.Error.NameHasNoOwner")
            return ClientErrorCode::NoDaemon;
        // sd-bus answers the calls still waiting with this when the bus goes away.
        if (name == "org.freedesktop.DBus.Error.NoReply" && message == "Connection terminated")
            return ClientErrorCode::NoBus;
        if (name == "org.freedesktop.DBus.Error.NoReply" || name == "org.freedesktop.DBus.Error.Timeout"
            || name == "org.freedesktop.DBus.Error.TimedOut")
            return ClientErrorCode::Timeout;
        if (name == "org.freedesktop.DBus.Error.Disconnected"
            || name == "org.freedesktop.DBus.Error.NoServer")
            return ClientErrorCode::NoBus;
        return ClientErrorCode::Failed;
    }

} // namespace

// What handlers on the bus thread share with the client, so that they may
// outlive it.
struct ClientConnection::Shared : std::enable_shared_from_this<Shared> {
    std::atomic<bool> open { true };
    // Held while a callback runs; recursive so that a callback may
    // destroy its client.
    std::recursive_mutex gate;
    ClientExecutor executor;
    ClientErrorHandler errorHandler;
    bool reportRefusals = false;
    // The unique name that owns the service's name; bus thread only.
    std::string owner;
    // Results and events waiting to be handed over; bus thread only.
    std::vector<Work> ready;

    // Queues work for handOver, on the bus thread.
    void deliver(Work work);
    // Hands what is ready to the executor. The bus thread calls it outside
    // sd-bus's dispatch, during which sdbus-c++ holds the lock that a
    // callback's next call needs.
    void handOver();
    void fail(ClientErrorCode code, std::string operation, std::string message);
    // Silent for NotEntitled unless refusals are reported: the daemon tells
    // the caller nothing.
    void failWith(const sdbus::Error& error, std::string operation);
    // Whether a signal came from the daemon that owns the name, not from
    // a peer posing as it.
    bool isFromOwner(const std::string& sender) const { return !sender.empty() && sender == owner; }
};

void ClientConnection::Shared::deliver(Work work)
{
    if (open)
        ready.push_back(std::move(work));
}

void ClientConnection::Shared::handOver()
{
    std::vector<Work> works;
    works.swap(ready);
    for (auto& work : works) {
        if (!open)
            return;
        auto run = [self = shared_from_this(), work = std::move(work)] {
            std::lock_guard lock(self->gate);
            if (self->open)
                work();
        };
        if (executor)
            executor(std::move(run));
        else
            run();
    }
}

void ClientConnection::Shared::fail(ClientErrorCode code, std::string operation, std::string message)
{
    if (!errorHandler)
        return;
    deliver(
        [self = shared_from_this(), error = ClientError { code, std::move(operation), std::move(message) }] {
            self->errorHandler(error);
        });
}

void ClientConnection::Shared::failWith(const sdbus::Error& error, std::string operation)
{
    if (error.getName() == notEntitledError) {
        if (reportRefusals)
            fail(ClientErrorCode::NotEntitled, std::move(operation),
                error.getName() + ": " + error.getMessage());
        return;
    }
    fail(codeForError(error.getName(), error.getMessage()), std::move(operation),
        error.getName() + ": " + error.getMessage());
}

// Everything the bus thread touches. Torn down in order: the thread first,
// then what handlers point into, the connection last.
struct ClientConnection::Loop {
    // Outlives the client when it is destroyed inside a callback.
    std::shared_ptr<Shared> shared;
    std::unique_ptr<sdbus::IConnection> bus;
    std::string busError;
    std::unique_ptr<sdbus::IProxy> proxy;
    sdbus::Slot ownerWatch;
    int wakeFd = -1;
    // Wakes the loop for the timeout of a call sent from another thread.
    int timerFd = -1;
    std::mutex timerLock;
    uint64_t timerArmedFor = UINT64_MAX;
    std::thread thread;
    std::atomic<bool> stopping { false };
    // Its client was destroyed on the bus thread, which then tears it down.
    bool orphaned = false;
    // Set on the bus thread; the connection stays until teardown, since
    // other threads may be sending on it.
    std::atomic<bool> busLost { false };
    std::mutex postedLock;
    std::deque<Work> posted;

    ~Loop()
    {
        stopping = true;
        wake();
        if (thread.joinable())
            thread.join();
        proxy.reset();
        ownerWatch.reset();
        bus.reset();
        if (wakeFd >= 0)
            close(wakeFd);
        if (timerFd >= 0)
            close(timerFd);
    }

    bool isCurrentThread() const { return thread.get_id() == std::this_thread::get_id(); }

    static void drain(int fd)
    {
        uint64_t count;
        [[maybe_unused]] auto read = ::read(fd, &count, sizeof count);
    }

    void wake()
    {
        uint64_t one = 1;
        [[maybe_unused]] auto written = write(wakeFd, &one, sizeof one);
    }

    // Runs work on the bus thread, so that nothing reaches the application
    // inside one of its own calls.
    void post(Work work)
    {
        {
            std::lock_guard lock(postedLock);
            posted.push_back(std::move(work));
        }
        wake();
    }

    // A call sent from another thread may find the loop asleep without a
    // timeout, or it may leave part of a long message to write. The timer
    // covers the first without a thread switch now; the second needs the loop.
    void afterSend()
    {
        if (!bus || busLost)
            return;
        auto poll = bus->getEventLoopPollData();
        if (poll.events & POLLOUT)
            return wake();
        if (poll.timeout_usec == UINT64_MAX)
            return;
        std::lock_guard lock(timerLock);
        if (poll.timeout_usec >= timerArmedFor)
            return;
        itimerspec at {};
        at.it_value.tv_sec = static_cast<time_t>(poll.timeout_usec / 1'000'000);
        // Zero would disarm it: an answer already waiting makes the timeout now.
        at.it_value.tv_nsec = static_cast<long>(poll.timeout_usec % 1'000'000 * 1000) + 1;
        timerfd_settime(timerFd, TFD_TIMER_ABSTIME, &at, nullptr);
        timerArmedFor = poll.timeout_usec;
    }

    void run()
    {
        while (!stopping) {
            runPosted();
            if (stopping)
                return;
            bool reading = bus && !busLost;
            if (reading && !processAll())
                busLost = true, reading = false;
            if (stopping)
                return;
            pollfd fds[3] = { { wakeFd, POLLIN, 0 }, { timerFd, POLLIN, 0 }, { -1, 0, 0 } };
            int timeout = -1;
            if (reading) {
                auto data = bus->getEventLoopPollData();
                fds[2] = { data.fd, data.events, 0 };
                timeout = data.getPollTimeout();
            }
            if (::poll(fds, reading ? 3 : 2, timeout) < 0 && errno != EINTR)
                return;
            if (fds[0].revents & POLLIN)
                drain(wakeFd);
            if (fds[1].revents & POLLIN) {
                drain(timerFd);
                std::lock_guard lock(timerLock);
                timerArmedFor = UINT64_MAX;
            }
        }
    }

    // False once the bus is gone; sd-bus has then answered every waiting
    // call with an error.
    bool processAll()
    {
        try {
            // What the last call dispatched is handed over too: sd-bus may
            // report no progress for a timeout it has answered.
            bool progressed;
            do {
                progressed = bus->processPendingRequest();
                shared->handOver();
            } while (progressed && !stopping);
            return true;
        } catch (const sdbus::Error& error) {
            busError = error.getMessage();
            shared->handOver();
            return false;
        }
    }

    void runPosted()
    {
        std::deque<Work> work;
        {
            std::lock_guard lock(postedLock);
            work.swap(posted);
        }
        for (auto& item : work)
            item();
        shared->handOver();
    }
};

ClientConnection::ClientConnection(
    ClientOptions options, std::string serviceName, std::string objectPath, std::string interfaceName)
    : _shared(std::make_shared<Shared>())
    , _serviceName(std::move(serviceName))
    , _interfaceName(std::move(interfaceName))
    , _timeoutMicroseconds(static_cast<uint64_t>(
          std::chrono::duration_cast<std::chrono::microseconds>(options.timeout).count()))
    , _loop(std::make_unique<Loop>())
{
    _loop->shared = _shared;
    _shared->executor = std::move(options.executor);
    _shared->errorHandler = std::move(options.errorHandler);
    _shared->reportRefusals = options.reportRefusals;
    _loop->wakeFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    // sd-bus states its timeouts on the monotonic clock.
    _loop->timerFd = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
    if (!options.busAddress.empty()) {
        if (auto reason = dbusAddressUnreachable(options.busAddress)) {
            _loop->busError = *reason;
            return;
        }
    }
    try {
        _loop->bus = options.busAddress.empty()
            ? sdbus::createSessionBusConnection()
            : sdbus::createSessionBusConnectionWithAddress(options.busAddress);
        _loop->proxy = sdbus::createProxy(*_loop->bus, _serviceName, std::move(objectPath));
    } catch (const sdbus::Error& error) {
        _loop->busError = error.getMessage();
        _loop->proxy.reset();
        _loop->bus.reset();
    }
}

ClientConnection::~ClientConnection()
{
    {
        std::lock_guard lock(_shared->gate);
        _shared->open = false;
    }
    _loop->stopping = true;
    // The bus thread cannot join itself: it tears down once the callback that
    // got here has returned, outside any sdbus-c++ frame.
    if (_loop->isCurrentThread()) {
        auto* loop = _loop.release();
        loop->thread.detach();
        loop->orphaned = true;
    } else {
        _loop.reset();
    }
}

void ClientConnection::onSignal(
    const char* interface, const char* member, const char* event, SignalReader read)
{
    if (!_loop->proxy)
        return;
    _loop->proxy->registerSignalHandler(
        interface, member, [shared = _shared, event, read = std::move(read)](sdbus::Signal& signal) {
            if (!shared->isFromOwner(signal.getSender()))
                return;
            Work work;
            try {
                work = read(signal);
            } catch (const std::exception& failure) {
                return shared->fail(ClientErrorCode::MalformedAnswer, event, failure.what());
            }
            if (work)
                shared->deliver(std::move(work));
        });
}

ClientConnection::ReplyReader ClientConnection::completionReader(Work completion)
{
    return [completion = std::move(completion)](sdbus::MethodReply&) { return completion; };
}

void ClientConnection::setObserving(const char* method, const char* operation, bool observing,
    const std::string& bundleIdentifier, Work completion)
{
    {
        std::lock_guard lock(_observingLock);
        _observeMethod = method;
        _observeOperation = operation;
        if (observing)
            _observing.insert(bundleIdentifier);
        else
            _observing.erase(bundleIdentifier);
    }
    call(method, operation, completionReader(std::move(completion)), observing, bundleIdentifier);
}

void ClientConnection::observeAgain()
{
    std::set<std::string> observing;
    const char* method;
    const char* operation;
    {
        std::lock_guard lock(_observingLock);
        observing = _observing;
        method = _observeMethod;
        operation = _observeOperation;
    }
    for (auto& bundleIdentifier : observing)
        call(method, operation, completionReader({}), true, bundleIdentifier);
}

void ClientConnection::start()
{
    auto& loop = *_loop;
    if (loop.bus) {
        try {
            loop.proxy->finishRegistration();
        } catch (const sdbus::Error&) {
            // Without the signal matches there are no events; calls still work.
        }
        try {
            // Watch first, then ask: a change in between is applied after the
            // answer and names the same owner.
            loop.ownerWatch = loop.bus->addMatch(
                "type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',"
                "interface='org.freedesktop.DBus',member='NameOwnerChanged',arg0='"
                    + _serviceName + "'",
                // The bus thread stops before this connection goes.
                [this](sdbus::Message& message) {
                    // Only the bus itself says who owns a name.
                    if (message.getSender() != "org.freedesktop.DBus")
                        return;
                    std::string name, oldOwner, newOwner;
                    try {
                        message >> name >> oldOwner >> newOwner;
                    } catch (const sdbus::Error&) {
                        return;
                    }
                    _shared->owner = newOwner;
                    if (!newOwner.empty())
                        observeAgain();
                });
            auto daemon = sdbus::createProxy(*loop.bus, "org.freedesktop.DBus", "/org/freedesktop/DBus");
            daemon->callMethod("GetNameOwner")
                .onInterface("org.freedesktop.DBus")
                .withArguments(_serviceName)
                .storeResultsTo(_shared->owner);
        } catch (const sdbus::Error&) {
            // Nobody owns the name yet; the watch says when somebody does.
        }
    }
    loop.thread = std::thread([loop = &loop] {
        loop->run();
        if (loop->orphaned)
            delete loop;
    });
}

void ClientConnection::send(const char* method, const char* operation, ReplyReader read,
    const std::function<void(sdbus::MethodCall&)>& write)
{
    auto& loop = *_loop;
    if (!loop.bus || loop.busLost) {
        loop.post([shared = _shared, operation, message = loop.busError] {
            shared->fail(ClientErrorCode::NoBus, operation, message);
        });
        return;
    }
    bool written = false;
    try {
        auto message = loop.proxy->createMethodCall(_interfaceName, method);
        write(message);
        written = true;
        loop.proxy->callMethod(
            message,
            [shared = _shared, operation, read = std::move(read)](
                sdbus::MethodReply& reply, const sdbus::Error* error) {
                if (error)
                    return shared->failWith(*error, operation);
                Work work;
                try {
                    work = read(reply);
                } catch (const std::exception& failure) {
                    return shared->fail(ClientErrorCode::MalformedAnswer, operation, failure.what());
                }
                if (work)
                    shared->deliver(std::move(work));
            },
            _timeoutMicroseconds);
        loop.afterSend();
    } catch (const sdbus::Error& error) {
        // An argument the bus cannot carry (text that is not UTF-8), or a bus
        // that went away since the client connected.
        auto code = written ? ClientErrorCode::NoBus : ClientErrorCode::InvalidArguments;
        loop.post([shared = _shared, code, operation, message = error.getMessage()] {
            shared->fail(code, operation, message);
        });
    }
}

} // namespace tessel
