#include "platform/linux/LinuxPushService.h"

#include "platform/Platform.h"
#include "platform/archive/PropertyList.h"
#include "platform/files/FileManager.h"
#include "platform/files/Path.h"
#include "platform/files/Preferences.h"
#include "platform/foundation/Format.h"

#include <algorithm>
#include <map>
#include <random>

namespace tessel {

namespace {

    constexpr const char* publicTokenKey = "PublicToken";
    constexpr const char* tokensKey = "Tokens";
    constexpr size_t tokenLength = 32;

    Bytes randomToken()
    {
        std::random_device device;
        Bytes token(tokenLength);
        for (auto& byte : token)
            byte = static_cast<uint8_t>(device());
        return token;
    }

    std::string tokenKey(const std::string& topic, const std::string& identifier)
    {
        // Topics are bundle identifiers and never hold a newline.
        return topic + "\n" + identifier;
    }

    // Takes messages only on the topics it enabled, urgently or opportunistically.
    class LinuxPushConnection final : public PushConnection {
    public:
        LinuxPushConnection(
            std::weak_ptr<LinuxPushService> service, std::string environmentName, WorkQueue& queue)
            : PushConnection(std::move(environmentName), queue)
            , _service(std::move(service))
        {
        }

        void setUsesAppLaunchStats(bool) override { }
        void setEnabledTopics(const std::vector<std::string>& topics) override { set(EnabledTopics, topics); }
        void setIgnoredTopics(const std::vector<std::string>& topics) override { set(ignoredList, topics); }
        void setOpportunisticTopics(const std::vector<std::string>& topics) override
        {
            set(OpportunisticTopics, topics);
        }
        void moveTopic(const std::string& topic, int fromList, int toList) override
        {
            std::lock_guard lock(_mutex);
            auto& from = _lists[fromList];
            auto found = std::find(from.begin(), from.end(), topic);
            if (found == from.end())
                return;
            from.erase(found);
            _lists[toList].push_back(topic);
        }
        void requestTokenForTopic(const std::string& topic, const std::string& identifier) override
        {
            if (auto service = _service.lock())
                deliverToken(service->tokenForTopic(environmentName(), topic, identifier), topic, identifier);
        }
        void invalidateTokenForTopic(const std::string& topic, const std::string& identifier) override
        {
            if (auto service = _service.lock())
                service->invalidateTokenForTopic(environmentName(), topic, identifier);
        }

        void announcePublicToken(const Bytes& token) { deliverPublicToken(token); }
        bool receive(const IncomingPushMessage& message)
        {
            if (!subscribes(message.topic))
                return false;
            deliverIncomingMessage(message);
            return true;
        }

    private:
        static constexpr int ignoredList = -1;
        bool subscribes(const std::string& topic)
        {
            std::lock_guard lock(_mutex);
            for (int list : { EnabledTopics, OpportunisticTopics }) {
                auto& topics = _lists[list];
                if (std::find(topics.begin(), topics.end(), topic) != topics.end())
                    return true;
            }
            return false;
        }
        void set(int list, const std::vector<std::string>& topics)
        {
            std::lock_guard lock(_mutex);
            _lists[list] = topics;
        }

