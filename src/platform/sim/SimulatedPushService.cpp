#include "platform/sim/SimulatedPushService.h"

#include <algorithm>

namespace tessel {

void SimulatedPushConnection::setUsesAppLaunchStats(bool uses)
{
    std::lock_guard lock(_mutex);
    _usesAppLaunchStats = uses;
}

void SimulatedPushConnection::setEnabledTopics(const std::vector<std::string>& topics)
{
    std::lock_guard lock(_mutex);
    _enabled = topics;
    ++_topicSettings;
}

void SimulatedPushConnection::setIgnoredTopics(const std::vector<std::string>& topics)
{
    std::lock_guard lock(_mutex);
    _ignored = topics;
}

void SimulatedPushConnection::setOpportunisticTopics(const std::vector<std::string>& topics)
{
    std::lock_guard lock(_mutex);
    _opportunistic = topics;
}

void SimulatedPushConnection::moveTopic(const std::string& topic, int fromList, int toList)
{
    std::lock_guard lock(_mutex);
    _moves.push_back({ topic, fromList, toList });
    auto list = [this](int id) -> std::vector<std::string>* {
        if (id == EnabledTopics)
            return &_enabled;
        if (id == OpportunisticTopics)
            return &_opportunistic;
        return nullptr;
    };
    auto from = list(fromList);
    auto to = list(toList);
    if (!from || !to)
        return;
    auto found = std::find(from->begin(), from->end(), topic);
    if (found == from->end())
        return;
    from->erase(found);
    to->push_back(topic);
}

void SimulatedPushConnection::requestTokenForTopic(const std::string& topic, const std::string& identifier)
{
    std::lock_guard lock(_mutex);
    _tokenRequests.push_back({ topic, identifier });
}

void SimulatedPushConnection::invalidateTokenForTopic(const std::string& topic, const std::string& identifier)
{
    std::lock_guard lock(_mutex);
    _invalidations.push_back({ topic, identifier });
}

std::vector<std::string> SimulatedPushConnection::enabledTopics() const
{
    std::lock_guard lock(_mutex);
    return _enabled;
}

std::vector<std::string> SimulatedPushConnection::ignoredTopics() const
{
    std::lock_guard lock(_mutex);
    return _ignored;
}

std::vector<std::string> SimulatedPushConnection::opportunisticTopics() const
{
    std::lock_guard lock(_mutex);
    return _opportunistic;
}

size_t SimulatedPushConnection::topicSettings() const
{
    std::lock_guard lock(_mutex);
    return _topicSettings;
}

std::vector<SimulatedPushConnection::Move> SimulatedPushConnection::moves() const
{
    std::lock_guard lock(_mutex);
    return _moves;
}

bool SimulatedPushConnection::usesAppLaunchStats() const
{
    std::lock_guard lock(_mutex);
    return _usesAppLaunchStats;
}

std::vector<SimulatedPushConnection::TokenCall> SimulatedPushConnection::tokenRequests() const
{
    std::lock_guard lock(_mutex);
    return _tokenRequests;
}

std::vector<SimulatedPushConnection::TokenCall> SimulatedPushConnection::invalidations() const
{
    std::lock_guard lock(_mutex);
    return _invalidations;
}

void SimulatedPushConnection::clearCalls()
{
    std::lock_guard lock(_mutex);
    _moves.clear();
    _tokenRequests.clear();
    _invalidations.clear();
    _topicSettings = 0;
}

void SimulatedPushConnection::sendToken(
    const Bytes& token, const std::optional<std::string>& topic, const std::string& identifier)
{
    deliverToken(token, topic, identifier);
}

void SimulatedPushConnection::sendPublicToken(const Bytes& token) { deliverPublicToken(token); }

void SimulatedPushConnection::sendIncomingMessage(const IncomingPushMessage& message)
{
    deliverIncomingMessage(message);
}

std::shared_ptr<PushConnection> SimulatedPushService::makeConnection(
    const std::string& environmentName, WorkQueue& callbackQueue)
{
    auto connection = std::make_shared<SimulatedPushConnection>(environmentName, callbackQueue);
    std::lock_guard lock(_mutex);
    _connections.emplace_back(environmentName, connection);
    return connection;
}

std::shared_ptr<SimulatedPushConnection> SimulatedPushService::connection(
    const std::string& environmentName) const
{
    std::lock_guard lock(_mutex);
    for (auto it = _connections.rbegin(); it != _connections.rend(); ++it) {
        if (it->first != environmentName)
            continue;
        if (auto strong = it->second.lock())
            return strong;
    }
    return nullptr;
}

size_t SimulatedPushService::connectionsMade() const
{
    std::lock_guard lock(_mutex);
    return _connections.size();
}

void SimulatedDownloadManager::reevaluateBackgroundDownloadsForBundleIdentifiers(
    const std::vector<std::string>& bundleIdentifiers)
{
    std::lock_guard lock(_mutex);
    _reevaluations.push_back(bundleIdentifiers);
}

std::vector<std::vector<std::string>> SimulatedDownloadManager::reevaluations() const
{
    std::lock_guard lock(_mutex);
    return _reevaluations;
}

} // namespace tessel
