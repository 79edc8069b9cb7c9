#include "platform/linux/LinuxSystemState.h"

#include "platform/Platform.h"
#include "platform/applications/ApplicationProxy.h"
#include "platform/applications/ApplicationWorkspace.h"
#include "platform/applications/Bundle.h"
#include "platform/files/Preferences.h"
#include "platform/linux/LinuxApplicationLauncher.h"

#include <unicode/timezone.h>

#include <cmath>
#include <memory>

namespace tessel {

LinuxSystemState::LinuxSystemState(std::shared_ptr<ApplicationWorkspace> workspace,
    std::shared_ptr<Preferences> preferences, std::shared_ptr<LinuxApplicationLauncher> launcher)
    : _workspace(std::move(workspace))
    , _preferences(std::move(preferences))
    , _launcher(std::move(launcher))
{
}

Value LinuxSystemState::info(const std::string& bundleIdentifier, std::string_view key) const
{
    // A bundle's manifest, or what a desktop entry declared.
    if (auto bundle = _workspace->bundleForIdentifier(bundleIdentifier))
        return bundle->infoDictionary()[key];
    auto application = _workspace->applicationProxyForIdentifier(bundleIdentifier);
    return application ? application->infoDictionary()[key] : Value {};
}

bool LinuxSystemState::declaresBackgroundMode(const std::string& bundleIdentifier, std::string_view mode) const
{
    auto modes = info(bundleIdentifier, backgroundModesKey);
    if (modes.isArray()) {
        for (const auto& declared : modes.arrayValue())
            if (declared.isString() && declared.stringValue() == mode)
                return true;
        return false;
    }
    // A desktop entry lists them in one string.
    std::string_view list = modes.isString() ? std::string_view(modes.stringValue()) : std::string_view();
    while (!list.empty()) {
        auto end = list.find(';');
        if (list.substr(0, end) == mode)
            return true;
        list = end == std::string_view::npos ? std::string_view() : list.substr(end + 1);
    }
    return false;
}

bool LinuxSystemState::isApplicationInstalled(const std::string& bundleIdentifier)
{
    auto application = _workspace->applicationProxyForIdentifier(bundleIdentifier);
    return application && application->isInstalled();
}

bool LinuxSystemState::isApplicationRestricted(const std::string& bundleIdentifier)
{
    auto restricted = _preferences->valueForKey(restrictedApplicationsKey, preferencesDomain);
    if (!restricted.isArray())
        return false;
    for (const auto& identifier : restricted.arrayValue())
        if (identifier.isString() && identifier.stringValue() == bundleIdentifier)
            return true;
    return false;
}

bool LinuxSystemState::isGazetteApplication(const std::string& bundleIdentifier)
{
    return info(bundleIdentifier, gazetteApplicationKey).boolValue();
}

bool LinuxSystemState::isGazetteContentBackgroundModeSupportedForApplication(const std::string& bundleIdentifier)
{
    return declaresBackgroundMode(bundleIdentifier, "gazette-content");
}

bool LinuxSystemState::isBackgroundAppRefreshSupportedForApplication(const std::string& bundleIdentifier)
{
    return declaresBackgroundMode(bundleIdentifier, "fetch");
}

bool LinuxSystemState::isRemoteNotificationBackgroundModeSupportedForApplication(
    const std::string& bundleIdentifier)
{
    return declaresBackgroundMode(bundleIdentifier, "remote-notification");
}

int64_t LinuxSystemState::localDayNumber(Date date, const std::string& timeZone)
{
    std::unique_ptr<icu::TimeZone> zone(icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(timeZone)));
    int32_t rawOffset = 0, daylightOffset = 0;
    UErrorCode status = U_ZERO_ERROR;
    double unixMilliseconds = (date.timeIntervalSinceReferenceDate() + Date::intervalBetween1970AndReferenceDate) * 1000;
    zone->getOffset(unixMilliseconds, false, rawOffset, daylightOffset, status);
    double offset = U_SUCCESS(status) ? (rawOffset + daylightOffset) / 1000.0 : 0;
    return static_cast<int64_t>(std::floor((date.timeIntervalSinceReferenceDate() + offset) / 86400));
}

bool LinuxSystemState::shouldThrottleContentNotificationForApplicatin(
    const std::string& bundleIdentifier, Date onDate, int64_t& withLastCount, int64_t& onDay)
{
    auto limit = _preferences->hasValueForKey(contentPushDailyLimitKey, preferencesDomain)
        ? _preferences->integerForKey(contentPushDailyLimitKey, preferencesDomain)
        : defaultContentPushDailyLimit;
    auto today = localDayNumber(onDate, Platform::current().timeZone());
    if (today != onDay) {
        onDay = today;
        withLastCount = 0;
    }
    if (withLastCount >= limit) {
        Platform::log(LogPriority::Info,
            "Content push for " + bundleIdentifier + " throttled: " + std::to_string(withLastCount)
                + " today already");
        return true;
    }
    ++withLastCount;
    return false;
}

void LinuxSystemState::handleGazetteNotificationForApplication(const std::string& bundleIdentifier, const Value&)
{
    _launcher->wake(bundleIdentifier, {});
}

void LinuxSystemState::handleContentAvailableNotificationForApplication(
    const std::string& bundleIdentifier, const Value&, int64_t, std::function<void()> completion)
{
    _launcher->wake(bundleIdentifier, std::move(completion));
}

} // namespace tessel
