// The forwarders behind InProcessIpcConnection's remote object proxies: one
// per protocol, each call handed to the other end as it is.
#include "platform/sim/InProcessIpcConnection.h"

#include "services/ControlServerProtocol.h"
#include "services/ControlService.h"
#include "services/KTSNotificationRegistrarClientProtocol.h"
#include "services/KTSNotificationRegistrarServerProtocol.h"
#include "services/KTSNotificationRegistrarService.h"
#include "services/KTSNotificationSchedulerClientProtocol.h"
#include "services/KTSNotificationSchedulerServerProtocol.h"
#include "services/KTSNotificationSchedulerService.h"

namespace tessel {

namespace {

    template <typename Protocol> class Forwarder : public Protocol {
    public:
        explicit Forwarder(InProcessIpcConnection::Send send)
            : _send(std::move(send))
        {
        }

    protected:
        template <typename Call> void forward(Call call)
        {
            _send([call = std::move(call)](void* object) { call(*static_cast<Protocol*>(object)); });
        }

    private:
        InProcessIpcConnection::Send _send;
    };

    class RegistrarServer : public Forwarder<KTSNotificationRegistrarServerProtocol> {
    public:
        using Forwarder::Forwarder;
        using P = KTSNotificationRegistrarServerProtocol;

        void setObservingRemoteNotifications(bool observing, const std::string& id, Completion done) override
        {
            forward([=](P& p) { p.setObservingRemoteNotifications(observing, id, done); });
        }
        void invalidateTokenForRemoteNotificationsForBundleIdentifier(
            const std::string& id, Completion done) override
        {
            forward([=](P& p) { p.invalidateTokenForRemoteNotificationsForBundleIdentifier(id, done); });
        }
        void registerNotificationSettings(std::shared_ptr<NotificationSettings> settings,
            const std::string& id, SettingsResult result) override
        {
            forward([=](P& p) { p.registerNotificationSettings(settings, id, result); });
        }
        void registerBadgeSettingForBundleIdentifier(const std::string& id, Completion done) override
        {
            forward([=](P& p) { p.registerBadgeSettingForBundleIdentifier(id, done); });
        }
        void notificationSettingsForBundleIdentifier(const std::string& id, SettingsResult result) override
        {
            forward([=](P& p) { p.notificationSettingsForBundleIdentifier(id, result); });
        }
        void notificationTypesForBundleIdentifier(const std::string& id, TypesResult result) override
        {
            forward([=](P& p) { p.notificationTypesForBundleIdentifier(id, result); });
        }
        void allowsRemoteNotificationsForBundleIdentifier(const std::string& id, BoolResult result) override
        {
            forward([=](P& p) { p.allowsRemoteNotificationsForBundleIdentifier(id, result); });
        }
        void remoteNotificationTypesForBundleIdentifier(const std::string& id, TypesResult result) override
        {
            forward([=](P& p) { p.remoteNotificationTypesForBundleIdentifier(id, result); });
        }
        void registerRemoteNotificationTypes(
            uint64_t types, const std::string& id, ErrorResult result) override
        {
            forward([=](P& p) { p.registerRemoteNotificationTypes(types, id, result); });
        }
        void requestTokenForRemoteNotificationsForBundleIdentifier(
            const std::string& id, ErrorResult result) override
        {
            forward([=](P& p) { p.requestTokenForRemoteNotificationsForBundleIdentifier(id, result); });
        }
        void backgroundAppRefreshBundleIdentifierMappingWithResult(MappingResult result) override
        {
            forward([=](P& p) { p.backgroundAppRefreshBundleIdentifierMappingWithResult(result); });
        }
        void setAllowsBackgroundRefresh(bool allowed, const std::string& id, Completion done) override
        {
            forward([=](P& p) { p.setAllowsBackgroundRefresh(allowed, id, done); });
        }
    };

    class RegistrarClient : public Forwarder<KTSNotificationRegistrarClientProtocol> {
    public:
        using Forwarder::Forwarder;

        void didReceiveDeviceToken(const Bytes& token, const std::string& id) override
        {
            forward([=](KTSNotificationRegistrarClientProtocol& p) { p.didReceiveDeviceToken(token, id); });
        }
    };

    class SchedulerServer : public Forwarder<KTSNotificationSchedulerServerProtocol> {
    public:
        using Forwarder::Forwarder;
        using P = KTSNotificationSchedulerServerProtocol;

