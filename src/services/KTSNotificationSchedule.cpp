#include "services/KTSNotificationSchedule.h"

#include "platform/archive/KeyedArchive.h"
#include "platform/archive/KeyedArchiver.h"
#include "platform/archive/KeyedUnarchiver.h"
#include "platform/foundation/Format.h"

#include <mutex>

namespace tessel {

void KTSNotificationSchedule::registerArchivableClass()
{
    LocalNotification::registerArchivableClasses();
    static std::once_flag once;
    std::call_once(once, [] {
        KeyedArchive::registerClass(archivedClassName, [](KeyedUnarchiver& coder) { return decode(coder); });
    });
}

void KTSNotificationSchedule::addLocalNotification(
    std::shared_ptr<LocalNotification> notification, Date fireDate)
{
    if (notification)
        _entries.push_back({ std::move(notification), fireDate });
}

void KTSNotificationSchedule::encodeWithCoder(KeyedArchiver& coder) const
{
    // Two parallel arrays keep each entry free of a wrapper class.
    Value::Array notifications;
    Value::Array dates;
    notifications.reserve(_entries.size());
    dates.reserve(_entries.size());
    for (auto& entry : _entries) {
        notifications.emplace_back(entry.notification);
        dates.emplace_back(entry.fireDate);
    }
    coder.encodeObject(std::move(notifications), "notifications");
    coder.encodeObject(std::move(dates), "fireDates");
}

std::shared_ptr<KTSNotificationSchedule> KTSNotificationSchedule::decode(KeyedUnarchiver& coder)
{
    auto notifications = coder.decodeObject("notifications");
    auto dates = coder.decodeObject("fireDates");
    if (!notifications.isArray() || !dates.isArray() || notifications.length() != dates.length())
        return nullptr;
    auto schedule = std::make_shared<KTSNotificationSchedule>();
    schedule->_entries.reserve(notifications.length());
    for (size_t index = 0; index < notifications.length(); ++index) {
        auto notification = notifications.at(index).objectAs<LocalNotification>();
        if (!notification || !dates.at(index).isDate())
            return nullptr;
        schedule->_entries.push_back({ std::move(notification), dates.at(index).dateValue() });
    }
    return schedule;
}

std::string KTSNotificationSchedule::description() const
{
    std::string text = format("<KTSNotificationSchedule %lu entries", _entries.size());
    for (auto& entry : _entries)
        text += format("\n  %@ %s", entry.fireDate, entry.notification->description());
    return text + ">";
}

bool KTSNotificationSchedule::isEqual(const Archivable& other) const
{
    auto schedule = dynamic_cast<const KTSNotificationSchedule*>(&other);
    if (!schedule || schedule->_entries.size() != _entries.size())
        return false;
    for (size_t index = 0; index < _entries.size(); ++index) {
        auto& mine = _entries[index];
        auto& theirs = schedule->_entries[index];
        if (mine.fireDate != theirs.fireDate || !mine.notification->isEqual(*theirs.notification))
            return false;
    }
    return true;
}

} // namespace tessel
