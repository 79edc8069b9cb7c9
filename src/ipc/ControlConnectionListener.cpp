#include "ipc/ControlConnectionListener.h"

#include "ipc/KTCurrentCaller.h"
#include "platform/Platform.h"
#include "platform/alerts/PendingSystemAlerts.h"
#include "platform/applications/ApplicationProxy.h"
#include "platform/applications/ApplicationWorkspace.h"
#include "platform/bulletins/HostingBulletinService.h"
#include "platform/bulletins/SectionInfo.h"
#include "platform/concurrency/Clock.h"
#include "platform/ipc/IpcConnection.h"
#include "platform/ipc/IpcService.h"
#include "platform/push/PushConnection.h"
#include "platform/push/PushEnvironment.h"
#include "remote/KTRemoteNotificationServer.h"
#include "services/ControlService.h"
#include "settings/KTNotificationSettingsService.h"
#include "store/KTNotificationStore.h"

#include <algorithm>
#include <array>

namespace tessel {

namespace {

    constexpr uint64_t typeBits = 7;
    constexpr std::array<const char*, 3> alertStyles { "none", "banner", "alert" };

    std::shared_ptr<HostingBulletinService> bulletinService()
    {
        return std::dynamic_pointer_cast<HostingBulletinService>(Platform::current().bulletinService);
    }

    SectionInfo sectionFor(const std::string& bundleIdentifier)
    {
        auto service = bulletinService();
        auto stored = service ? service->storedSectionInfo(bundleIdentifier) : std::nullopt;
        if (stored)
            return *stored;
        auto info = SectionInfo::defaultSectionInfoForType(0);
        info.sectionID = bundleIdentifier;
        return info;
    }

    Value sectionValue(const SectionInfo& info)
    {
        auto style = info.alertType >= 0 && info.alertType < static_cast<int64_t>(alertStyles.size())
            ? alertStyles[static_cast<size_t>(info.alertType)]
            : "banner";
        return Value::Dictionary {
            { "AllowsNotifications", info.allowsNotifications },
            { "AlertStyle", std::string(style) },
            { "SupportedTypes", static_cast<int64_t>(info.pushSettings & typeBits) },
            { "EnabledTypes", static_cast<int64_t>((info.pushSettings >> 3) & typeBits) },
            { "ShowsInLockScreen", info.showsInLockScreen },
            { "ShowsInNotificationCentre", info.showsInNotificationCentre },
        };
    }

