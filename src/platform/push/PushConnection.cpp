#include "platform/push/PushConnection.h"

#include "platform/concurrency/WorkQueue.h"
#include "platform/foundation/Format.h"

#include <cstdint>

namespace tessel {

PushConnection::PushConnection(std::string environmentName, WorkQueue& callbackQueue)
    : _environmentName(std::move(environmentName))
    , _callbackQueue(callbackQueue)
{
}

PushConnection::~PushConnection() = default;

void PushConnection::setDelegate(const std::shared_ptr<PushConnectionDelegate>& delegate)
{
    std::lock_guard lock(_lock);
    _delegate = delegate;
}

std::string PushConnection::description() const
{
    return format("<PushConnection %@ 0x%lx>", _environmentName, reinterpret_cast<uintptr_t>(this));
}

template <typename Call> void PushConnection::toDelegate(Call call)
{
    // The delegate is read when the callback runs, so one set right after a
    // connection is made hears what the connection said on its way up.
    auto self = shared_from_this();
    _callbackQueue.async([self, call] {
        std::shared_ptr<PushConnectionDelegate> delegate;
        {
            std::lock_guard lock(self->_lock);
            delegate = self->_delegate.lock();
        }
        if (delegate)
            call(*delegate, *self);
    });
}

void PushConnection::deliverToken(
    const Bytes& token, const std::optional<std::string>& topic, const std::string& identifier)
{
    toDelegate([token, topic, identifier](PushConnectionDelegate& delegate, PushConnection& connection) {
        delegate.connectionDidReceiveToken(connection, token, topic, identifier);
    });
}

void PushConnection::deliverPublicToken(const Bytes& token)
{
    toDelegate([token](PushConnectionDelegate& delegate, PushConnection& connection) {
        delegate.connectionDidReceivePublicToken(connection, token);
    });
}

void PushConnection::deliverIncomingMessage(const IncomingPushMessage& message)
{
    toDelegate([message](PushConnectionDelegate& delegate, PushConnection& connection) {
        delegate.connectionDidReceiveIncomingMessage(connection, message);
    });
}

} // namespace tessel
