#pragma once

#include "platform/ipc/IpcConnection.h"

#include <functional>
#include <memory>

namespace tessel {

class WorkQueue;

// One end of an in-process connection. Each end delivers what reaches it on
// its own serial queue, with itself current, to its exported object; the
// remote object proxy of one end is a forwarder to the other.
class InProcessIpcConnection : public IpcConnection {
public:
    // Sends one call to an end's exported object; dropped once the end is gone.
    using Send = std::function<void(std::function<void(void* exportedObject)>)>;
    // Makes the forwarder of one interface around send; null for an unknown one.
    static std::shared_ptr<void> makeForwarder(const std::string& interface, Send send);

    InProcessIpcConnection(IpcPeer peer, std::string label);
    // A client that lets go of its end ends the connection.
    ~InProcessIpcConnection() override;

    static void pair(
        const std::shared_ptr<InProcessIpcConnection>& a, const std::shared_ptr<InProcessIpcConnection>& b);

    std::shared_ptr<void> remoteObjectPointer() override;
    void resume() override;
    // Ends both sides: each end's invalidation handler runs on its queue.
    void invalidate() override;
    bool isInvalid();

    // Runs call on this end's queue with this end current; requests that
    // arrive before resume wait for it.
    void receive(std::function<void(void* exportedObject)> call);

private:
    void invalidateThisEnd();

    std::shared_ptr<WorkQueue> _queue;
    std::weak_ptr<InProcessIpcConnection> _other;
    std::mutex _stateMutex;
    bool _resumed = false;
    bool _invalid = false;
    std::vector<std::function<void(void*)>> _waiting;
};

} // namespace tessel
