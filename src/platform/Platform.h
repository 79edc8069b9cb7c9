#pragma once

#include "platform/logging/SystemLog.h"

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace tessel {

class ApplicationDataStoreDatabase;
class ApplicationStateService;
class ApplicationWorkspace;
class BulletinService;
class Clock;
class DownloadManager;
class FileLogManager;
class IpcService;
class LocationServices;
class NotificationCenter;
class Preferences;
class ProcessManager;
class ProfileConnection;
class PushService;
class SystemAlertService;
class SystemLog;
class SystemNotificationCenter;
class SystemService;

// The services of the machine the server runs on. A host installs one before
// starting the server (the daemon a Linux one, tests a simulated device); the
// server reaches the platform only through it.
class Platform {
public:
    std::string libraryDirectory;
    // The host's own preferences domain, its standard user defaults.
    std::string hostPreferencesDomain = "com.tamber.vantry";
    // Whether persisted files are synced to storage before they replace the old
    // ones; only benchmarks turn it off, to measure what the sync costs.
    bool durableWrites = true;
    // The host application's own bundle, for the texts it shows on the server's behalf.
    std::string hostBundlePath;
    // Localizations the user prefers, most preferred first (e.g. "de", "en").
    std::vector<std::string> preferredLocalizations { "en" };

    std::shared_ptr<Clock> clock;
    std::shared_ptr<Preferences> preferences;
    std::shared_ptr<SystemLog> systemLog;
    std::shared_ptr<NotificationCenter> notificationCenter;
    std::shared_ptr<SystemNotificationCenter> systemNotificationCenter;
    std::shared_ptr<FileLogManager> fileLogManager;
    std::shared_ptr<ApplicationWorkspace> workspace;
    std::shared_ptr<ApplicationDataStoreDatabase> dataStores;
    std::shared_ptr<SystemAlertService> systemAlerts;
    std::shared_ptr<ProcessManager> processManager;
    std::shared_ptr<LocationServices> locationServices;
    // The bulletin service's own identifier: region monitoring for notifications is attributed to it.
    std::string bulletinServiceBundleIdentifier = "com.tamber.bulletins";
    // Icon badges; without one, badges are not shown.
    std::shared_ptr<SystemService> systemService;
    // Hosts the data providers and keeps each section's settings.
    std::shared_ptr<BulletinService> bulletinService;
    // Push connections, one per environment in use.
    std::shared_ptr<PushService> pushService;
    std::shared_ptr<ApplicationStateService> applicationStates;
    std::shared_ptr<DownloadManager> downloadManager;
    std::shared_ptr<ProfileConnection> profileConnection;
    // Publishes the named services applications connect to.
    std::shared_ptr<IpcService> ipc;

    // The device's current time zone (an IANA name); wall-clock notifications
    // follow it. The host may change it from any thread.
    std::string timeZone() const;
    void setTimeZone(std::string name);

    static void install(std::shared_ptr<Platform> platform);
    // The installed platform; a server without one is a programming error and aborts.
    static Platform& current();
    static bool isInstalled();
    // To the installed platform's system log; to standard error without one,
    // so that nothing said before installation or after teardown is lost.
    static void log(LogPriority priority, std::string_view message);

private:
    mutable std::mutex _timeZoneLock;
    std::string _timeZone = "UTC";
};

} // namespace tessel
