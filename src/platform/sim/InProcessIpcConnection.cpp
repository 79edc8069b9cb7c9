#include "platform/sim/InProcessIpcConnection.h"

#include "platform/concurrency/WorkQueue.h"

namespace tessel {

InProcessIpcConnection::InProcessIpcConnection(IpcPeer peer, std::string label)
    : IpcConnection(std::move(peer))
    , _queue(WorkQueue::create(std::move(label)))
{
}

InProcessIpcConnection::~InProcessIpcConnection()
{
    if (auto other = _other.lock())
        other->invalidateThisEnd();
}

bool InProcessIpcConnection::isInvalid()
{
    std::lock_guard guard(_stateMutex);
    return _invalid;
}

void InProcessIpcConnection::pair(
    const std::shared_ptr<InProcessIpcConnection>& a, const std::shared_ptr<InProcessIpcConnection>& b)
{
    a->_other = b;
    b->_other = a;
}

std::shared_ptr<void> InProcessIpcConnection::remoteObjectPointer()
{
    std::weak_ptr<InProcessIpcConnection> other = _other;
    return makeForwarder(remoteObjectInterface(), [other](std::function<void(void*)> call) {
        if (auto end = other.lock())
            end->receive(std::move(call));
    });
}

void InProcessIpcConnection::resume()
{
    std::vector<std::function<void(void*)>> waiting;
    {
        std::lock_guard guard(_stateMutex);
        if (_resumed || _invalid)
            return;
        _resumed = true;
        waiting.swap(_waiting);
    }
    for (auto& call : waiting)
        receive(std::move(call));
}

void InProcessIpcConnection::receive(std::function<void(void*)> call)
{
    {
        std::lock_guard guard(_stateMutex);
        if (_invalid)
            return;
        if (!_resumed) {
            _waiting.push_back(std::move(call));
            return;
        }
    }
    auto self = std::static_pointer_cast<InProcessIpcConnection>(shared_from_this());
    _queue->async([self, call = std::move(call)] {
        auto object = self->exportedObject();
        if (object)
            self->deliverRequest([&] { call(object.get()); });
    });
}

void InProcessIpcConnection::invalidate()
{
    if (auto other = _other.lock())
        other->invalidateThisEnd();
    invalidateThisEnd();
}

void InProcessIpcConnection::invalidateThisEnd()
{
    {
        std::lock_guard guard(_stateMutex);
        if (_invalid)
            return;
        _invalid = true;
        _waiting.clear();
    }
    auto self = std::static_pointer_cast<InProcessIpcConnection>(shared_from_this());
    _queue->async([self] { self->callInvalidationHandler(); });
}

} // namespace tessel
