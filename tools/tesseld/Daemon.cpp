#include "Daemon.h"

#include "core/KTSystemStateProviding.h"
#include "ipc/ControlConnectionListener.h"
#include "ipc/KTNotificationRegistrarConnectionListener.h"
#include "ipc/KTNotificationSchedulerConnectionListener.h"
#include "platform/Platform.h"
#include "platform/applications/DirectoryApplicationWorkspace.h"
#include "platform/concurrency/Clock.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/files/Preferences.h"
#include "platform/linux/JournalSystemLog.h"
#include "platform/linux/LinuxApplicationLauncher.h"
#include "platform/linux/LinuxCallerIdentifier.h"
#include "platform/linux/LinuxPlatform.h"
#include "platform/linux/LinuxSystemState.h"
#include "platform/linux/StreamSystemLog.h"
#include "platform/linux/dbus/DbusIpcService.h"
#include "platform/sim/SimulatedDevice.h"
#include "platform/sim/SimulatedSystemState.h"
#include "server/KTTesselServer.h"
#include "services/ControlService.h"
#include "services/KTSConstants.h"

#include <tessel/Tessel.h>

#include <sdbus-c++/sdbus-c++.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <thread>
#include <unistd.h>

namespace tessel {

namespace {

    std::string environment(const char* name)
    {
        const char* value = std::getenv(name);
        return value ? value : "";
    }

    void say(const std::string& message) { std::fprintf(stderr, "tesseld: %s\n", message.c_str()); }

    std::shared_ptr<SystemLog> makeSystemLog()
    {
        if (JournalSystemLog::isStandardErrorJournal())
            return std::make_shared<JournalSystemLog>("tesseld");
        return std::make_shared<StreamSystemLog>(stderr);
    }

    sigset_t stopSignals()
    {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGTERM);
        sigaddset(&signals, SIGINT);
        return signals;
    }

    std::string version() { return "1.0"; }

} // namespace

Daemon::Daemon(DaemonOptions options)
    : _options(std::move(options))
{
}

Daemon::~Daemon() = default;

int Daemon::run(const std::string& executable)
{
    // Before any thread starts, so that every thread inherits the mask and
    // only the signal thread takes them.
    auto signals = stopSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    std::error_code error;
    auto resolved = std::filesystem::canonical(executable, error);
    _paths = DaemonPaths::resolve(_options, environment, error ? executable : resolved.string());
    if (!resolveBusAddress() || !prepareLibrary() || !checkBusIsFree())
        return 1;
    start(makePlatform());
    std::thread([this, signals] {
        int received = 0;
        sigwait(&signals, &received);
        stopAfterSignal(received);
    }).detach();
    WorkQueue::runMainQueue();
}

bool Daemon::resolveBusAddress()
{
    if (_options.bus == "session") {
        _busAddress = environment("DBUS_SESSION_BUS_ADDRESS");
        if (_busAddress.empty()) {
            say("no session bus: DBUS_SESSION_BUS_ADDRESS is not set (use --bus ADDRESS)");
            return false;
        }
    } else if (_options.bus == "system") {
        _busAddress = environment("DBUS_SYSTEM_BUS_ADDRESS");
        if (_busAddress.empty())
            _busAddress = "unix:path=/run/dbus/system_bus_socket";
    } else {
        _busAddress = _options.bus;
    }
    return true;
}

bool Daemon::prepareLibrary()
{
    if (_options.simulate)
        return true;
    std::error_code error;
    for (const auto* directory : { &_paths.library, &_paths.preferences, &_paths.logs, &_paths.applications }) {
        std::filesystem::create_directories(*directory, error);
        if (error) {
            say("cannot create " + *directory + ": " + error.message());
            return false;
        }
    }
    if (access(_paths.library.c_str(), W_OK) != 0) {
        say("the Library " + _paths.library + " is not writable");
        return false;
    }
    std::string reason;
    pid_t holder = 0;
    if (!_lock.acquire(_paths.library + "/.tesseld.lock", reason, holder)) {
        say(holder > 0 ? "another tesseld (pid " + std::to_string(holder) + ") is using the Library " + _paths.library
                       : "cannot lock the Library " + _paths.library + ": " + reason);
        return false;
    }
    return true;
}

bool Daemon::checkBusIsFree()
{
    try {
        auto connection = sdbus::createSessionBusConnectionWithAddress(_busAddress);
        auto bus = sdbus::createProxy(*connection, "org.freedesktop.DBus", "/org/freedesktop/DBus");
        for (const char* name : { KTSNotificationRegistrarServiceName, KTSNotificationSchedulerServiceName,
                 ControlService::serviceName }) {
            bool owned = false;
            bus->callMethod("NameHasOwner").onInterface("org.freedesktop.DBus").withArguments(std::string(name)).storeResultsTo(owned);
            if (!owned)
                continue;
            uint32_t pid = 0;
            bus->callMethod("GetConnectionUnixProcessID").onInterface("org.freedesktop.DBus").withArguments(std::string(name)).storeResultsTo(pid);
            say("another tesseld (pid " + std::to_string(pid) + ") already serves " + name + " on " + _busAddress);
            return false;
        }
    } catch (const sdbus::Error& error) {
        say("cannot reach the bus " + _busAddress + ": " + error.getMessage());
        return false;
    }
    return true;
}

