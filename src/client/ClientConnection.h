#pragma once

#include "client/MessageArrays.h"
#include "tessel/services/ClientOptions.h"

#include <sdbus-c++/sdbus-c++.h>

#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace tessel {

// A client's connection to the bus and the thread that reads it: calls to one
// service, the owner of the service's name, and the way results reach the
// application. Calls never wait for the daemon; a bus that cannot be reached
// turns every call into a NoBus error.
class ClientConnection {
public:
    using Work = std::function<void()>;
    // Reads a reply on the bus thread and answers the work that hands the
    // result to the application (or nothing). Throwing makes the answer
    // malformed.
    using ReplyReader = std::function<Work(sdbus::MethodReply& reply)>;

    ClientConnection(
        ClientOptions options, std::string serviceName, std::string objectPath, std::string interfaceName);
    // No callback runs once it returns. It may run inside a callback.
    ~ClientConnection();
    ClientConnection(const ClientConnection&) = delete;
    ClientConnection& operator=(const ClientConnection&) = delete;

    // Reads a signal's arguments on the bus thread and answers the work that
    // hands the event to the application. Throwing makes the event malformed.
    using SignalReader = std::function<Work(sdbus::Signal& signal)>;

    // Before start, which registers them with the bus. Only the daemon that
    // owns the name is heard, and nothing is read before that is known: a
    // peer posing as it could otherwise inject events, or arguments that do
    // not read.
    void onSignal(const char* interface, const char* member, const char* event, SignalReader read);
    void start();

    // Answers the completion, if any, once the daemon took the request.
    static ReplyReader completionReader(Work completion);

    template <typename... Args>
    void call(const char* method, const char* operation, ReplyReader read, const Args&... args)
    {
        send(method, operation, std::move(read),
            [&](sdbus::MethodCall& message) { (append(message, args), ...); });
    }

    // Sends method(observing, bundleIdentifier) and keeps the identifiers
    // observed: a daemon that takes the name knows nothing of them, so they
    // are sent to it again.
    void setObserving(const char* method, const char* operation, bool observing,
        const std::string& bundleIdentifier, Work completion);

private:
    struct Shared;
    struct Loop;

    void observeAgain();

    void send(const char* method, const char* operation, ReplyReader read,
        const std::function<void(sdbus::MethodCall&)>& write);

    std::shared_ptr<Shared> _shared;
    std::string _serviceName;
    std::string _interfaceName;
    uint64_t _timeoutMicroseconds;
    std::mutex _observingLock;
    std::set<std::string> _observing;
    const char* _observeMethod = nullptr;
    const char* _observeOperation = nullptr;
    std::unique_ptr<Loop> _loop;
};

} // namespace tessel
