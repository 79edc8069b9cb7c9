#include "DaemonPaths.h"

#include "DaemonOptions.h"

#include <filesystem>

namespace tessel {

namespace {

    // An XDG variable counts only when it holds an absolute path.
    std::string baseDirectory(const std::function<std::string(const char*)>& getenv, const char* variable,
        const char* fallbackUnderHome)
    {
        auto value = getenv(variable);
        if (!value.empty() && value.front() == '/')
            return value;
        return getenv("HOME") + "/" + fallbackUnderHome;
    }

} // namespace

DaemonPaths DaemonPaths::resolve(const DaemonOptions& options,
    const std::function<std::string(const char*)>& getenv, const std::string& executable)
{
    DaemonPaths paths;
    if (!options.libraryDirectory.empty()) {
        paths.library = options.libraryDirectory;
        paths.preferences = paths.library + "/Preferences";
        paths.logs = paths.library + "/Logs";
        paths.applications = paths.library + "/Applications";
    } else {
        auto data = baseDirectory(getenv, "XDG_DATA_HOME", ".local/share") + "/tessel";
        auto library = getenv("TESSEL_LIBRARY_DIR");
        paths.library = library.empty() ? data + "/Library" : library;
        paths.preferences = baseDirectory(getenv, "XDG_CONFIG_HOME", ".config") + "/tessel/Preferences";
        paths.logs = baseDirectory(getenv, "XDG_STATE_HOME", ".local/state") + "/tessel/Logs";
        auto applications = getenv("TESSEL_APPS_DIR");
        paths.applications = applications.empty() ? data + "/Applications" : applications;
    }
    if (!options.applicationsDirectory.empty())
        paths.applications = options.applicationsDirectory;
    paths.systemApplications = options.systemApplicationsDirectory;
    if (paths.systemApplications.empty()) {
        auto bin = std::filesystem::path(executable).parent_path();
        paths.systemApplications
            = (bin.parent_path() / TESSEL_SYSTEM_APPLICATIONS_SUBDIR).lexically_normal().string();
    }
    return paths;
}

} // namespace tessel
