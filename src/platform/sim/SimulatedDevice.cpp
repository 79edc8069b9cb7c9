#include "platform/sim/SimulatedDevice.h"

#include "platform/applications/ApplicationDataStoreDatabase.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/events/InProcessSystemNotificationCenter.h"
#include "platform/events/NotificationCenter.h"
#include "platform/files/FileManager.h"
#include "platform/files/Path.h"
#include "platform/files/Preferences.h"
#include "platform/location/LocationServices.h"
#include "platform/logging/FileLogManager.h"
#include "platform/processes/ApplicationStateMonitor.h"
#include "platform/sim/CapturedSystemLog.h"
#include "platform/sim/InProcessIpcService.h"
#include "platform/sim/ManualClock.h"
#include "platform/sim/SimulatedApplicationWorkspace.h"
#include "platform/sim/SimulatedBulletinService.h"
#include "platform/sim/SimulatedProcessManager.h"
#include "platform/sim/SimulatedPushService.h"
#include "platform/sim/SimulatedSystemAlerts.h"
#include "platform/sim/SimulatedSystemService.h"
#include "services/KTSPowerLog.h"

#include <cstdlib>
#include <mutex>
#include <stdexcept>
#include <string_view>

namespace tessel {

namespace {

    std::string makeTemporaryLibrary()
    {
        const char* base = std::getenv("TMPDIR");
        std::string pattern = std::string(base && *base ? base : "/tmp") + "/tessel-device-XXXXXX";
        if (!mkdtemp(pattern.data()))
            throw std::runtime_error("cannot create a temporary directory for the simulated device");
        return Path::appendingComponent(pattern, "Library");
    }

} // namespace

struct SimulatedDevice::PowerLog {
    std::mutex mutex;
    std::vector<PowerLogEntry> entries;

    void record(PowerLogEntry entry)
    {
        std::lock_guard lock(mutex);
        entries.push_back(std::move(entry));
    }
};

SimulatedDevice::SimulatedDevice(Date start)
    : _platform(std::make_shared<Platform>())
    , _clock(std::make_shared<ManualClock>(start))
    , _systemLog(std::make_shared<CapturedSystemLog>())
    , _systemNotificationCenter(std::make_shared<InProcessSystemNotificationCenter>())
    , _systemAlerts(std::make_shared<SimulatedSystemAlerts>())
    , _processManager(std::make_shared<SimulatedProcessManager>())
    , _powerLog(std::make_shared<PowerLog>())
{
    auto& platform = *_platform;
    platform.libraryDirectory = makeTemporaryLibrary();
    FileManager::createDirectoryAtPath(platform.libraryDirectory, true);
    platform.clock = _clock;
    platform.preferences
        = std::make_shared<Preferences>(Path::appendingComponent(platform.libraryDirectory, "Preferences"));
    platform.systemLog = _systemLog;
    platform.dataStores = std::make_shared<ApplicationDataStoreDatabase>(
        Path::appendingComponent(platform.libraryDirectory, ApplicationDataStoreDatabase::fileName),
        platform.systemLog);
    platform.notificationCenter = std::make_shared<NotificationCenter>();
    platform.systemNotificationCenter = _systemNotificationCenter;
    std::weak_ptr<ManualClock> clock = _clock;
    platform.fileLogManager = std::make_shared<FileLogManager>(
        platform.preferences, Path::appendingComponent(platform.libraryDirectory, "Logs"), [clock] {
            auto strong = clock.lock();
            return strong ? strong->now() : Date();
        });
    platform.workspace = std::make_shared<SimulatedApplicationWorkspace>(platform.libraryDirectory);
    platform.systemAlerts = _systemAlerts;
    platform.processManager = _processManager;
    platform.locationServices = std::make_shared<LocationServices>();
    std::weak_ptr<PowerLog> powerLog = _powerLog;
    KTSSetLocalNotificationFiredPowerHandler([powerLog](int32_t pid, const std::string& bundleIdentifier) {
        if (auto log = powerLog.lock())
            log->record({ pid, bundleIdentifier, false });
    });
    KTSSetRemoteNotificationReceivedPowerHandler(
        [powerLog](int32_t pid, const std::string& bundleIdentifier) {
            if (auto log = powerLog.lock())
                log->record({ pid, bundleIdentifier, true });
        });
    platform.systemService = std::make_shared<SimulatedSystemService>();
    platform.bulletinService = std::make_shared<SimulatedBulletinService>();
    platform.pushService = std::make_shared<SimulatedPushService>();
    platform.applicationStates = std::make_shared<ApplicationStateService>();
    platform.downloadManager = std::make_shared<SimulatedDownloadManager>();
    platform.profileConnection = std::make_shared<SimulatedProfileConnection>();
    platform.ipc = std::make_shared<InProcessIpcService>();
    Platform::install(_platform);
}

SimulatedDevice::~SimulatedDevice()
{
    WorkQueue::waitUntilIdle();
    KTSSetLocalNotificationFiredPowerHandler({});
    KTSSetRemoteNotificationReceivedPowerHandler({});
    const char* keep = std::getenv("TESSEL_KEEP_SIMULATED_LIBRARY");
    if (!(keep && *keep))
        FileManager::removeItemAtPath(Path::deletingLastComponent(libraryDirectory()));
}

void SimulatedDevice::advance(double seconds)
{
    _clock->advance(seconds);
    WorkQueue::waitUntilIdle();
}

void SimulatedDevice::waitUntilIdle() { WorkQueue::waitUntilIdle(); }

SimulatedApplicationWorkspace& SimulatedDevice::applicationWorkspace()
{
    return static_cast<SimulatedApplicationWorkspace&>(*_platform->workspace);
}

SimulatedSystemService& SimulatedDevice::systemService()
{
    return static_cast<SimulatedSystemService&>(*_platform->systemService);
}

SimulatedBulletinService& SimulatedDevice::bulletinService()
{
    return static_cast<SimulatedBulletinService&>(*_platform->bulletinService);
}

SimulatedPushService& SimulatedDevice::pushService()
{
    return static_cast<SimulatedPushService&>(*_platform->pushService);
}

ApplicationStateService& SimulatedDevice::applicationStates() { return *_platform->applicationStates; }

SimulatedDownloadManager& SimulatedDevice::downloadManager()
{
    return static_cast<SimulatedDownloadManager&>(*_platform->downloadManager);
}

SimulatedProfileConnection& SimulatedDevice::profileConnection()
{
    return static_cast<SimulatedProfileConnection&>(*_platform->profileConnection);
}

std::vector<std::string> SimulatedDevice::fileLogLines(const std::string& loggerName) const
{
    std::vector<std::string> lines;
    auto path
        = Path::appendingComponent(Path::appendingComponent(libraryDirectory(), "Logs"), loggerName + ".log");
    auto contents = FileManager::contentsAtPath(path);
    if (!contents)
        return lines;
    std::string_view text(reinterpret_cast<const char*>(contents->data()), contents->size());
    while (!text.empty()) {
        auto end = text.find('\n');
        auto line = text.substr(0, end);
        // Each line is "<timestamp> <text>".
        auto space = line.find(' ');
        lines.emplace_back(space == std::string_view::npos ? line : line.substr(space + 1));
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    }
    return lines;
}

std::vector<SimulatedDevice::PowerLogEntry> SimulatedDevice::powerLogEntries() const
{
    std::lock_guard lock(_powerLog->mutex);
    return _powerLog->entries;
}

InProcessIpcService& SimulatedDevice::ipc() { return static_cast<InProcessIpcService&>(*_platform->ipc); }

} // namespace tessel
