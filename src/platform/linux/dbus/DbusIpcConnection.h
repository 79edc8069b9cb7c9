#pragma once

#include "platform/ipc/IpcConnection.h"

#include <sdbus-c++/sdbus-c++.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace tessel {

class DbusIpcService;
class WorkQueue;

// One caller of a published service: everything one unique bus name sends it.
// Requests run in order on the connection's own queue; events for the caller
// are signals addressed to its name alone.
class DbusIpcConnection : public IpcConnection {
public:
    // pidfd pins the caller's process; the connection owns it.
    DbusIpcConnection(IpcPeer peer, int pidfd, std::weak_ptr<DbusIpcService> service, std::string objectPath);
    ~DbusIpcConnection() override;

    void resume() override;
    // Stops serving this caller; a later request of the same name is a new connection.
    void invalidate() override;

    const std::string& sender() const { return peer().name; }
    bool isInvalid() const;
    // Whether the pinned process still runs.
    bool isProcessAlive() const;

    size_t pendingRequests() const { return _pending; }
    void requestReceived() { ++_pending; }
    void requestAnswered() { --_pending; }
    // Counts refusals; true for the ones worth a log line (1st, 2nd, 4th, ...),
    // so that a flood cannot flood the log as well.
    bool shouldLogRefusal();

    // Runs call with the exported object on this connection's queue, with the
    // connection current, once it is resumed; refused runs instead when the
    // handler refuses or there is nothing to call.
    void receive(std::function<void(void* exportedObject)> call, std::function<void()> refused);
    // From the transport: the caller left or the listener stopped.
    void close();

    // From any thread: the one reply to a call kept by the service.
    void answer(uint64_t callId, std::function<void(const sdbus::MethodCall&)> reply);
    // From any thread: a signal for this caller only; dropped once the connection is over.
    void emitSignal(
        const std::string& interface, const std::string& member, std::function<void(sdbus::Signal&)> fill);

protected:
    std::shared_ptr<void> remoteObjectPointer() override;

private:
    void deliver(std::function<void(void*)> call, std::function<void()> refused);
    void markInvalid();

    const std::weak_ptr<DbusIpcService> _service;
    const std::string _objectPath;
    const std::shared_ptr<WorkQueue> _queue;
    std::atomic<size_t> _pending { 0 };
    std::atomic<uint64_t> _refusals { 0 };

    mutable std::mutex _stateMutex;
    int _pidfd; // closed once the connection ends
    bool _resumed = false;
    bool _invalid = false;
    struct Waiting {
        std::function<void(void*)> call;
        std::function<void()> refused;
    };
    std::vector<Waiting> _waiting;
};

} // namespace tessel
