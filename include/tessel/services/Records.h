#ifndef TESSEL_SERVICES_RECORDS_H
#define TESSEL_SERVICES_RECORDS_H

#include <tessel/TesselExport.h>
#include <tessel/services/ClientOptions.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// Builders and readers of the records the services exchange. The clients take
// and give archived bytes, so their calls never change when a record gains a
// field; these plain structures are the one place that knows the fields.
//
// Dates are seconds since 2001-01-01 00:00:00 UTC. User info and action
// parameters are property lists of a dictionary (binary or XML going in,
// binary coming out), empty for none.

namespace tessel {

// Bits of NotificationSettingsFields::types.
inline constexpr uint64_t NotificationTypeBadge = 1;
inline constexpr uint64_t NotificationTypeSound = 2;
inline constexpr uint64_t NotificationTypeAlert = 4;

// How often a local notification repeats.
enum class RepeatUnit : int32_t {
    None = 0,
    Second = 1,
    Minute = 2,
    Hour = 3,
    Day = 4,
    Week = 5,
    Month = 6,
    Quarter = 7,
    Year = 8,
};

struct TESSEL_EXPORT RegionFields {
    std::string identifier;
    double latitude = 0;
    double longitude = 0;
    // Metres.
    double radius = 0;
    bool notifyOnEntry = true;
    bool notifyOnExit = true;

    bool operator==(const RegionFields&) const = default;
};

struct TESSEL_EXPORT LocalNotificationFields {
    // The sound name that asks for the system's default alert sound.
    static const char* const defaultSoundName;
    // A repeat count meaning "without end".
    static constexpr int32_t infiniteRepeatCount = -1;

    // None: due at once (or when the region triggers).
    std::optional<double> fireDate;
    // None: the fire date is an absolute moment. Set: its wall-clock time in
    // this zone, following the device's zone.
    std::optional<std::string> timeZone;
    RepeatUnit repeatInterval = RepeatUnit::None;
    std::string repeatCalendar = "gregorian";
    // Occurrences after the first.
    int32_t totalRepeatCount = infiniteRepeatCount;
    std::optional<RegionFields> region;
    bool regionTriggersOnce = false;
    std::string alertBody;
    std::string alertTitle;
    std::string alertAction;
    bool hasAction = true;
    std::string alertLaunchImage;
    std::string soundName;
    int applicationIconBadgeNumber = 0;
    ArchivedRecord userInfo;
    std::string category;
    // Set by the server on a notification a snooze brought back.
    bool fromSnooze = false;

    // Absent when a field cannot travel: text that is not UTF-8 or holds NUL,
    // user info that is not a property list of a dictionary.
    std::optional<ArchivedRecord> archive() const;
    // Absent for anything but a well-formed local notification.
    static std::optional<LocalNotificationFields> unarchive(const ArchivedRecord& record);

    bool operator==(const LocalNotificationFields&) const = default;
};

struct TESSEL_EXPORT NotificationActionFields {
    enum ActivationMode : int64_t { Foreground = 0, Background = 1 };
    enum Behavior : int64_t { Default = 0, TextInput = 1 };

    std::string identifier;
    std::string title;
    int64_t activationMode = Foreground;
    int64_t behavior = Default;
    ArchivedRecord parameters;
    bool destructive = false;
    bool authenticationRequired = false;

    bool operator==(const NotificationActionFields&) const = default;
};

struct TESSEL_EXPORT NotificationCategoryFields {
    std::string identifier;
    std::vector<NotificationActionFields> defaultActions;
    // For places with little room; empty to use the default actions.
    std::vector<NotificationActionFields> minimalActions;

    bool operator==(const NotificationCategoryFields&) const = default;
};

struct TESSEL_EXPORT NotificationSettingsFields {
    uint64_t types = 0;
    std::vector<NotificationCategoryFields> categories;

    std::optional<ArchivedRecord> archive() const;
    static std::optional<NotificationSettingsFields> unarchive(const ArchivedRecord& record);

    bool operator==(const NotificationSettingsFields&) const = default;
};

// What a schedule request asks for: the fire dates in a window.
struct ScheduleFetchRequest {
    // None: from now on.
    std::optional<double> startDate;
    // None: without end.
    std::optional<double> endDate;
    // At most this many entries; 0 for no limit.
    uint64_t maxSize = 0;
    bool includeSnoozes = false;
};

struct ScheduleEntry {
    ArchivedRecord notification;
    double fireDate = 0;
};

} // namespace tessel

#endif