std::shared_ptr<Platform> Daemon::makePlatform()
{
    auto log = makeSystemLog();
    if (!_options.simulate) {
        auto platform = LinuxPlatform::make({
            .libraryDirectory = _paths.library,
            .preferencesDirectory = _paths.preferences,
            .logsDirectory = _paths.logs,
            .applicationsDirectory = _paths.applications,
            .systemApplicationsDirectories = { _paths.systemApplications },
            .busAddress = _busAddress,
            .systemLog = log,
        });
        platform->preferences->setFailureHandler([log](const std::string& message) {
            log->log(LogPriority::Error, message + "; its defaults are used and the file is left as it is");
        });
        return platform;
    }
    // The simulated device, reached over the real bus, with its clock kept in
    // step with the wall clock.
    _simulatedDevice = std::make_unique<SimulatedDevice>();
    auto& platform = _simulatedDevice->platform();
    auto workspace = std::dynamic_pointer_cast<DirectoryApplicationWorkspace>(platform.workspace);
    std::error_code ignored;
    for (const auto& source : { _paths.applications, _paths.systemApplications })
        std::filesystem::copy(source, workspace->applicationsDirectory(),
            std::filesystem::copy_options::recursive | std::filesystem::copy_options::skip_existing, ignored);
    workspace->rescan();
    auto callers = std::make_shared<LinuxCallerIdentifier>(platform.workspace);
    platform.ipc = std::make_shared<DbusIpcService>(_busAddress, IpcLimits {}, [callers](int32_t pid, uint32_t) {
        return IpcPeer { .bundleIdentifier = callers->bundleIdentifierForPid(pid) };
    });
    std::thread([device = _simulatedDevice.get()] {
        auto last = std::chrono::steady_clock::now();
        for (;;) {
            std::this_thread::sleep_for(std::chrono::milliseconds(250));
            auto now = std::chrono::steady_clock::now();
            device->clock().advance(std::chrono::duration<double>(now - last).count());
            last = now;
        }
    }).detach();
    return nullptr;
}

void Daemon::start(std::shared_ptr<Platform> platform)
{
    std::shared_ptr<KTSystemStateProviding> state;
    if (platform) {
        Platform::install(platform);
        auto launcher = std::make_shared<LinuxApplicationLauncher>(platform->workspace, _busAddress);
        state = std::make_shared<LinuxSystemState>(platform->workspace, platform->preferences, launcher);
    } else {
        state = std::make_shared<SimulatedSystemState>();
    }
    KTTesselServerStart(state);
    auto& current = Platform::current();
    Value::Dictionary status {
        { "Version", version() },
        { "ProcessIdentifier", static_cast<int64_t>(getpid()) },
        { "LibraryDirectory", current.libraryDirectory },
        { "ApplicationsDirectories", Value::Array { _paths.applications, _paths.systemApplications } },
        { "Simulated", _options.simulate },
        { "StartDate", current.clock->now() },
    };
    auto server = KTTesselServer::sharedInstance();
    // Last: a client that sees the control name finds every service answering.
    _control = ControlConnectionListener::make(
        server->registrarConnectionListener()->remoteNotificationServer(), std::move(status));
    auto applications = current.workspace->allInstalledApplications().size();
    Platform::log(LogPriority::Notice,
        "tesseld " + version() + " started: Library " + current.libraryDirectory + ", " + std::to_string(applications)
            + " applications, bus " + _busAddress);
}

void Daemon::stopAfterSignal(int signal)
{
    Platform::log(LogPriority::Notice, std::string("Stopping on ") + (signal == SIGINT ? "SIGINT" : "SIGTERM"));
    // No new requests; what is queued still runs.
    _control->invalidate();
    auto server = KTTesselServer::sharedInstance();
    server->registrarConnectionListener()->invalidate();
    server->schedulerConnectionListener()->invalidate();
    // Every write is atomic, so waiting is only for what was already asked;
    // a stuck queue must not keep the daemon from stopping.
    auto idle = std::async(std::launch::async, [] { WorkQueue::waitUntilIdle(); });
    if (idle.wait_for(std::chrono::seconds(5)) != std::future_status::ready)
        Platform::log(LogPriority::Warning, "Stopping with work still queued");
    Platform::log(LogPriority::Notice, "Stopped");
    std::fflush(nullptr);
    _exit(0);
}

} // namespace tessel
