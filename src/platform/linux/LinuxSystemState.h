#pragma once

#include "core/KTSystemStateProviding.h"

#include <memory>
#include <string>
#include <string_view>

namespace tessel {

class ApplicationWorkspace;
class LinuxApplicationLauncher;
class Preferences;

// The daemon's answers about applications, from the registry and the
// daemon's own preferences domain:
// - restricted: listed in "RestrictedApplications" (array of identifiers);
// - periodical: the info key "GazetteApplication" is true;
// - background modes: the info key "BackgroundModes", an array of strings or
//   one ';'-separated string, holding "remote-notification", "fetch" or
//   "gazette-content";
// - content pushes: at most "ContentPushDailyLimit" (default 10) a day,
//   counted in the device's local time zone;
// - wakes go to the launcher.
class LinuxSystemState final : public KTSystemStateProviding {
public:
    static constexpr std::string_view preferencesDomain = "com.tamber.tesseld";
    static constexpr std::string_view restrictedApplicationsKey = "RestrictedApplications";
    static constexpr std::string_view contentPushDailyLimitKey = "ContentPushDailyLimit";
    static constexpr int64_t defaultContentPushDailyLimit = 10;
    static constexpr std::string_view gazetteApplicationKey = "GazetteApplication";
    static constexpr std::string_view backgroundModesKey = "BackgroundModes";

    LinuxSystemState(std::shared_ptr<ApplicationWorkspace> workspace, std::shared_ptr<Preferences> preferences,
        std::shared_ptr<LinuxApplicationLauncher> launcher);

    bool isApplicationInstalled(const std::string& bundleIdentifier) override;
    bool isApplicationRestricted(const std::string& bundleIdentifier) override;
    bool isGazetteApplication(const std::string& bundleIdentifier) override;
    bool isGazetteContentBackgroundModeSupportedForApplication(const std::string& bundleIdentifier) override;
    bool isBackgroundAppRefreshSupportedForApplication(const std::string& bundleIdentifier) override;
    bool isRemoteNotificationBackgroundModeSupportedForApplication(
        const std::string& bundleIdentifier) override;
    bool shouldThrottleContentNotificationForApplicatin(
        const std::string& bundleIdentifier, Date onDate, int64_t& withLastCount, int64_t& onDay) override;
    void handleGazetteNotificationForApplication(
        const std::string& bundleIdentifier, const Value& userInfo) override;
    void handleContentAvailableNotificationForApplication(const std::string& bundleIdentifier,
        const Value& userInfo, int64_t priority, std::function<void()> completion) override;

    // Days since 2001-01-01 of the date's calendar day in the time zone.
    static int64_t localDayNumber(Date date, const std::string& timeZone);

private:
    Value info(const std::string& bundleIdentifier, std::string_view key) const;
    bool declaresBackgroundMode(const std::string& bundleIdentifier, std::string_view mode) const;

    const std::shared_ptr<ApplicationWorkspace> _workspace;
    const std::shared_ptr<Preferences> _preferences;
    const std::shared_ptr<LinuxApplicationLauncher> _launcher;
};

} // namespace tessel
