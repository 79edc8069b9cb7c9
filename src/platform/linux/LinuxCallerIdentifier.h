#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace tessel {

class ApplicationWorkspace;

// Names the installed application a process belongs to, from what the process
// cannot choose freely, in this order: a sandbox's own application id, the
// application id of its systemd user unit, an executable inside an installed
// bundle. The pid must be pinned by the caller (pidfd) while this runs.
class LinuxCallerIdentifier {
public:
    // The user unit of a pid ("app-org.example.Mail-1234.scope"); absent when none.
    using UnitLookup = std::function<std::optional<std::string>(int32_t pid)>;

    // procRoot stands for /proc; with another root the unit is read from the
    // process's cgroup file there instead of asking systemd.
    LinuxCallerIdentifier(std::shared_ptr<ApplicationWorkspace> workspace, std::string procRoot = "/proc");

    // Empty when the process is no installed application.
    std::string bundleIdentifierForPid(int32_t pid) const;

    // The application id a unit name carries under the desktop-application
    // naming convention, unescaped; absent for any other unit.
    static std::optional<std::string> applicationIdFromUnitName(const std::string& unit);
    // The user unit named by a cgroup file's text; absent when there is none.
    static std::optional<std::string> userUnitFromCgroup(const std::string& cgroup);

private:
    std::optional<std::string> sandboxApplicationId(int32_t pid) const;
    std::optional<std::string> userUnit(int32_t pid) const;
    std::string installedBundleWithExecutable(int32_t pid) const;
    bool isInstalled(const std::string& bundleIdentifier) const;
    std::string procPath(int32_t pid, const char* leaf) const;

    std::shared_ptr<ApplicationWorkspace> _workspace;
    std::string _procRoot;
};

} // namespace tessel