    // Empty when every change applied; else what was wrong, and info is as it was.
    std::string applyChange(SectionInfo& info, const std::string& key, const Value& value)
    {
        if (key == "AlertStyle") {
            auto found = std::find(alertStyles.begin(), alertStyles.end(), value.isString() ? value.stringValue() : "");
            if (found == alertStyles.end())
                return "AlertStyle is one of none, banner, alert";
            info.alertType = found - alertStyles.begin();
            return {};
        }
        if (key == "EnabledTypes") {
            if (!value.isNumber() || value.integerValue() < 0 || value.integerValue() > static_cast<int64_t>(typeBits))
                return "EnabledTypes is a number from 0 to 7";
            // Only what the application supports can be enabled.
            auto enabled = static_cast<uint64_t>(value.integerValue()) & info.pushSettings & typeBits;
            info.pushSettings = (info.pushSettings & typeBits) | (enabled << 3);
            return {};
        }
        bool* flag = key == "AllowsNotifications" ? &info.allowsNotifications
            : key == "ShowsInLockScreen"          ? &info.showsInLockScreen
            : key == "ShowsInNotificationCentre"  ? &info.showsInNotificationCentre
                                                  : nullptr;
        if (!flag)
            return "unknown setting " + key;
        if (!value.isBoolean())
            return key + " is a boolean";
        *flag = value.boolValue();
        return {};
    }

} // namespace

std::shared_ptr<ControlConnectionListener> ControlConnectionListener::make(
    std::shared_ptr<KTRemoteNotificationServer> pushServer, Value::Dictionary staticStatus)
{
    auto listener = std::make_shared<ControlConnectionListener>(std::move(pushServer), std::move(staticStatus));
    listener->_listener = Platform::current().ipc->makeListener(ControlService::serviceName);
    listener->_listener->setDelegate(listener->weak_from_this());
    listener->_listener->resume();
    return listener;
}

ControlConnectionListener::ControlConnectionListener(
    std::shared_ptr<KTRemoteNotificationServer> pushServer, Value::Dictionary staticStatus)
    : _pushServer(std::move(pushServer))
    , _staticStatus(std::move(staticStatus))
{
}

ControlConnectionListener::~ControlConnectionListener() { invalidate(); }

void ControlConnectionListener::invalidate()
{
    if (_listener)
        _listener->invalidate();
}

bool ControlConnectionListener::listenerShouldAcceptNewConnection(
    IpcListener&, const std::shared_ptr<IpcConnection>& connection)
{
    connection->setExportedInterface(ControlService::serverInterface());
    connection->setExportedObject<ControlServerProtocol>(shared_from_this());
    connection->resume();
    return true;
}

bool ControlConnectionListener::_isAllowed(const char* operation)
{
    if (KTCurrentCaller::holdsAny({ ControlService::entitlement }))
        return true;
    auto connection = IpcConnection::currentConnection();
    auto caller = connection && !connection->peer().bundleIdentifier.empty() ? connection->peer().bundleIdentifier
                                                                             : std::string("an unidentified process");
    return KTCurrentCaller::refuse("Entitlement '" + std::string(ControlService::entitlement) + "' required to "
        + operation + ": refused to " + caller);
}

bool ControlConnectionListener::_isInstalled(const std::string& bundleIdentifier, const Answer& answer)
{
    auto application = Platform::current().workspace->applicationProxyForIdentifier(bundleIdentifier);
    if (application && application->isInstalled())
        return true;
    answer(Value {}, "no installed application is called \"" + bundleIdentifier + "\"");
    return false;
}

void ControlConnectionListener::status(Answer answer)
{
    Value::Dictionary status = _staticStatus;
    status["Applications"] = static_cast<int64_t>(Platform::current().workspace->allInstalledApplications().size());
    answer(std::move(status), {});
}

void ControlConnectionListener::applications(Answer answer)
{
    if (!_isAllowed("list applications"))
        return;
    auto installed = Platform::current().workspace->allInstalledApplications();
    std::sort(installed.begin(), installed.end(),
        [](const auto& a, const auto& b) { return a->bundleIdentifier() < b->bundleIdentifier(); });
    auto settings = KTNotificationSettingsService::sharedInstance();
    Value::Array list;
    for (const auto& application : installed) {
        const auto& identifier = application->bundleIdentifier();
        list.push_back(Value::Dictionary {
            { "Identifier", identifier },
            { "DisplayName", application->localizedName() },
            { "BundlePath", application->bundlePath() },
            { "NotificationTypes", static_cast<int64_t>(settings->notificationTypesForBundleIdentifier(identifier)) },
            { "Section", sectionValue(sectionFor(identifier)) },
        });
    }
    answer(std::move(list), {});
}

void ControlConnectionListener::sectionSettings(const std::string& bundleIdentifier, Answer answer)
{
    if (_isAllowed("read section settings") && _isInstalled(bundleIdentifier, answer))
        answer(sectionValue(sectionFor(bundleIdentifier)), {});
}

void ControlConnectionListener::updateSectionSettings(
    const std::string& bundleIdentifier, const Value& changes, Answer answer)
{
    if (!_isAllowed("change section settings") || !_isInstalled(bundleIdentifier, answer))
        return;
    auto service = bulletinService();
    if (!service)
        return answer(Value {}, "this platform keeps no section settings");
    auto info = sectionFor(bundleIdentifier);
    for (const auto& [key, value] : changes.dictionaryValue()) {
        if (auto error = applyChange(info, key, value); !error.empty())
            return answer(Value {}, error);
    }
    if (changes["AllowsNotifications"].isBoolean()) {
        // Also the answer to the permission alert, now or when it comes.
        if (auto alerts = std::dynamic_pointer_cast<PendingSystemAlerts>(Platform::current().systemAlerts))
            alerts->answer(bundleIdentifier,
                info.allowsNotifications ? SystemAlertDefaultResponse : SystemAlertAlternateResponse);
    }
    service->setSectionInfo(info);
    Platform::log(LogPriority::Notice, "Section settings of " + bundleIdentifier + " changed: " + info.description());
    answer(sectionValue(info), {});
}

void ControlConnectionListener::deliveredNotifications(const std::string& bundleIdentifier, Answer answer)
{
    if (!_isAllowed("read delivered notifications") || !_isInstalled(bundleIdentifier, answer))
        return;
    auto saved = KTNotificationStore::sharedInstance()->savedNotificationsForBundleID(bundleIdentifier);
    answer(saved.isArray() ? saved : Value(Value::Array {}), {});
}

void ControlConnectionListener::clearDeliveredNotifications(const std::string& bundleIdentifier, Answer answer)
{
    if (!_isAllowed("clear delivered notifications") || !_isInstalled(bundleIdentifier, answer))
        return;
    KTNotificationStore::sharedInstance()->clearNotificationsForBundleID(bundleIdentifier);
    answer(Value {}, {});
}

void ControlConnectionListener::injectPushMessage(
    const std::string& environment, const std::string& topic, const Value& payload, int64_t priority, Answer answer)
{
    if (!_isAllowed("inject push messages"))
        return;
    if (environment != PushEnvironmentProduction && environment != PushEnvironmentDevelopment)
        return answer(Value {}, "the environment is production or development");
    auto& platform = Platform::current();
    bool delivered = platform.pushService->injectIncomingMessage(environment,
        IncomingPushMessage { .topic = topic, .userInfo = payload, .priority = priority, .timestamp = platform.clock->now() });
    answer(delivered, {});
}

void ControlConnectionListener::requestPushToken(
    const std::string& bundleIdentifier, const std::string& environment, Answer answer)
{
    if (!_isAllowed("request push tokens") || !_isInstalled(bundleIdentifier, answer))
        return;
    if (environment != PushEnvironmentProduction && environment != PushEnvironmentDevelopment)
        return answer(Value {}, "the environment is production or development");
    _pushServer->requestRemoteNotificationTokenWithEnvironment(environment, bundleIdentifier);
    answer(Value {}, {});
}

} // namespace tessel
