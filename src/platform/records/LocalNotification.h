#pragma once

#include "platform/foundation/Archivable.h"
#include "platform/foundation/CalendarUnit.h"
#include "platform/foundation/Date.h"
#include "platform/foundation/Value.h"
#include "platform/location/Region.h"

#include <compare>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace tessel {

class KeyedUnarchiver;

// A repeat count meaning "without end".
inline constexpr int32_t LocalNotificationInfiniteRepeatCount = -1;
// The sound name that asks for the system's default alert sound.
inline constexpr const char* LocalNotificationDefaultSoundName = "TesselDefaultSound";

// A notification an application schedules on the device, triggered by a date
// (optionally repeating on a calendar) or by a region. Rules for dates, time
// zones and repeats are in docs/local-notifications.md.
class LocalNotification : public Archivable {
public:
    static constexpr const char* archivedClassName = "LocalNotification";

    LocalNotification() = default;

    // Registers LocalNotification and Region with KeyedArchive; idempotent.
    // Anything that unarchives notifications calls it first.
    static void registerArchivableClasses();
    // The host's zone: $TZ when it names a zone, else the zoneinfo name of the
    // file TZ names or /etc/localtime is (or links to), else "UTC".
    static std::string hostTimeZoneName();
    // The file that sets the host's zone: TZ's (":/path" or "/path"), else
    // /etc/localtime; empty when TZ names the zone itself.
    static std::string hostTimeZoneFile();

    std::shared_ptr<LocalNotification> copy() const;

    const std::optional<Date>& fireDate() const { return _fireDate; }
    void setFireDate(std::optional<Date> date) { _fireDate = date; }
    // None: the fire date is an absolute moment. Set: the fire date's wall-clock
    // time in this zone, which then follows the device's current zone.
    const std::optional<std::string>& timeZone() const { return _timeZone; }
    void setTimeZone(std::optional<std::string> timeZone) { _timeZone = std::move(timeZone); }

    CalendarUnit repeatInterval() const { return _repeatInterval; }
    void setRepeatInterval(CalendarUnit unit) { _repeatInterval = unit; }
    // A calendar identifier such as "gregorian", "hebrew" or "islamic".
    const std::string& repeatCalendar() const { return _repeatCalendar; }
    void setRepeatCalendar(std::string identifier) { _repeatCalendar = std::move(identifier); }
    // Occurrences after the first; LocalNotificationInfiniteRepeatCount for no end.
    int32_t totalRepeatCount() const { return _totalRepeatCount; }
    // Sets the remaining count too: a new total starts afresh.
    void setTotalRepeatCount(int32_t count);
    // Repeats not yet fired; the scheduler counts it down.
    int32_t remainingRepeatCount() const { return _remainingRepeatCount; }
    void setRemainingRepeatCount(int32_t count);

    // Everything without a region goes by its date; without one it is due at once.
    bool isTriggeredByDate() const { return !_region; }
    bool isTriggeredByRegion() const { return _region != nullptr; }
    const std::shared_ptr<Region>& region() const { return _region; }
    void setRegion(std::shared_ptr<Region> region) { _region = std::move(region); }
    bool regionTriggersOnce() const { return _regionTriggersOnce; }
    void setRegionTriggersOnce(bool once) { _regionTriggersOnce = once; }

    const std::string& alertBody() const { return _alertBody; }
    void setAlertBody(std::string text) { _alertBody = std::move(text); }
    const std::string& alertTitle() const { return _alertTitle; }
    void setAlertTitle(std::string text) { _alertTitle = std::move(text); }
    const std::string& alertAction() const { return _alertAction; }
    void setAlertAction(std::string text) { _alertAction = std::move(text); }
    bool hasAction() const { return _hasAction; }
    void setHasAction(bool hasAction) { _hasAction = hasAction; }
    const std::string& alertLaunchImage() const { return _alertLaunchImage; }
    void setAlertLaunchImage(std::string name) { _alertLaunchImage = std::move(name); }
    const std::string& soundName() const { return _soundName; }
    void setSoundName(std::string name) { _soundName = std::move(name); }
    int applicationIconBadgeNumber() const { return _applicationIconBadgeNumber; }
    void setApplicationIconBadgeNumber(int number) { _applicationIconBadgeNumber = number; }
    // Property-list values only; anything else is refused when decoding.
    const Value::Dictionary& userInfo() const { return _userInfo; }
    void setUserInfo(Value::Dictionary userInfo) { _userInfo = std::move(userInfo); }
    const std::string& category() const { return _category; }
    void setCategory(std::string category) { _category = std::move(category); }
    bool isFromSnooze() const { return _fromSnooze; }
    void setFromSnooze(bool fromSnooze) { _fromSnooze = fromSnooze; }

    // System-only: set by the server, never taken from an application.
    const std::string& firedNotificationName() const { return _firedNotificationName; }
    void setFiredNotificationName(std::string name) { _firedNotificationName = std::move(name); }
    const std::string& snoozedNotificationName() const { return _snoozedNotificationName; }
    void setSnoozedNotificationName(std::string name) { _snoozedNotificationName = std::move(name); }
    bool isTransient() const { return _transient; }
    void setTransient(bool transient) { _transient = transient; }
    // Resets the system-only properties above, as for a record an application sent.
    void clearNonSystemProperties();

    // The first occurrence strictly after date; absent when none remains or
    // the dates are not real ones. localTimeZone defaults to the platform's zone
    // (UTC without a platform).
    std::optional<Date> nextFireDateAfterDate(
        Date date, const std::optional<std::string>& localTimeZone = std::nullopt) const;
    // The occurrence to schedule once firing is done up to lastFireDate.
    std::optional<Date> nextFireDateForLastFireDate(Date lastFireDate) const;
    // Undated notifications first, then by fire date.
    std::weak_ordering compareFireDates(const LocalNotification& other) const;

    std::string className() const override { return archivedClassName; }
    void encodeWithCoder(KeyedArchiver& coder) const override;
    std::string description() const override;
    bool isEqual(const Archivable& other) const override;

    // Null for a record that breaks the rules above (objects in the user info,
    // a region of another class).
    static std::shared_ptr<LocalNotification> decode(KeyedUnarchiver& coder);

private:
    std::optional<Date> occurrenceAfter(
        Date date, const std::optional<std::string>& localTimeZone, int64_t lastIndex) const;

    std::optional<Date> _fireDate;
    std::optional<std::string> _timeZone;
    CalendarUnit _repeatInterval = CalendarUnit::None;
    std::string _repeatCalendar = "gregorian";
    int32_t _totalRepeatCount = LocalNotificationInfiniteRepeatCount;
    int32_t _remainingRepeatCount = LocalNotificationInfiniteRepeatCount;
    std::shared_ptr<Region> _region;
    bool _regionTriggersOnce = false;
    std::string _alertBody;
    std::string _alertTitle;
    std::string _alertAction;
    bool _hasAction = true;
    std::string _alertLaunchImage;
    std::string _soundName;
    int _applicationIconBadgeNumber = 0;
    Value::Dictionary _userInfo;
    std::string _category;
    bool _fromSnooze = false;
    std::string _firedNotificationName;
    std::string _snoozedNotificationName;
    bool _transient = false;
};

} // namespace tessel
