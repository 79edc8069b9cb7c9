// Incoming push messages: whether the application may have one, and whether it
// goes to the running application, to the content download or into the store.
#include "remote/KTRemoteNotificationServer.h"

#include "core/KTApplicationProxyAdditions.h"
#include "core/KTLogging.h"
#include "core/KTNotificationLocalizedString.h"
#include "core/KTSystemStateProviding.h"
#include "platform/Platform.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/logging/SystemLog.h"
#include "platform/processes/HandleRemoteNotificationAction.h"
#include "remote/KTRemoteNotificationClient.h"
#include "services/KTSPowerLog.h"
#include "store/KTNotificationStore.h"
#include "tessel/Tessel.h"

#include <algorithm>
#include <string_view>

namespace tessel {

namespace {

    constexpr std::string_view containerTopicPrefix = "com.tamber.skyvault-container.";

    Value optionalText(std::optional<std::string> text) { return text ? Value(std::move(*text)) : Value(); }

    // A stored notification as the payload's system part describes it. The
    // payload comes from the network, so each part of the wrong type counts as
    // absent on its own; the store is handed only the types it accepts.
    struct StoredContent {
        Value title, message, sound, actionText, badge, launchImage, category;

        static StoredContent read(const Value& system, const std::string& bundleIdentifier, bool gazettePush)
        {
            StoredContent content;
            const Value& alert = system["alert"];
            if (alert.isString())
                content.message = alert;
            else if (alert.isDictionary())
                content.readAlert(alert, kt_bundleForBundleIdentifier(bundleIdentifier));
            const Value& sound = system["sound"];
            if (sound.isString())
                content.sound
                    = sound.stringValue() == "default" ? Value(kKTNotificationStoreSoundDefault) : sound;
            // Applications whose content arrives in the background keep their own badge.
            if (const Value& badge = system["badge"]; badge.isNumber() && !gazettePush)
                content.badge = badge;
            content.category = system["category"];
            return content;
        }

        void readAlert(const Value& alert, const std::shared_ptr<Bundle>& bundle)
        {
            message = optionalText(
                KTNotificationLocalizedString(alert["loc-key"], alert["body"], bundle, alert["loc-args"]));
            title = optionalText(KTNotificationLocalizedString(
                alert["title-loc-key"], alert["title"], bundle, alert["title-loc-args"]));
            const Value& actionKey = alert["action-loc-key"];
            if (actionKey.isString() && !actionKey.stringValue().empty()) {
                auto action = KTNotificationLocalizedString(actionKey, Value(""), bundle, Value());
                if (action && !action->empty())
                    actionText = Value(std::move(*action));
            }
            if (const Value& image = alert["launch-image"]; image.isString())
                launchImage = image;
        }

        void save(const Value& userInfo, const std::string& bundleIdentifier) const
        {
            KTNotificationStore::sharedInstance()->saveRemoteNotificationWithTitle(
                title, message, sound, actionText, badge, userInfo, launchImage, category, bundleIdentifier);
        }
    };

    std::shared_ptr<ApplicationProcess> newestProcess(const std::string& bundleIdentifier)
    {
        auto& manager = Platform::current().processManager;
        if (!manager)
            return nullptr;
        auto processes = manager->processesForBundleIdentifier(bundleIdentifier);
        return processes.empty() ? nullptr : processes.back();
    }

    void handToRunningApplication(const std::shared_ptr<ApplicationProcess>& process, const Value& userInfo)
    {
        auto action = std::make_shared<HandleRemoteNotificationAction>(userInfo);
        if (process)
            process->workspace().sendActions({ action });
    }

    // Now, or when the application's background work ends and on whatever
    // thread the host ends it: the save holds copies and nothing of the server.
    void saveAfterBackgroundWork(const std::shared_ptr<KTSystemStateProviding>& wakingProvider,
        const IncomingPushMessage& message, const std::string& bundleIdentifier, StoredContent content)
    {
        std::function<void()> save = [content = std::move(content), userInfo = message.userInfo,
                                         bundleIdentifier] { content.save(userInfo, bundleIdentifier); };
        if (wakingProvider)
            wakingProvider->handleContentAvailableNotificationForApplication(
                bundleIdentifier, message.userInfo, message.priority, std::move(save));
        else
            save();
    }

