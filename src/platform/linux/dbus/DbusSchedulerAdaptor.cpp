#include "platform/linux/dbus/DbusSchedulerAdaptor.h"

#include "platform/linux/dbus/DbusIpcListener.h"
#include "platform/linux/dbus/DbusRecordCoding.h"

namespace tessel {

namespace {

    template <typename... Results> using Reply = std::shared_ptr<DbusReply<Results...>>;

} // namespace

DbusSchedulerAdaptor::DbusSchedulerAdaptor(sdbus::IObject& object, DbusIpcListener& listener)
    : Scheduler1_adaptor(object)
    , SchedulerClient1_adaptor(object)
    , _listener(listener)
{
}

void DbusSchedulerAdaptor::ScheduledLocalNotifications(
    sdbus::Result<Archives>&& result, std::string bundleIdentifier)
{
    _listener.deliver<Server>(
        result, [id = std::move(bundleIdentifier)](Server& server, Reply<Archives> reply) {
            server.scheduledLocalNotificationsForBundleIdentifier(id,
                [reply](Server::List list) { reply->answer(DbusRecordCoding::archiveNotifications(list)); });
        });
}

void DbusSchedulerAdaptor::Schedule(
    sdbus::Result<Bytes>&& result, std::string bundleIdentifier, Bytes fetchRequest)
{
    _listener.deliver<Server>(result,
        [id = std::move(bundleIdentifier), data = std::move(fetchRequest),
            limit = _listener.limits().maxReplyItems](Server& server, Reply<Bytes> reply) {
            auto request = DbusRecordCoding::unarchiveFetchRequest(data);
            if (!request)
                return reply->fail(DbusErrors::invalidArguments, "fetchRequest is no fetch request archive");
            // One date past the bound tells a long answer from one that fits exactly.
            if (!(*request)->maxSize() || (*request)->maxSize() > limit)
                (*request)->setMaxSize(limit + 1);
            server.scheduleForBundleIdentifier(
                id, *request, [reply, limit](std::shared_ptr<KTSNotificationSchedule> schedule) {
                    if (schedule && schedule->count() > limit)
                        return reply->fail(DbusErrors::limitExceeded,
                            "The schedule holds more than " + std::to_string(limit)
                                + " fire dates: ask for fewer with an end date or a maximum size");
                    if (auto data = DbusRecordCoding::archive(Value(schedule)))
                        reply->answer(std::move(*data));
                    else
                        reply->fail(DbusErrors::failed, "The schedule cannot be archived");
                });
        });
}

void DbusSchedulerAdaptor::deliverList(
    sdbus::Result<>& result, Archives notifications, std::string bundleIdentifier, ListOperation operation)
{
    _listener.deliver<Server>(result,
        [archives = std::move(notifications), id = std::move(bundleIdentifier), operation](
            Server& server, Reply<> reply) {
            auto list = DbusRecordCoding::unarchiveNotifications(archives);
            if (!list)
                return reply->fail(
                    DbusErrors::invalidArguments, "notifications holds no notification archive");
            (server.*operation)(*list, id, [reply] { reply->answer(); });
        });
}

void DbusSchedulerAdaptor::SetScheduledLocalNotifications(
    sdbus::Result<>&& result, Archives notifications, std::string bundleIdentifier)
{
    deliverList(result, std::move(notifications), std::move(bundleIdentifier),
        &Server::setScheduledLocalNotifications);
}

void DbusSchedulerAdaptor::AddScheduledLocalNotifications(
    sdbus::Result<>&& result, Archives notifications, std::string bundleIdentifier)
{
    deliverList(result, std::move(notifications), std::move(bundleIdentifier),
        &Server::addScheduledLocalNotifications);
}

void DbusSchedulerAdaptor::CancelScheduledLocalNotifications(
    sdbus::Result<>&& result, Archives notifications, std::string bundleIdentifier)
{
    deliverList(result, std::move(notifications), std::move(bundleIdentifier),
        &Server::cancelScheduledLocalNotifications);
}

void DbusSchedulerAdaptor::SnoozeScheduledLocalNotifications(
    sdbus::Result<>&& result, Archives notifications, std::string bundleIdentifier)
{
    deliverList(result, std::move(notifications), std::move(bundleIdentifier),
        &Server::snoozeScheduledLocalNotifications);
}

void DbusSchedulerAdaptor::SetObservingScheduledLocalNotifications(
    sdbus::Result<>&& result, bool observing, std::string bundleIdentifier)
{
    _listener.deliver<Server>(
        result, [observing, id = std::move(bundleIdentifier)](Server& server, Reply<> reply) {
            server.setObservingScheduledLocalNotifications(observing, id, [reply] { reply->answer(); });
        });
}

} // namespace tessel
