#include "platform/records/LocalNotification.h"

#include "platform/Platform.h"
#include "platform/archive/KeyedArchive.h"
#include "platform/archive/KeyedArchiver.h"
#include "platform/archive/KeyedUnarchiver.h"
#include "platform/foundation/Format.h"

#include <unicode/basictz.h>
#include <unicode/calendar.h>
#include <unicode/locid.h>
#include <unicode/timezone.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <map>
#include <mutex>

namespace tessel {

namespace {

    constexpr double millisecondsPerSecond = 1000;
    constexpr double millisecondsPerDay = 86400 * millisecondsPerSecond;
    constexpr int64_t noLastIndex = std::numeric_limits<int64_t>::max();
    // Names longer than any real zone or calendar identifier are not looked up, so
    // untrusted records cannot grow the caches with junk keys.
    constexpr size_t maximumIdentifierLength = 64;
    constexpr size_t maximumCachedObjects = 16;

    bool isRealDate(Date date)
    {
        double seconds = date.timeIntervalSinceReferenceDate();
        return std::isfinite(seconds) && seconds >= Date::distantPast().timeIntervalSinceReferenceDate()
            && seconds <= Date::distantFuture().timeIntervalSinceReferenceDate();
    }

    double millisecondsSince1970(Date date) { return date.timeIntervalSince1970() * millisecondsPerSecond; }
    Date dateFromMilliseconds(double milliseconds)
    {
        return Date::fromTimeIntervalSince1970(milliseconds / millisecondsPerSecond);
    }

    // ICU zones and calendars are expensive to create and calendars are mutable,
    // so each thread keeps its own small set.
    struct IcuCache {
        std::map<std::string, std::unique_ptr<icu::TimeZone>, std::less<>> zones;
        std::map<std::string, std::unique_ptr<icu::Calendar>, std::less<>> calendars;
    };

    IcuCache& icuCache()
    {
        thread_local IcuCache cache;
        return cache;
    }

    const icu::TimeZone& zoneNamed(const std::string& requested)
    {
        const std::string& name = requested.size() <= maximumIdentifierLength ? requested : "Etc/Unknown";
        auto& zones = icuCache().zones;
        if (auto found = zones.find(name); found != zones.end())
            return *found->second;
        if (zones.size() >= maximumCachedObjects)
            zones.clear();
        // An unknown name gives ICU's unknown zone, which behaves as UTC.
        std::unique_ptr<icu::TimeZone> zone(
            icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(name)));
        return *zones.emplace(name, std::move(zone)).first->second;
    }