    void logDropped(const std::string& line) { Platform::log(LogPriority::Notice, line); }

} // namespace

void KTRemoteNotificationServer::_queue_connectionDidReceiveIncomingMessage(
    std::shared_ptr<PushConnection>, const IncomingPushMessage& message)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    std::string_view topic = message.topic;
    if (topic.starts_with(containerTopicPrefix))
        topic.remove_prefix(containerTopicPrefix.size());
    const std::string bundleIdentifier(topic);
    KT_REMOTE_LOG("Received incoming message for topic %@", message.topic);
    auto client = _queue_clientAcceptingIncomingMessage(bundleIdentifier);
    if (!client)
        return;
    const Value& userInfo = message.userInfo;
    const Value& system = userInfo["rlx"];
    auto process = newestProcess(bundleIdentifier);
    _KTPostRemoteNotificationRecievedPowerNotification(process ? process->pid() : 0, bundleIdentifier);

    bool gazettePush = _queue_isGazettePushEnabledForApplication(bundleIdentifier);
    bool contentAvailable = system.isDictionary() && system.contains("content-available");
    bool foreground = _queue_isAppForeground(bundleIdentifier);
    bool gazetteDelivery
        = _queue_allowsGazetteDelivery(*client, message.timestamp, gazettePush, contentAvailable, foreground);
    auto provider = systemStateProvider();
    if (foreground)
        return handToRunningApplication(process, userInfo);
    if (gazetteDelivery) {
        if (provider)
            provider->handleGazetteNotificationForApplication(bundleIdentifier, userInfo);
        return;
    }
    if (!system.isDictionary())
        return;
    bool wake = contentAvailable && provider
        && provider->isRemoteNotificationBackgroundModeSupportedForApplication(bundleIdentifier);
    saveAfterBackgroundWork(wake ? provider : nullptr, message, bundleIdentifier,
        StoredContent::read(system, bundleIdentifier, gazettePush));
}

std::shared_ptr<KTRemoteNotificationClient> KTRemoteNotificationServer::_queue_clientAcceptingIncomingMessage(
    const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    auto client = _queue_clientForBundleIdentifier(bundleIdentifier);
    auto provider = systemStateProvider();
    if (!client || !provider || !provider->isApplicationInstalled(bundleIdentifier)) {
        logDropped(format(
            "Ignoring remote notification received for unknown bundle identifier: '%@'", bundleIdentifier));
        return nullptr;
    }
    if (provider->isApplicationRestricted(bundleIdentifier)) {
        logDropped(format(
            "Ignoring remote notification received for restricted application: '%@'", bundleIdentifier));
        return nullptr;
    }
    if (!_queue_isPushedEnabledForApplication(bundleIdentifier)) {
        logDropped(
            format("Ignoring remote notification received for disabled bundle identifier: '%@' reason: %@",
                bundleIdentifier, client->pushDisabledReason().value_or("")));
        return nullptr;
    }
    return client;
}

bool KTRemoteNotificationServer::_queue_allowsGazetteDelivery(KTRemoteNotificationClient& client,
    Date pushDate, bool gazettePush, bool contentAvailable, bool foreground)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    const std::string& bundleIdentifier = client.bundleIdentifier();
    auto provider = systemStateProvider();
    if (!gazettePush || !contentAvailable || foreground || client.backgroundDeliveryDisabled() || !provider) {
        if (contentAvailable && _queue_isGazetteApplication(bundleIdentifier))
            KT_REMOTE_LOG("GZThrottle: not checking {bundleID=%@ appIsForeground=%i supportsGazettePush=%i "
                          "isGazetteApp=%i backgroundDeliveryDisabled=%i}",
                bundleIdentifier, foreground, gazettePush, true, client.backgroundDeliveryDisabled());
        return false;
    }
    int64_t day = client.dayOfLastGazettePush();
    int64_t count = client.dailyCountOfGazettePushes();
    KT_REMOTE_LOG(
        "GZThrottle: checking for pushDate=%@ dayOfLastHandledPush=%ld countOnDayOfLastHandledPush=%lu",
        pushDate, day, count);
    if (provider->shouldThrottleContentNotificationForApplicatin(bundleIdentifier, pushDate, count, day)) {
        KT_REMOTE_LOG("GZThrottle: disallowing");
        return false;
    }
    KT_REMOTE_LOG("GZThrottle: allowing with new count=%lu on day=%ld", count, day);
    client.setDayOfLastGazettePush(day);
    // The record never holds a negative count; it would not read back as one.
    client.setDailyCountOfGazettePushes(std::max<int64_t>(count, 0));
    client.saveToDataStore();
    return true;
}

} // namespace tessel
