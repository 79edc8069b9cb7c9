#include "tessel/services/Records.h"

#include "platform/archive/KeyedArchive.h"
#include "platform/archive/PropertyList.h"
#include "platform/records/LocalNotification.h"
#include "platform/records/NotificationSettings.h"
#include "services/KTSLocalNotificationWhitelistedUnarchive.h"
#include "services/KTSNotificationSettingsWhitelistedUnarchive.h"

namespace tessel {

namespace {

    // Empty bytes are an empty dictionary; anything else must be a property
    // list of one.
    std::optional<Value::Dictionary> dictionaryFromPropertyList(const ArchivedRecord& bytes)
    {
        if (bytes.empty())
            return Value::Dictionary {};
        auto value = PropertyList::read(bytes);
        if (!value || !value->isDictionary())
            return std::nullopt;
        return value->dictionaryValue();
    }

    ArchivedRecord propertyListFromDictionary(const Value::Dictionary& dictionary)
    {
        if (dictionary.empty())
            return {};
        return PropertyList::data(Value(dictionary), PropertyList::Format::Binary)
            .value_or(ArchivedRecord {});
    }

    std::optional<NotificationActions> actionsFromFields(const std::vector<NotificationActionFields>& fields)
    {
        NotificationActions actions;
        for (auto& field : fields) {
            auto parameters = dictionaryFromPropertyList(field.parameters);
            if (!parameters)
                return std::nullopt;
            auto action = std::make_shared<NotificationAction>(field.identifier, field.title);
            action->setActivationMode(field.activationMode);
            action->setBehavior(field.behavior);
            action->setParameters(std::move(*parameters));
            action->setDestructive(field.destructive);
            action->setAuthenticationRequired(field.authenticationRequired);
            actions.push_back(std::move(action));
        }
        return actions;
    }

    std::vector<NotificationActionFields> fieldsFromActions(const NotificationActions& actions)
    {
        std::vector<NotificationActionFields> fields;
        for (auto& action : actions) {
            fields.push_back({
                .identifier = action->identifier(),
                .title = action->title(),
                .activationMode = action->activationMode(),
                .behavior = action->behavior(),
                .parameters = propertyListFromDictionary(action->parameters()),
                .destructive = action->isDestructive(),
                .authenticationRequired = action->isAuthenticationRequired(),
            });
        }
        return fields;
    }

} // namespace

const char* const LocalNotificationFields::defaultSoundName = LocalNotificationDefaultSoundName;

std::optional<ArchivedRecord> LocalNotificationFields::archive() const
{
    auto info = dictionaryFromPropertyList(userInfo);
    if (!info || !isValidCalendarUnit(static_cast<int64_t>(repeatInterval)))
        return std::nullopt;
    LocalNotification::registerArchivableClasses();
    auto notification = std::make_shared<LocalNotification>();
    if (fireDate)
        notification->setFireDate(Date(*fireDate));
    notification->setTimeZone(timeZone);
    notification->setRepeatInterval(static_cast<CalendarUnit>(repeatInterval));
    notification->setRepeatCalendar(repeatCalendar);
    notification->setTotalRepeatCount(totalRepeatCount);
    if (region) {
        auto area = std::make_shared<Region>(
            region->identifier, region->latitude, region->longitude, region->radius);
        area->setNotifyOnEntry(region->notifyOnEntry);
        area->setNotifyOnExit(region->notifyOnExit);
        notification->setRegion(std::move(area));
    }
    notification->setRegionTriggersOnce(regionTriggersOnce);
    notification->setAlertBody(alertBody);
    notification->setAlertTitle(alertTitle);
    notification->setAlertAction(alertAction);
    notification->setHasAction(hasAction);
    notification->setAlertLaunchImage(alertLaunchImage);
    notification->setSoundName(soundName);
    notification->setApplicationIconBadgeNumber(applicationIconBadgeNumber);
    notification->setUserInfo(std::move(*info));
    notification->setCategory(category);
    notification->setFromSnooze(fromSnooze);
    return KeyedArchive::archivedData(Value(std::move(notification)));
}

std::optional<LocalNotificationFields> LocalNotificationFields::unarchive(const ArchivedRecord& record)
{
    auto notification = KTSLocalNotificationWhitelistedUnarchiveFromData(record);
    if (!notification)
        return std::nullopt;
    LocalNotificationFields fields {
        .timeZone = notification->timeZone(),
        .repeatInterval = static_cast<RepeatUnit>(notification->repeatInterval()),
        .repeatCalendar = notification->repeatCalendar(),
        .totalRepeatCount = notification->totalRepeatCount(),
        .regionTriggersOnce = notification->regionTriggersOnce(),
        .alertBody = notification->alertBody(),
        .alertTitle = notification->alertTitle(),
        .alertAction = notification->alertAction(),
        .hasAction = notification->hasAction(),
        .alertLaunchImage = notification->alertLaunchImage(),
        .soundName = notification->soundName(),
        .applicationIconBadgeNumber = notification->applicationIconBadgeNumber(),
        .userInfo = propertyListFromDictionary(notification->userInfo()),
        .category = notification->category(),
        .fromSnooze = notification->isFromSnooze(),
    };
    if (notification->fireDate())
        fields.fireDate = notification->fireDate()->timeIntervalSinceReferenceDate();
    if (auto& region = notification->region())
        fields.region = RegionFields { region->identifier(), region->latitude(), region->longitude(),
            region->radius(), region->notifyOnEntry(), region->notifyOnExit() };
    return fields;
}

std::optional<ArchivedRecord> NotificationSettingsFields::archive() const
{
    NotificationSettings::registerArchivableClasses();
    NotificationCategories categories;
    for (auto& fields : this->categories) {
        auto defaultActions = actionsFromFields(fields.defaultActions);
        auto minimalActions = actionsFromFields(fields.minimalActions);
        if (!defaultActions || !minimalActions)
            return std::nullopt;
        auto category = std::make_shared<NotificationCategory>(fields.identifier);
        category->setActions(std::move(*defaultActions), NotificationAction::ContextDefault);
        category->setActions(std::move(*minimalActions), NotificationAction::ContextMinimal);
        categories.push_back(std::move(category));
    }
    return KeyedArchive::archivedData(Value(NotificationSettings::settingsForTypes(types, categories)));
}

std::optional<NotificationSettingsFields> NotificationSettingsFields::unarchive(const ArchivedRecord& record)
{
    auto settings = KTSNotificationSettingsWhitelistedUnarchiveFromData(record);
    if (!settings)
        return std::nullopt;
    NotificationSettingsFields fields { .types = settings->types() };
    for (auto& category : settings->categories()) {
        if (!category)
            continue;
        fields.categories.push_back({
            .identifier = category->identifier(),
            .defaultActions
            = fieldsFromActions(category->actionsForContext(NotificationAction::ContextDefault)),
            .minimalActions
            = fieldsFromActions(category->actionsForContext(NotificationAction::ContextMinimal)),
        });
    }
    return fields;
}

} // namespace tessel
