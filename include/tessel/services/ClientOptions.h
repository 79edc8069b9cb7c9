#ifndef TESSEL_SERVICES_CLIENTOPTIONS_H
#define TESSEL_SERVICES_CLIENTOPTIONS_H

#include <tessel/TesselExport.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tessel {

// A record as it travels to and from the server: the keyed archive of one
// local notification or one set of notification settings. Records.h builds
// and reads them.
using ArchivedRecord = std::vector<uint8_t>;

// Runs the work it is given later, once, on a thread of the application's
// choosing (its main loop, a queue).
using ClientExecutor = std::function<void(std::function<void()> work)>;

enum class ClientErrorCode {
    // The bus could not be reached, or the connection to it was lost.
    NoBus,
    // Nothing serves the service's name and the bus could not start it.
    NoDaemon,
    // No answer within ClientOptions::timeout.
    Timeout,
    // The request passed one of the daemon's bounds (docs/ipc.md).
    LimitExceeded,
    // The daemon could not read the request, such as a malformed archive.
    InvalidArguments,
    // The answer or event could not be read; it is dropped.
    MalformedAnswer,
    // Anything else the bus or the daemon reported.
    Failed,
    // The daemon refused the request; reported only with
    // ClientOptions::reportRefusals.
    NotEntitled,
};

struct ClientError {
    ClientErrorCode code = ClientErrorCode::Failed;
    // The client's method, or the event, that failed.
    std::string operation;
    std::string message;
};

// A request that fails calls the error handler instead of its result
// callback. A request the daemon refuses (it is not entitled) calls neither:
// the daemon tells the caller nothing, unless ClientOptions::reportRefusals.
using ClientErrorHandler = std::function<void(const ClientError& error)>;

struct ClientOptions {
    // A D-Bus address such as "unix:path=/run/user/1000/bus"; empty for the
    // session bus.
    std::string busAddress;
    // Empty: callbacks run on the client's own thread, one at a time, and
    // must not block it for long.
    ClientExecutor executor;
    ClientErrorHandler errorHandler;
    std::chrono::milliseconds timeout { 25000 };
    // Refused requests reach the error handler as NotEntitled, for tools that
    // act for applications and must say so rather than wait.
    bool reportRefusals = false;
};

} // namespace tessel

#endif