    bool isCalendarIdentifier(const std::string& identifier)
    {
        if (identifier.empty() || identifier.size() > maximumIdentifierLength)
            return false;
        for (char c : identifier) {
            if (!((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-'))
                return false;
        }
        return true;
    }

    // A calendar in UTC: wall-clock arithmetic happens on UTC-shaped milliseconds,
    // so that daylight saving never shifts an occurrence.
    icu::Calendar* calendarNamed(const std::string& requested)
    {
        const std::string& identifier = isCalendarIdentifier(requested) ? requested : "gregorian";
        auto& calendars = icuCache().calendars;
        if (auto found = calendars.find(identifier); found != calendars.end())
            return found->second.get();
        if (calendars.size() >= maximumCachedObjects)
            calendars.clear();
        UErrorCode status = U_ZERO_ERROR;
        icu::Locale locale(("@calendar=" + identifier).c_str());
        std::unique_ptr<icu::Calendar> calendar(
            icu::Calendar::createInstance(icu::TimeZone::getGMT()->clone(), locale, status));
        if (U_FAILURE(status) || !calendar)
            return nullptr;
        return calendars.emplace(identifier, std::move(calendar)).first->second.get();
    }

    double wallFromAbsolute(const icu::TimeZone& zone, double milliseconds)
    {
        int32_t raw = 0;
        int32_t dst = 0;
        UErrorCode status = U_ZERO_ERROR;
        zone.getOffset(milliseconds, false, raw, dst, status);
        return U_FAILURE(status) ? milliseconds : milliseconds + raw + dst;
    }

    // A wall time that a transition skips moves forward by the gap; one that occurs
    // twice means its first occurrence.
    double absoluteFromWall(const icu::TimeZone& zone, double wall)
    {
        int32_t raw = 0;
        int32_t dst = 0;
        UErrorCode status = U_ZERO_ERROR;
        if (auto basic = dynamic_cast<const icu::BasicTimeZone*>(&zone))
            basic->getOffsetFromLocal(wall, UCAL_TZ_LOCAL_FORMER, UCAL_TZ_LOCAL_FORMER, raw, dst, status);
        else
            zone.getOffset(wall, true, raw, dst, status);
        return U_FAILURE(status) ? wall : wall - raw - dst;
    }

    // The occurrences of a repeating notification: occurrence k is the first one
    // plus k units, always counted from the first so that clamped month ends recover.
    class Occurrences {
    public:
        Occurrences(double first, CalendarUnit unit, icu::Calendar* calendar, int64_t lastIndex)
            : _first(first)
            , _calendar(calendar)
            , _lastIndex(lastIndex)
        {
            switch (unit) {
            case CalendarUnit::Second:
                _fixedLength = millisecondsPerSecond;
                break;
            case CalendarUnit::Minute:
                _fixedLength = 60 * millisecondsPerSecond;
                break;
            case CalendarUnit::Hour:
                _fixedLength = 3600 * millisecondsPerSecond;
                break;
            case CalendarUnit::Day:
                _fixedLength = millisecondsPerDay;
                break;
            case CalendarUnit::Week:
                _fixedLength = 7 * millisecondsPerDay;
                break;
            case CalendarUnit::Month:
                _field = UCAL_MONTH;
                break;
            case CalendarUnit::Quarter:
                _field = UCAL_MONTH;
                _step = 3;
                break;
            case CalendarUnit::Year:
                _field = UCAL_YEAR;
                break;
            case CalendarUnit::None:
                break;
            }
            // Longer than the unit in any calendar, so estimates never overshoot.
            _estimateLength
                = _fixedLength ? _fixedLength : (_field == UCAL_YEAR ? 390 : 32) * _step * millisecondsPerDay;
        }

        int64_t lastIndex() const { return _lastIndex; }

        std::optional<double> at(int64_t index) const
        {
            if (_fixedLength)
                return _first + static_cast<double>(index) * _fixedLength;
            if (!_calendar || index > std::numeric_limits<int32_t>::max() / _step)
                return std::nullopt;
            UErrorCode status = U_ZERO_ERROR;
            _calendar->setTime(_first, status);
            _calendar->add(_field, static_cast<int32_t>(index) * _step, status);
            double result = _calendar->getTime(status);
            if (U_FAILURE(status))
                return std::nullopt;
            return result;
        }

        // The smallest index whose occurrence is after target, found from an
        // estimate and a few corrections rather than by walking the series.
        std::optional<int64_t> firstIndexAfter(double target) const
        {
            if (_first > target)
                return 0;
            int64_t index = static_cast<int64_t>(std::floor((target - _first) / _estimateLength));
            for (int attempt = 0; attempt < 64; ++attempt) {
                auto occurrence = at(index);
                if (!occurrence)
                    return std::nullopt;
                if (*occurrence > target) {
                    if (index == 0)
                        return 0;
                    auto previous = at(index - 1);
                    if (!previous)
                        return std::nullopt;
                    if (*previous <= target)
                        return index;
                    index
                        -= std::max<int64_t>(1, static_cast<int64_t>((*previous - target) / _estimateLength));
                    index = std::max<int64_t>(index, 0);
                } else {
                    auto next = at(index + 1);
                    if (!next)
                        return std::nullopt;
                    if (*next > target)
                        return index + 1;
                    index += 1 + static_cast<int64_t>((target - *next) / _estimateLength);
                }
            }
            return std::nullopt;
        }

    private:
        double _first;
        icu::Calendar* _calendar;
        int64_t _lastIndex;
        double _fixedLength = 0;
        UCalendarDateFields _field = UCAL_MONTH;
        int32_t _step = 1;
        double _estimateLength = 0;
    };

    bool isPropertyListValue(const Value& value)
    {
        switch (value.type()) {
        case Value::Type::Object:
        case Value::Type::Null:
            return false;
        case Value::Type::Array:
            for (auto& element : value.arrayValue()) {
                if (!isPropertyListValue(element))
                    return false;
            }
            return true;
        case Value::Type::Dictionary:
            for (auto& [key, element] : value.dictionaryValue()) {
                if (!isPropertyListValue(element))
                    return false;
            }
            return true;
        default:
            return true;
        }
    }

    int32_t normalizedRepeatCount(int32_t count)
    {
        return count < 0 ? LocalNotificationInfiniteRepeatCount : count;
    }

    // TZ without the colon it may start with.
    std::string timeZoneVariable()
    {
        const char* variable = std::getenv("TZ");
        if (!variable)
            return {};
        return variable[0] == ':' ? variable + 1 : variable;
    }

    std::string zoneOfPath(const std::string& path)
    {
        auto position = path.find("zoneinfo/");
        return position == std::string::npos ? std::string() : path.substr(position + 9);
    }

} // namespace

void LocalNotification::registerArchivableClasses()
{
    static std::once_flag once;
    std::call_once(once, [] {
        KeyedArchive::registerClass(archivedClassName, [](KeyedUnarchiver& coder) { return decode(coder); });
        KeyedArchive::registerClass(
            Region::archivedClassName, [](KeyedUnarchiver& coder) { return Region::decode(coder); });
    });
}

std::string LocalNotification::hostTimeZoneFile()
{
    auto variable = timeZoneVariable();
    if (variable.empty())
        return "/etc/localtime";
    return variable[0] == '/' ? variable : std::string();
}

std::string LocalNotification::hostTimeZoneName()
{
    auto file = hostTimeZoneFile();
    if (file.empty())
        return timeZoneVariable();
    auto name = zoneOfPath(file);
    if (name.empty()) {
        std::error_code error;
        auto target = std::filesystem::read_symlink(file, error);
        if (!error)
            name = zoneOfPath(target.string());
    }
    return name.empty() ? "UTC" : name;
}

std::shared_ptr<LocalNotification> LocalNotification::copy() const
{
    auto copy = std::make_shared<LocalNotification>(*this);
    if (_region)
        copy->_region = _region->copy();
    return copy;
}

void LocalNotification::setTotalRepeatCount(int32_t count)
{
    _totalRepeatCount = normalizedRepeatCount(count);
    _remainingRepeatCount = _totalRepeatCount;
}

void LocalNotification::setRemainingRepeatCount(int32_t count)
{
    _remainingRepeatCount = normalizedRepeatCount(count);
}

void LocalNotification::clearNonSystemProperties()
{
    _firedNotificationName.clear();
    _snoozedNotificationName.clear();
    _transient = false;
}

std::optional<Date> LocalNotification::nextFireDateAfterDate(
    Date date, const std::optional<std::string>& localTimeZone) const
{
    bool finite = _totalRepeatCount != LocalNotificationInfiniteRepeatCount;
    return occurrenceAfter(date, localTimeZone, finite ? _totalRepeatCount : noLastIndex);
}

std::optional<Date> LocalNotification::occurrenceAfter(
    Date date, const std::optional<std::string>& localTimeZone, int64_t lastIndex) const
{
    if (!_fireDate || !isRealDate(*_fireDate) || !isRealDate(date))
        return std::nullopt;
    double after = millisecondsSince1970(date);
    double first = millisecondsSince1970(*_fireDate);
    double target = after;
    const icu::TimeZone* local = nullptr;
    if (_timeZone) {
        // Floating: carry the wall-clock time over from the record's zone into the current one.
        first = wallFromAbsolute(zoneNamed(*_timeZone), first);
        std::string localName = localTimeZone ? *localTimeZone
            : Platform::isInstalled()         ? Platform::current().timeZone()
                                              : std::string("UTC");
        local = &zoneNamed(localName);
        target = wallFromAbsolute(*local, after);
    }
    auto absolute
        = [&](double milliseconds) { return local ? absoluteFromWall(*local, milliseconds) : milliseconds; };
    auto answer = [](double milliseconds) -> std::optional<Date> {
        Date result = dateFromMilliseconds(milliseconds);
        return isRealDate(result) ? std::optional(result) : std::nullopt;
    };

    if (_repeatInterval == CalendarUnit::None) {
        double only = absolute(first);
        return only > after ? answer(only) : std::nullopt;
    }
    Occurrences occurrences(first, _repeatInterval, calendarNamed(_repeatCalendar), lastIndex);
    auto index = occurrences.firstIndexAfter(target);
    if (!index)
        return std::nullopt;
    // Around a fall-back transition a later wall time can still be an earlier moment.
    for (int attempt = 0; attempt < 4 && *index <= occurrences.lastIndex(); ++attempt, ++*index) {
        auto wall = occurrences.at(*index);
        if (!wall)
            return std::nullopt;
        double candidate = absolute(*wall);
        if (candidate > after)
            return answer(candidate);
    }
    return std::nullopt;
}

std::optional<Date> LocalNotification::nextFireDateForLastFireDate(Date lastFireDate) const
{
    // The first occurrence is not a repeat: with none remaining it may still be due.
    if (_repeatInterval != CalendarUnit::None && _remainingRepeatCount == 0)
        return occurrenceAfter(lastFireDate, std::nullopt, 0);
    return nextFireDateAfterDate(lastFireDate);
}

std::weak_ordering LocalNotification::compareFireDates(const LocalNotification& other) const
{
    auto key = [](const LocalNotification& notification) -> std::optional<double> {
        if (!notification._fireDate || std::isnan(notification._fireDate->timeIntervalSinceReferenceDate()))
            return std::nullopt;
        return notification._fireDate->timeIntervalSinceReferenceDate();
    };
    auto mine = key(*this);
    auto theirs = key(other);
    if (!mine || !theirs)
        return mine.has_value() <=> theirs.has_value();
    if (*mine < *theirs)
        return std::weak_ordering::less;
    if (*mine > *theirs)
        return std::weak_ordering::greater;
    return std::weak_ordering::equivalent;
}

void LocalNotification::encodeWithCoder(KeyedArchiver& coder) const
{
    if (_fireDate)
        coder.encodeObject(*_fireDate, "fireDate");
    if (_timeZone)
        coder.encodeObject(*_timeZone, "timeZone");
    coder.encodeInt32(static_cast<int32_t>(_repeatInterval), "repeatInterval");
    coder.encodeObject(_repeatCalendar, "repeatCalendar");
    coder.encodeInt32(_totalRepeatCount, "totalRepeatCount");
    coder.encodeInt32(_remainingRepeatCount, "remainingRepeatCount");
    if (_region)
        coder.encodeObject(_region, "region");
    coder.encodeBool(_regionTriggersOnce, "regionTriggersOnce");
    auto encodeText = [&](const std::string& text, std::string_view key) {
        if (!text.empty())
            coder.encodeObject(text, key);
    };
    encodeText(_alertBody, "alertBody");
    encodeText(_alertTitle, "alertTitle");
    encodeText(_alertAction, "alertAction");
    coder.encodeBool(_hasAction, "hasAction");
    encodeText(_alertLaunchImage, "alertLaunchImage");
    encodeText(_soundName, "soundName");
    coder.encodeInt32(_applicationIconBadgeNumber, "applicationIconBadgeNumber");
    if (!_userInfo.empty())
        coder.encodeObject(_userInfo, "userInfo");
    encodeText(_category, "category");
    coder.encodeBool(_fromSnooze, "fromSnooze");
    encodeText(_firedNotificationName, "firedNotificationName");
    encodeText(_snoozedNotificationName, "snoozedNotificationName");
    coder.encodeBool(_transient, "transient");
}

std::shared_ptr<LocalNotification> LocalNotification::decode(KeyedUnarchiver& coder)
{
    auto notification = std::make_shared<LocalNotification>();
    auto& n = *notification;
    if (auto fireDate = coder.decodeObject("fireDate"); fireDate.isDate())
        n._fireDate = fireDate.dateValue();
    if (auto timeZone = coder.decodeObject("timeZone"); timeZone.isString())
        n._timeZone = timeZone.stringValue();
    int32_t interval = coder.decodeInt32("repeatInterval");
    n._repeatInterval
        = isValidCalendarUnit(interval) ? static_cast<CalendarUnit>(interval) : CalendarUnit::None;
    if (auto calendar = coder.decodeObject("repeatCalendar").stringValue(); !calendar.empty())
        n._repeatCalendar = calendar;
    // Absent counts come from records that never had them: they repeat without end.
    if (coder.containsValueForKey("totalRepeatCount"))
        n._totalRepeatCount = normalizedRepeatCount(coder.decodeInt32("totalRepeatCount"));
    if (coder.containsValueForKey("remainingRepeatCount"))
        n._remainingRepeatCount = normalizedRepeatCount(coder.decodeInt32("remainingRepeatCount"));
    // A region that did not decode must not turn the record into a date-triggered one.
    if (coder.containsValueForKey("region")) {
        n._region = coder.decodeObject("region").objectAs<Region>();
        if (!n._region)
            return nullptr;
    }
    n._regionTriggersOnce = coder.decodeBool("regionTriggersOnce");
    n._alertBody = coder.decodeObject("alertBody").stringValue();
    n._alertTitle = coder.decodeObject("alertTitle").stringValue();
    n._alertAction = coder.decodeObject("alertAction").stringValue();
    n._hasAction = !coder.containsValueForKey("hasAction") || coder.decodeBool("hasAction");
    n._alertLaunchImage = coder.decodeObject("alertLaunchImage").stringValue();
    n._soundName = coder.decodeObject("soundName").stringValue();
    n._applicationIconBadgeNumber = coder.decodeInt32("applicationIconBadgeNumber");
    if (auto userInfo = coder.decodeObject("userInfo"); !userInfo.isNull()) {
        if (!userInfo.isDictionary() || !isPropertyListValue(userInfo))
            return nullptr;
        n._userInfo = userInfo.dictionaryValue();
    }
    n._category = coder.decodeObject("category").stringValue();
    n._fromSnooze = coder.decodeBool("fromSnooze");
    n._firedNotificationName = coder.decodeObject("firedNotificationName").stringValue();
    n._snoozedNotificationName = coder.decodeObject("snoozedNotificationName").stringValue();
    n._transient = coder.decodeBool("transient");
    return notification;
}

std::string LocalNotification::description() const
{
    Value fireDate = _fireDate ? Value(*_fireDate) : Value();
    Value timeZone = _timeZone ? Value(*_timeZone) : Value();
    Value region = _region ? Value(_region) : Value();
    return format(
        "<LocalNotification fireDate %@ timeZone %@ repeat %d (%s) count %d remaining %d region %@ "
        "once %d body \"%s\" title \"%s\" action \"%s\" hasAction %d launchImage \"%s\" sound \"%s\" "
        "badge %d category \"%s\" fromSnooze %d fired \"%s\" snoozed \"%s\" transient %d userInfo %@>",
        fireDate, timeZone, static_cast<int32_t>(_repeatInterval), _repeatCalendar, _totalRepeatCount,
        _remainingRepeatCount, region, _regionTriggersOnce, _alertBody, _alertTitle, _alertAction, _hasAction,
        _alertLaunchImage, _soundName, _applicationIconBadgeNumber, _category, _fromSnooze,
        _firedNotificationName, _snoozedNotificationName, _transient, Value(_userInfo));
}

bool LocalNotification::isEqual(const Archivable& other) const
{
    auto n = dynamic_cast<const LocalNotification*>(&other);
    if (!n)
        return false;
    bool sameRegion = _region && n->_region ? _region->isEqual(*n->_region) : _region == n->_region;
    auto sameFireDate = [&] {
        if (!_fireDate || !n->_fireDate)
            return _fireDate.has_value() == n->_fireDate.has_value();
        return Value(*_fireDate) == Value(*n->_fireDate);
    };
    return sameRegion && sameFireDate() && _timeZone == n->_timeZone && _repeatInterval == n->_repeatInterval
        && _repeatCalendar == n->_repeatCalendar && _totalRepeatCount == n->_totalRepeatCount
        && _remainingRepeatCount == n->_remainingRepeatCount && _regionTriggersOnce == n->_regionTriggersOnce
        && _alertBody == n->_alertBody && _alertTitle == n->_alertTitle && _alertAction == n->_alertAction
        && _hasAction == n->_hasAction && _alertLaunchImage == n->_alertLaunchImage
        && _soundName == n->_soundName && _applicationIconBadgeNumber == n->_applicationIconBadgeNumber
        && _userInfo == n->_userInfo && _category == n->_category && _fromSnooze == n->_fromSnooze
        && _firedNotificationName == n->_firedNotificationName
        && _snoozedNotificationName == n->_snoozedNotificationName && _transient == n->_transient;
}

} // namespace tessel
