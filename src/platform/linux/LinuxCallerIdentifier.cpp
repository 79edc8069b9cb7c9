#include "platform/linux/LinuxCallerIdentifier.h"

#include "platform/Platform.h"
#include "platform/applications/ApplicationProxy.h"
#include "platform/applications/ApplicationWorkspace.h"
#include "platform/applications/Bundle.h"
#include "platform/foundation/Format.h"

#include <climits>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <systemd/sd-login.h>
#include <vector>

namespace tessel {

namespace {

    // Small files of /proc; anything longer is not what we look for.
    constexpr size_t maximumProcFileLength = 64 * 1024;

    std::optional<std::string> readSmallFile(const std::string& path)
    {
        std::ifstream file(path, std::ios::binary);
        if (!file)
            return std::nullopt;
        std::string text(maximumProcFileLength + 1, '\0');
        file.read(text.data(), static_cast<std::streamsize>(text.size()));
        auto length = static_cast<size_t>(file.gcount());
        if (length > maximumProcFileLength)
            return std::nullopt;
        text.resize(length);
        return text;
    }

    std::string realPath(const std::string& path)
    {
        char resolved[PATH_MAX];
        return ::realpath(path.c_str(), resolved) ? std::string(resolved) : std::string();
    }

    bool endsWith(std::string_view text, std::string_view suffix)
    {
        return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
    }

    std::vector<std::string> split(std::string_view text, char separator)
    {
        std::vector<std::string> parts;
        size_t start = 0;
        for (size_t at; (at = text.find(separator, start)) != std::string_view::npos; start = at + 1)
            parts.emplace_back(text.substr(start, at - start));
        parts.emplace_back(text.substr(start));
        return parts;
    }

    // systemd's unit-name escaping: "\xNN" stands for the byte NN.
    std::optional<std::string> unescapeUnitName(std::string_view text)
    {
        std::string out;
        for (size_t i = 0; i < text.size(); ++i) {
            if (text[i] != '\\') {
                out += text[i];
                continue;
            }
            if (i + 3 >= text.size())
                return std::nullopt;
            if (text.substr(i, 2) != "\\x" || !isxdigit(static_cast<unsigned char>(text[i + 2]))
                || !isxdigit(static_cast<unsigned char>(text[i + 3])))
                return std::nullopt;
            out += static_cast<char>(std::stoi(std::string(text.substr(i + 2, 2)), nullptr, 16));
            i += 3;
        }
        return out;
    }

} // namespace

LinuxCallerIdentifier::LinuxCallerIdentifier(
    std::shared_ptr<ApplicationWorkspace> workspace, std::string procRoot)
    : _workspace(std::move(workspace))
    , _procRoot(std::move(procRoot))
{
}

std::string LinuxCallerIdentifier::bundleIdentifierForPid(int32_t pid) const
{
    if (pid <= 0 || !_workspace)
        return {};
    // A sandboxed process names its application whatever else it claims.
    if (auto id = sandboxApplicationId(pid))
        return isInstalled(*id) ? *id : std::string();
    if (auto unit = userUnit(pid))
        if (auto id = applicationIdFromUnitName(*unit); id && isInstalled(*id))
            return *id;
    return installedBundleWithExecutable(pid);
}

std::string LinuxCallerIdentifier::procPath(int32_t pid, const char* leaf) const
{
    return _procRoot + "/" + std::to_string(pid) + "/" + leaf;
}

std::optional<std::string> LinuxCallerIdentifier::sandboxApplicationId(int32_t pid) const
{
    auto info = readSmallFile(procPath(pid, "root/.flatpak-info"));
    if (!info)
        return std::nullopt;
    bool inApplication = false;
    std::istringstream lines(*info);
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty() && line.front() == '[')
            inApplication = line == "[Application]";
        else if (inApplication && line.rfind("name=", 0) == 0)
            return line.substr(5);
    }
    // A sandbox without a name is still a sandbox: it names no application.
    return std::string();
}

std::optional<std::string> LinuxCallerIdentifier::userUnit(int32_t pid) const
{
    if (_procRoot != "/proc") {
        auto cgroup = readSmallFile(procPath(pid, "cgroup"));
        return cgroup ? userUnitFromCgroup(*cgroup) : std::nullopt;
    }
    char* unit = nullptr;
    if (sd_pid_get_user_unit(pid, &unit) < 0 || !unit)
        return std::nullopt;
    std::string name(unit);
    std::free(unit);
    return name;
}

std::optional<std::string> LinuxCallerIdentifier::userUnitFromCgroup(const std::string& cgroup)
{
    // The unified hierarchy's line: "0::/user.slice/user-1000.slice/user@1000.service/app.slice/<unit>".
    std::istringstream lines(cgroup);
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("0::", 0) != 0)
            continue;
        auto parts = split(line.substr(3), '/');
        bool inManager = false;
        for (const auto& part : parts) {
            if (!inManager) {
                inManager = part.rfind("user@", 0) == 0 && endsWith(part, ".service");
                continue;
            }
            if (endsWith(part, ".service") || endsWith(part, ".scope"))
                return part;
        }
    }
    return std::nullopt;
}

std::optional<std::string> LinuxCallerIdentifier::applicationIdFromUnitName(const std::string& unit)
{
    bool scope = endsWith(unit, ".scope");
    if (!scope && !endsWith(unit, ".service"))
        return std::nullopt;
    std::string name = unit.substr(0, unit.size() - (scope ? 6 : 8));
    if (!scope)
        name = name.substr(0, name.find('@'));
    // Dashes inside the id are escaped, so raw ones separate the parts:
    // app[-<launcher>]-<id>[@<random>].service, app[-<launcher>]-<id>-<random>.scope.
    auto parts = split(name, '-');
    size_t idParts = parts.size() - 1 - (scope ? 1 : 0);
    if (parts.front() != "app" || idParts < 1 || idParts > 2)
        return std::nullopt;
    auto id = unescapeUnitName(parts[parts.size() - 1 - (scope ? 1 : 0)]);
    if (!id || id->empty())
        return std::nullopt;
    return id;
}

std::string LinuxCallerIdentifier::installedBundleWithExecutable(int32_t pid) const
{
    auto executable = realPath(procPath(pid, "exe"));
    if (executable.empty())
        return {};
    for (const auto& application : _workspace->allInstalledApplications()) {
        if (application->bundlePath().empty())
            continue;
        auto bundle = _workspace->bundleForIdentifier(application->bundleIdentifier());
        const auto& name = bundle ? bundle->infoDictionary()[Bundle::executableKey] : Value {};
        if (!name.isString() || name.stringValue().empty())
            continue;
        auto root = realPath(application->bundlePath());
        auto declared = realPath(application->bundlePath() + "/" + name.stringValue());
        // Containment on resolved paths: a manifest naming "../x" names nothing.
        if (!root.empty() && declared == executable && declared.rfind(root + "/", 0) == 0)
            return application->bundleIdentifier();
    }
    return {};
}

bool LinuxCallerIdentifier::isInstalled(const std::string& bundleIdentifier) const
{
    if (bundleIdentifier.empty())
        return false;
    auto application = _workspace->applicationProxyForIdentifier(bundleIdentifier);
    return application && application->isInstalled();
}

} // namespace tessel
