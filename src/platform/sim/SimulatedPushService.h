#pragma once

#include "platform/push/DownloadManager.h"
#include "platform/push/ProfileConnection.h"
#include "platform/push/PushConnection.h"

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace tessel {

// A connection that keeps what it is told and lets a test speak for the service.
class SimulatedPushConnection final : public PushConnection {
public:
    struct TokenCall {
        std::string topic;
        std::string identifier;
        bool operator==(const TokenCall&) const = default;
    };
    struct Move {
        std::string topic;
        int fromList;
        int toList;
        bool operator==(const Move&) const = default;
    };

    using PushConnection::PushConnection;

    void setUsesAppLaunchStats(bool uses) override;
    void setEnabledTopics(const std::vector<std::string>& topics) override;
    void setIgnoredTopics(const std::vector<std::string>& topics) override;
    void setOpportunisticTopics(const std::vector<std::string>& topics) override;
    void moveTopic(const std::string& topic, int fromList, int toList) override;
    void requestTokenForTopic(const std::string& topic, const std::string& identifier) override;
    void invalidateTokenForTopic(const std::string& topic, const std::string& identifier) override;

    // The lists as set, with moves applied.
    std::vector<std::string> enabledTopics() const;
    std::vector<std::string> ignoredTopics() const;
    std::vector<std::string> opportunisticTopics() const;
    // How many times the whole enabled list was set.
    size_t topicSettings() const;
    std::vector<Move> moves() const;
    bool usesAppLaunchStats() const;
    std::vector<TokenCall> tokenRequests() const;
    std::vector<TokenCall> invalidations() const;
    void clearCalls();

    // The service's side; the delegate hears on the callback queue.
    void sendToken(
        const Bytes& token, const std::optional<std::string>& topic, const std::string& identifier);
    void sendPublicToken(const Bytes& token);
    void sendIncomingMessage(const IncomingPushMessage& message);

private:
    mutable std::mutex _mutex;
    std::vector<std::string> _enabled;
    std::vector<std::string> _ignored;
    std::vector<std::string> _opportunistic;
    size_t _topicSettings = 0;
    std::vector<Move> _moves;
    bool _usesAppLaunchStats = false;
    std::vector<TokenCall> _tokenRequests;
    std::vector<TokenCall> _invalidations;
};

class SimulatedPushService final : public PushService {
public:
    std::shared_ptr<PushConnection> makeConnection(
        const std::string& environmentName, WorkQueue& callbackQueue) override;
    void notifySafeToSendFilter() override { ++_filterNotices; }

    // The newest connection of the environment that is still held by someone; null if none.
    std::shared_ptr<SimulatedPushConnection> connection(const std::string& environmentName) const;
    // Connections ever made, live or not.
    size_t connectionsMade() const;
    size_t filterNotices() const { return _filterNotices; }

private:
    mutable std::mutex _mutex;
    std::vector<std::pair<std::string, std::weak_ptr<SimulatedPushConnection>>> _connections;
    std::atomic<size_t> _filterNotices = 0;
};

class SimulatedDownloadManager final : public DownloadManager {
public:
    void reevaluateBackgroundDownloadsForBundleIdentifiers(
        const std::vector<std::string>& bundleIdentifiers) override;
    std::vector<std::vector<std::string>> reevaluations() const;

private:
    mutable std::mutex _mutex;
    std::vector<std::vector<std::string>> _reevaluations;
};

class SimulatedProfileConnection final : public ProfileConnection {
public:
    bool isAutomaticAppUpdatesAllowed() override { return _allowed; }
    void setAutomaticAppUpdatesAllowed(bool allowed) { _allowed = allowed; }

private:
    std::atomic<bool> _allowed = true;
};

} // namespace tessel
