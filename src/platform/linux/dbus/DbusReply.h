#pragma once

#include "platform/linux/dbus/DbusErrors.h"
#include "platform/linux/dbus/DbusIpcConnection.h"

#include <sdbus-c++/sdbus-c++.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

namespace tessel {

// The one reply a method call gets: the first of an answer, an error, or,
// once the last holder lets it go unanswered, NotEntitled (a handler that
// refused or dropped its result callback).
template <typename... Results> class DbusReply {
public:
    DbusReply(std::shared_ptr<DbusIpcConnection> connection, uint64_t callId)
        : _connection(std::move(connection))
        , _callId(callId)
    {
    }
    ~DbusReply() { fail(DbusErrors::notEntitled, "The request was not answered"); }
    DbusReply(const DbusReply&) = delete;
    DbusReply& operator=(const DbusReply&) = delete;

    void answer(Results... results)
    {
        if (!claim())
            return;
        _connection->answer(_callId, [... results = std::move(results)](const sdbus::MethodCall& call) {
            auto reply = call.createReply();
            if constexpr (sizeof...(Results) > 0)
                (reply << ... << results);
            reply.send();
        });
    }

    void fail(std::string name, std::string message)
    {
        if (!claim())
            return;
        _connection->answer(
            _callId, [name = std::move(name), message = std::move(message)](const sdbus::MethodCall& call) {
                call.createErrorReply(sdbus::Error(name, message)).send();
            });
    }

private:
    bool claim()
    {
        if (_answered.exchange(true))
            return false;
        _connection->requestAnswered();
        return true;
    }

    const std::shared_ptr<DbusIpcConnection> _connection;
    const uint64_t _callId;
    std::atomic<bool> _answered { false };
};

} // namespace tessel