        const std::weak_ptr<LinuxPushService> _service;
        std::mutex _mutex;
        std::map<int, std::vector<std::string>> _lists;
    };

} // namespace

LinuxPushService::LinuxPushService(std::string directory)
    : _directory(std::move(directory))
{
}

std::shared_ptr<PushConnection> LinuxPushService::makeConnection(
    const std::string& environmentName, WorkQueue& callbackQueue)
{
    auto connection = std::make_shared<LinuxPushConnection>(weak_from_this(), environmentName, callbackQueue);
    {
        std::lock_guard lock(_mutex);
        std::erase_if(_connections, [](auto& entry) { return entry.second.expired(); });
        _connections.emplace_back(environmentName, connection);
    }
    // As a real service would on connecting; the delegate is set right after this returns
    // and the announcement waits on the callback queue until then.
    connection->announcePublicToken(publicToken(environmentName));
    return connection;
}

void LinuxPushService::notifySafeToSendFilter() { }

bool LinuxPushService::injectIncomingMessage(
    const std::string& environmentName, const IncomingPushMessage& message)
{
    std::vector<std::shared_ptr<LinuxPushConnection>> connections;
    {
        std::lock_guard lock(_mutex);
        for (auto& [environment, weak] : _connections) {
            if (environment != environmentName)
                continue;
            if (auto strong = weak.lock())
                connections.push_back(std::static_pointer_cast<LinuxPushConnection>(strong));
        }
    }
    bool taken = false;
    for (auto& connection : connections)
        taken = connection->receive(message) || taken;
    return taken;
}

std::string LinuxPushService::pathForEnvironment(const std::string& environmentName) const
{
    return Path::appendingComponent(_directory, environmentName + ".plist");
}

Value::Dictionary LinuxPushService::readLocked(const std::string& environmentName)
{
    auto contents = FileManager::contentsAtPath(pathForEnvironment(environmentName));
    if (!contents)
        return {};
    auto value = PropertyList::read(*contents);
    // A damaged file loses its tokens; new ones are made.
    return value && value->isDictionary() ? value->dictionaryValue() : Value::Dictionary {};
}

void LinuxPushService::writeLocked(const std::string& environmentName, const Value::Dictionary& contents)
{
    FileManager::createDirectoryAtPath(_directory, true);
    auto data = PropertyList::data(Value(contents), PropertyList::Format::Binary);
    std::string error;
    if (!data || !FileManager::writeAtomically(pathForEnvironment(environmentName), *data, &error))
        Platform::log(
            LogPriority::Error, format("Cannot keep push tokens for %@: %@", environmentName, error));
}

Bytes LinuxPushService::tokenForTopic(
    const std::string& environmentName, const std::string& topic, const std::string& identifier)
{
    std::lock_guard lock(_mutex);
    auto contents = readLocked(environmentName);
    auto tokens = contents[tokensKey].dictionaryValue();
    auto key = tokenKey(topic, identifier);
    auto found = tokens.find(key);
    if (found != tokens.end() && found->second.isData() && found->second.dataValue().size() == tokenLength)
        return found->second.dataValue();
    auto token = randomToken();
    tokens[key] = token;
    contents[tokensKey] = Value(std::move(tokens));
    writeLocked(environmentName, contents);
    return token;
}

void LinuxPushService::invalidateTokenForTopic(
    const std::string& environmentName, const std::string& topic, const std::string& identifier)
{
    std::lock_guard lock(_mutex);
    auto contents = readLocked(environmentName);
    auto tokens = contents[tokensKey].dictionaryValue();
    if (tokens.erase(tokenKey(topic, identifier)) == 0)
        return;
    contents[tokensKey] = Value(std::move(tokens));
    writeLocked(environmentName, contents);
}

Bytes LinuxPushService::publicToken(const std::string& environmentName)
{
    std::lock_guard lock(_mutex);
    auto contents = readLocked(environmentName);
    const Value& stored = contents[publicTokenKey];
    if (stored.isData() && stored.dataValue().size() == tokenLength)
        return stored.dataValue();
    auto token = randomToken();
    contents[publicTokenKey] = token;
    writeLocked(environmentName, contents);
    return token;
}

void LinuxDownloadManager::reevaluateBackgroundDownloadsForBundleIdentifiers(
    const std::vector<std::string>& bundleIdentifiers)
{
    Value::Array list(bundleIdentifiers.begin(), bundleIdentifiers.end());
    Platform::log(
        LogPriority::Info, format("Re-evaluating background downloads for %@", Value(std::move(list))));
}

LinuxProfileConnection::LinuxProfileConnection(std::shared_ptr<Preferences> preferences, std::string domain)
    : _preferences(std::move(preferences))
    , _domain(std::move(domain))
{
}

bool LinuxProfileConnection::isAutomaticAppUpdatesAllowed()
{
    const char* key = "AutomaticAppUpdatesAllowed";
    if (!_preferences || !_preferences->hasValueForKey(key, _domain))
        return true;
    return _preferences->boolForKey(key, _domain);
}

} // namespace tessel
