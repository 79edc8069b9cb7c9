#include "platform/linux/LinuxApplicationLauncher.h"

#include "platform/Platform.h"
#include "platform/applications/ApplicationProxy.h"
#include "platform/applications/ApplicationWorkspace.h"
#include "platform/applications/Bundle.h"
#include "platform/files/Path.h"
#include "platform/linux/LinuxApplicationWorkspace.h"

#include <sdbus-c++/sdbus-c++.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace tessel {

LinuxApplicationLauncher::LinuxApplicationLauncher(
    std::shared_ptr<ApplicationWorkspace> workspace, std::string busAddress, std::chrono::milliseconds workLimit)
    : _workspace(std::move(workspace))
    , _busAddress(std::move(busAddress))
    , _workLimit(workLimit)
{
}

std::string LinuxApplicationLauncher::objectPathForApplicationId(const std::string& applicationId)
{
    std::string path = "/" + applicationId;
    for (auto& character : path) {
        if (character == '.')
            character = '/';
        else if (character == '-')
            character = '_';
    }
    return path;
}

void LinuxApplicationLauncher::wake(const std::string& bundleIdentifier, Completion completion)
{
    auto application = _workspace->applicationProxyForIdentifier(bundleIdentifier);
    auto bundle = _workspace->bundleForIdentifier(bundleIdentifier);
    const auto& info = bundle ? bundle->infoDictionary() : application ? application->infoDictionary() : Value {};
    bool activatable = application && info[LinuxApplicationWorkspace::dbusActivatableKey].boolValue();
    std::string executable;
    if (application && !activatable) {
        const auto& name = info[Bundle::executableKey];
        if (name.isString() && !name.stringValue().empty())
            executable = Path::appendingComponent(application->bundlePath(), name.stringValue());
    }
    std::thread([this, bundleIdentifier, activatable, executable, completion = std::move(completion)] {
        if (activatable)
            activateOnBus(bundleIdentifier);
        else if (!executable.empty())
            runExecutable(bundleIdentifier, executable);
        else
            Platform::log(LogPriority::Warning,
                "Cannot wake " + bundleIdentifier + ": it is neither D-Bus activatable nor has an executable");
        if (completion)
            completion();
    }).detach();
}

void LinuxApplicationLauncher::activateOnBus(const std::string& applicationId) const
{
    try {
        auto connection = _busAddress.empty() ? sdbus::createSessionBusConnection()
                                              : sdbus::createSessionBusConnectionWithAddress(_busAddress);
        auto proxy = sdbus::createProxy(*connection, applicationId, objectPathForApplicationId(applicationId));
        std::map<std::string, sdbus::Variant> platformData;
        proxy->callMethod("Activate")
            .onInterface("org.freedesktop.Application")
            .withTimeout(std::chrono::duration_cast<std::chrono::microseconds>(_workLimit))
            .withArguments(platformData);
        Platform::log(LogPriority::Info, "Woke " + applicationId + " through D-Bus activation");
    } catch (const sdbus::Error& error) {
        Platform::log(LogPriority::Warning, "Cannot wake " + applicationId + ": " + error.what());
    }
}

void LinuxApplicationLauncher::runExecutable(
    const std::string& bundleIdentifier, const std::string& executable) const
{
    pid_t pid = 0;
    char* arguments[] = { const_cast<char*>(executable.c_str()), nullptr };
    int error = posix_spawn(&pid, executable.c_str(), nullptr, nullptr, arguments, environ);
    if (error != 0) {
        Platform::log(LogPriority::Warning, "Cannot wake " + bundleIdentifier + ": " + executable + ": "
                + std::strerror(error));
        return;
    }
    Platform::log(LogPriority::Info, "Woke " + bundleIdentifier + " as process " + std::to_string(pid));
    int pidfd = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
    if (pidfd >= 0) {
        pollfd exited { .fd = pidfd, .events = POLLIN, .revents = 0 };
        poll(&exited, 1, static_cast<int>(_workLimit.count()));
        close(pidfd);
    }
    // The completion may go before the process does; the thread stays to reap it.
    std::thread([pid] {
        int status = 0;
        while (waitpid(pid, &status, 0) < 0 && errno == EINTR) { }
    }).detach();
}

} // namespace tessel
