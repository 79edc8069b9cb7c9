#pragma once

#include "platform/foundation/Value.h"
#include "platform/push/IncomingPushMessage.h"

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tessel {

class PushConnection;
class WorkQueue;

// Called on the connection's callback queue.
class PushConnectionDelegate {
public:
    virtual ~PushConnectionDelegate() = default;
    virtual void connectionDidReceiveToken(PushConnection& connection, const Bytes& token,
        const std::optional<std::string>& topic, const std::string& identifier)
        = 0;
    virtual void connectionDidReceivePublicToken(PushConnection& connection, const Bytes& token) = 0;
    virtual void connectionDidReceiveIncomingMessage(
        PushConnection& connection, const IncomingPushMessage& message)
        = 0;
};

// The device's subscription to the push service in one environment: which
// topics it wants, and how urgently, and the tokens it is given. Thread-safe.
class PushConnection : public std::enable_shared_from_this<PushConnection> {
public:
    enum TopicList : int {
        EnabledTopics = 0,
        OpportunisticTopics = 1,
    };

    PushConnection(std::string environmentName, WorkQueue& callbackQueue);
    virtual ~PushConnection();

    const std::string& environmentName() const { return _environmentName; }
    // Not retained.
    void setDelegate(const std::shared_ptr<PushConnectionDelegate>& delegate);

    virtual void setUsesAppLaunchStats(bool uses) = 0;
    virtual void setEnabledTopics(const std::vector<std::string>& topics) = 0;
    virtual void setIgnoredTopics(const std::vector<std::string>& topics) = 0;
    virtual void setOpportunisticTopics(const std::vector<std::string>& topics) = 0;
    // A topic not in fromList stays where it is.
    virtual void moveTopic(const std::string& topic, int fromList, int toList) = 0;
    // The token arrives later through the delegate.
    virtual void requestTokenForTopic(const std::string& topic, const std::string& identifier) = 0;
    virtual void invalidateTokenForTopic(const std::string& topic, const std::string& identifier) = 0;

    std::string description() const;

protected:
    // Each hops onto the callback queue; nothing happens once the delegate is gone.
    void deliverToken(
        const Bytes& token, const std::optional<std::string>& topic, const std::string& identifier);
    void deliverPublicToken(const Bytes& token);
    void deliverIncomingMessage(const IncomingPushMessage& message);

private:
    template <typename Call> void toDelegate(Call call);

    const std::string _environmentName;
    WorkQueue& _callbackQueue;
    mutable std::mutex _lock;
    std::weak_ptr<PushConnectionDelegate> _delegate;
};

// Makes connections and speaks for the device as a whole.
class PushService {
public:
    virtual ~PushService() = default;
    // Delegate callbacks arrive on callbackQueue, which must outlive the connection.
    virtual std::shared_ptr<PushConnection> makeConnection(
        const std::string& environmentName, WorkQueue& callbackQueue)
        = 0;
    // The topic lists are settled: the service may pass its filter on.
    virtual void notifySafeToSendFilter() = 0;
    // A message handed in on this machine, as a local source takes them; false
    // when no connection of the environment takes its topic, or the service
    // takes none this way.
    virtual bool injectIncomingMessage(const std::string& environmentName, const IncomingPushMessage& message)
    {
        (void)environmentName;
        (void)message;
        return false;
    }
};

} // namespace tessel
