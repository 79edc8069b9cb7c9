#include "platform/linux/LinuxPlatform.h"

#include "platform/alerts/PendingSystemAlerts.h"
#include "platform/applications/ApplicationDataStoreDatabase.h"
#include "platform/events/NotificationCenter.h"
#include "platform/events/SystemNotificationCenter.h"
#include "platform/files/FileManager.h"
#include "platform/files/Path.h"
#include "platform/files/Preferences.h"
#include "platform/linux/LinuxApplicationWorkspace.h"
#include "platform/linux/LinuxBulletinService.h"
#include "platform/linux/LinuxCallerIdentifier.h"
#include "platform/linux/LinuxProcessManager.h"
#include "platform/linux/LinuxPushService.h"
#include "platform/linux/SyslogSystemLog.h"
#include "platform/linux/SystemClock.h"
#include "platform/linux/dbus/DbusIpcService.h"
#include "platform/linux/dbus/DbusSystemNotificationCenter.h"
#include "platform/location/LocationServices.h"
#include "platform/logging/FileLogManager.h"
#include "platform/processes/ApplicationStateMonitor.h"
#include "platform/records/LocalNotification.h"

#include <tessel/Tessel.h>

namespace tessel {

namespace {

    std::string orDefault(std::string value, const std::string& library, const char* component)
    {
        return value.empty() ? Path::appendingComponent(library, component) : value;
    }

} // namespace

std::shared_ptr<Platform> LinuxPlatform::make() { return make(Options {}); }

std::shared_ptr<Platform> LinuxPlatform::make(Options options)
{
    auto platform = std::make_shared<Platform>();
    platform->libraryDirectory
        = options.libraryDirectory.empty() ? FileManager::libraryDirectory() : options.libraryDirectory;
    const auto& library = platform->libraryDirectory;
    platform->setTimeZone(LocalNotification::hostTimeZoneName());
    FileManager::createDirectoryAtPath(library, true);
    auto clock = std::make_shared<SystemClock>();
    platform->clock = clock;
    platform->preferences
        = std::make_shared<Preferences>(orDefault(options.preferencesDirectory, library, "Preferences"));
    platform->systemLog = options.systemLog ? options.systemLog : std::make_shared<SyslogSystemLog>();
    platform->dataStores = std::make_shared<ApplicationDataStoreDatabase>(
        Path::appendingComponent(platform->libraryDirectory, ApplicationDataStoreDatabase::fileName),
        platform->systemLog);
    platform->notificationCenter = std::make_shared<NotificationCenter>();
    std::weak_ptr<SystemClock> weakClock = clock;
    platform->fileLogManager = std::make_shared<FileLogManager>(
        platform->preferences, orDefault(options.logsDirectory, library, "Logs"), [weakClock] {
            auto strong = weakClock.lock();
            return strong ? strong->now() : Date();
        });
    if (options.applicationsDirectory.empty() && options.systemApplicationsDirectories.empty())
        platform->workspace = LinuxApplicationWorkspace::make(library);
    else
        platform->workspace = LinuxApplicationWorkspace::make({
            .applications = orDefault(options.applicationsDirectory, library, "Applications"),
            .containers = Path::appendingComponent(library, "Containers"),
            .system = options.systemApplicationsDirectories,
        });
    platform->processManager = std::make_shared<LinuxProcessManager>();
    // Until a desktop shows them, permission alerts wait for the user's answer in the settings.
    platform->systemAlerts = std::make_shared<PendingSystemAlerts>(kKTNotificationAuthorizationAlertBundleIdentifierKey);
    // Section settings share the data store's file.
    platform->bulletinService
        = std::make_shared<LinuxBulletinService>(platform->dataStores->path(), platform->systemLog);
    // No positioning service here: the host reports crossings and grants authorization.
    platform->locationServices = std::make_shared<LocationServices>();
    platform->pushService
        = std::make_shared<LinuxPushService>(Path::appendingComponent(platform->libraryDirectory, "Push"));
    // The host reports application states as it sees them.
    platform->applicationStates = std::make_shared<ApplicationStateService>();
    platform->downloadManager = std::make_shared<LinuxDownloadManager>();
    platform->profileConnection
        = std::make_shared<LinuxProfileConnection>(platform->preferences, platform->hostPreferencesDomain);
    // The given bus or the session bus of DBUS_SESSION_BUS_ADDRESS, reached when the first listener
    // resumes or the first system notification is observed or posted.
    auto callers = std::make_shared<LinuxCallerIdentifier>(platform->workspace);
    auto bus = std::make_shared<DbusIpcService>(options.busAddress, IpcLimits {}, [callers](int32_t pid, uint32_t) {
        return IpcPeer { .bundleIdentifier = callers->bundleIdentifierForPid(pid) };
    });
    platform->ipc = bus;
    platform->systemNotificationCenter = std::make_shared<DbusSystemNotificationCenter>(bus);
    std::weak_ptr<Platform> weakPlatform = platform;
    clock->setSignificantTimeChangeHandler([weakPlatform] {
        auto platform = weakPlatform.lock();
        if (!platform)
            return;
        // Before the post, so that observers recompute dates in the new zone.
        platform->setTimeZone(LocalNotification::hostTimeZoneName());
        platform->systemNotificationCenter->postNotification("SignificantTimeChangeNotification");
    });
    return platform;
}

} // namespace tessel