        void scheduledLocalNotificationsForBundleIdentifier(const std::string& id, ListResult result) override
        {
            forward([=](P& p) { p.scheduledLocalNotificationsForBundleIdentifier(id, result); });
        }
        void scheduleForBundleIdentifier(const std::string& id,
            std::shared_ptr<KTSNotificationScheduleFetchRequest> request, ScheduleResult result) override
        {
            forward([=](P& p) { p.scheduleForBundleIdentifier(id, request, result); });
        }
        void setScheduledLocalNotifications(const List& list, const std::string& id, Completion done) override
        {
            forward([=](P& p) { p.setScheduledLocalNotifications(list, id, done); });
        }
        void addScheduledLocalNotifications(const List& list, const std::string& id, Completion done) override
        {
            forward([=](P& p) { p.addScheduledLocalNotifications(list, id, done); });
        }
        void cancelScheduledLocalNotifications(
            const List& list, const std::string& id, Completion done) override
        {
            forward([=](P& p) { p.cancelScheduledLocalNotifications(list, id, done); });
        }
        void snoozeScheduledLocalNotifications(
            const List& list, const std::string& id, Completion done) override
        {
            forward([=](P& p) { p.snoozeScheduledLocalNotifications(list, id, done); });
        }
        void setObservingScheduledLocalNotifications(
            bool observing, const std::string& id, Completion done) override
        {
            forward([=](P& p) { p.setObservingScheduledLocalNotifications(observing, id, done); });
        }
    };

    class SchedulerClient : public Forwarder<KTSNotificationSchedulerClientProtocol> {
    public:
        using Forwarder::Forwarder;
        using P = KTSNotificationSchedulerClientProtocol;

        void didChangeScheduledLocalNotifications(const List& list, const std::string& id) override
        {
            forward([=](P& p) { p.didChangeScheduledLocalNotifications(list, id); });
        }
        void didFireLocalNotifications(const List& list, const std::string& id) override
        {
            forward([=](P& p) { p.didFireLocalNotifications(list, id); });
        }
    };

    class ControlServer : public Forwarder<ControlServerProtocol> {
    public:
        using Forwarder::Forwarder;
        using P = ControlServerProtocol;

        void status(Answer answer) override
        {
            forward([=](P& p) { p.status(answer); });
        }
        void applications(Answer answer) override
        {
            forward([=](P& p) { p.applications(answer); });
        }
        void sectionSettings(const std::string& id, Answer answer) override
        {
            forward([=](P& p) { p.sectionSettings(id, answer); });
        }
        void updateSectionSettings(const std::string& id, const Value& changes, Answer answer) override
        {
            forward([=](P& p) { p.updateSectionSettings(id, changes, answer); });
        }
        void deliveredNotifications(const std::string& id, Answer answer) override
        {
            forward([=](P& p) { p.deliveredNotifications(id, answer); });
        }
        void clearDeliveredNotifications(const std::string& id, Answer answer) override
        {
            forward([=](P& p) { p.clearDeliveredNotifications(id, answer); });
        }
        void injectPushMessage(const std::string& environment, const std::string& topic, const Value& payload,
            int64_t priority, Answer answer) override
        {
            forward([=](P& p) { p.injectPushMessage(environment, topic, payload, priority, answer); });
        }
        void requestPushToken(const std::string& id, const std::string& environment, Answer answer) override
        {
            forward([=](P& p) { p.requestPushToken(id, environment, answer); });
        }
    };

} // namespace

std::shared_ptr<void> InProcessIpcConnection::makeForwarder(const std::string& interface, Send send)
{
    if (interface == KTSNotificationRegistrarService::serverInterface())
        return std::static_pointer_cast<void>(
            std::shared_ptr<KTSNotificationRegistrarServerProtocol>(std::make_shared<RegistrarServer>(send)));
    if (interface == KTSNotificationRegistrarService::clientInterface())
        return std::static_pointer_cast<void>(
            std::shared_ptr<KTSNotificationRegistrarClientProtocol>(std::make_shared<RegistrarClient>(send)));
    if (interface == KTSNotificationSchedulerService::serverInterface())
        return std::static_pointer_cast<void>(
            std::shared_ptr<KTSNotificationSchedulerServerProtocol>(std::make_shared<SchedulerServer>(send)));
    if (interface == KTSNotificationSchedulerService::clientInterface())
        return std::static_pointer_cast<void>(
            std::shared_ptr<KTSNotificationSchedulerClientProtocol>(std::make_shared<SchedulerClient>(send)));
    if (interface == ControlService::serverInterface())
        return std::static_pointer_cast<void>(
            std::shared_ptr<ControlServerProtocol>(std::make_shared<ControlServer>(send)));
    return nullptr;
}

} // namespace tessel
