#include "platform/applications/Bundle.h"

#include "platform/Platform.h"
#include "platform/applications/StringTable.h"
#include "platform/archive/PropertyList.h"
#include "platform/files/FileManager.h"
#include "platform/files/Path.h"
#include "platform/logging/SystemLog.h"

#include <algorithm>
#include <unistd.h>

namespace tessel {

namespace {

    // A single file name that stays inside its directory.
    bool isPlainName(std::string_view name)
    {
        return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos
            && name.find('\0') == std::string_view::npos;
    }

    // A relative path inside the bundle: no "..", no leading "/", no NUL.
    bool isContainedPath(std::string_view path)
    {
        if (path.empty() || path.front() == '/' || path.find('\0') != std::string_view::npos)
            return false;
        while (!path.empty()) {
            auto slash = path.find('/');
            auto component = path.substr(0, slash);
            if (component == "..")
                return false;
            path = slash == std::string_view::npos ? std::string_view() : path.substr(slash + 1);
        }
        return true;
    }

    bool isFile(const std::string& path)
    {
        bool isDirectory = false;
        return FileManager::fileExistsAtPath(path, &isDirectory) && !isDirectory;
    }

    std::string localizationDirectoryName(std::string_view localization)
    {
        return std::string(localization) + "." + std::string(Bundle::localizationExtension);
    }

} // namespace

std::shared_ptr<Bundle> Bundle::bundleWithPath(const std::string& path)
{
    bool isDirectory = false;
    if (path.empty() || !FileManager::fileExistsAtPath(path, &isDirectory) || !isDirectory
        || access(path.c_str(), R_OK | X_OK) != 0)
        return nullptr;
    return std::make_shared<Bundle>(path);
}

Bundle::Bundle(std::string path)
    : _path(std::move(path))
    , _info(Value::Dictionary {})
{
    auto manifestPath = Path::appendingComponent(_path, manifestFileName);
    auto bytes = FileManager::contentsAtPath(manifestPath, &_manifestError, maximumManifestLength);
    if (bytes) {
        auto list = PropertyList::read(*bytes, &_manifestError);
        if (list && list->isDictionary()) {
            _info = std::move(*list);
            _manifestError.clear();
        } else if (list) {
            _manifestError = "the manifest is not a dictionary";
        }
    }
    if (!_manifestError.empty())
        Platform::log(LogPriority::Warning,
            "Bundle " + _path + ": unreadable manifest, read as empty: " + _manifestError);
}

std::string Bundle::bundleIdentifier() const { return _info[identifierKey].stringValue(); }

std::string Bundle::developmentLocalization() const
{
    const auto& localization = _info[developmentLocalizationKey].stringValue();
    return isPlainName(localization) ? localization : "en";
}

std::vector<std::string> Bundle::searchLocalizations() const
{
    std::vector<std::string> result;
    auto add = [&result](std::string_view localization) {
        if (isPlainName(localization)
            && std::find(result.begin(), result.end(), localization) == result.end())
            result.emplace_back(localization);
    };
    static const std::vector<std::string> fallback { "en" };
    const auto& preferred = Platform::isInstalled() ? Platform::current().preferredLocalizations : fallback;
    for (const auto& localization : preferred) {
        add(localization);
        auto separator = localization.find_first_of("-_");
        if (separator != std::string::npos)
            add(std::string_view(localization).substr(0, separator));
    }
    add(developmentLocalization());
    return result;
}

std::string Bundle::pathForResource(std::string_view name, std::string_view type) const
{
    std::string fileName(name);
    if (!type.empty()) {
        if (type.find('/') != std::string_view::npos)
            return {};
        fileName += '.';
        fileName += type;
    }
    if (!isContainedPath(fileName))
        return {};
    auto candidate = Path::appendingComponent(resourcePath(), fileName);
    if (isFile(candidate))
        return candidate;
    for (const auto& localization : searchLocalizations()) {
        candidate = Path::appendingComponent(
            Path::appendingComponent(resourcePath(), localizationDirectoryName(localization)), fileName);
        if (isFile(candidate))
            return candidate;
    }
    return {};
}

std::vector<std::string> Bundle::localizations() const
{
    std::vector<std::string> result;
    auto names = FileManager::contentsOfDirectoryAtPath(resourcePath());
    if (!names)
        return result;
    for (const auto& name : *names) {
        if (Path::extension(name) != localizationExtension)
            continue;
        bool isDirectory = false;
        if (FileManager::fileExistsAtPath(Path::appendingComponent(resourcePath(), name), &isDirectory)
            && isDirectory)
            result.push_back(Path::deletingExtension(name));
    }
    return result;
}

Value Bundle::table(const std::string& localization, std::string_view name) const
{
    std::string cacheKey = localization + "/" + std::string(name);
    {
        std::lock_guard lock(_tablesLock);
        auto found = _tables.find(cacheKey);
        if (found != _tables.end())
            return found->second;
    }
    // Read without the lock; a racing reader parses the same file and the first one stored wins.
    Value parsed;
    std::string problem;
    auto path = Path::appendingComponent(
        Path::appendingComponent(resourcePath(), localizationDirectoryName(localization)),
        std::string(name) + "." + std::string(stringTableExtension));
    if (auto bytes = FileManager::contentsAtPath(path, &problem, StringTable::maximumInputLength)) {
        if (auto table = StringTable::readValue(*bytes, &problem))
            parsed = std::move(*table);
    } else if (!FileManager::fileExistsAtPath(path)) {
        // Most localizations lack most tables: not worth a log line.
        problem.clear();
    }
    std::lock_guard lock(_tablesLock);
    auto [entry, inserted] = _tables.try_emplace(std::move(cacheKey), parsed);
    if (inserted && !problem.empty())
        Platform::log(LogPriority::Warning, "Bundle " + path + ": unreadable string table: " + problem);
    return entry->second;
}

std::optional<std::string> Bundle::stringForKey(std::string_view key, std::string_view table) const
{
    std::string_view tableName = table.empty() ? std::string_view("Localizable") : table;
    if (!isPlainName(tableName))
        return std::nullopt;
    for (const auto& localization : searchLocalizations()) {
        auto strings = this->table(localization, tableName);
        const auto& entries = strings.dictionaryValue();
        auto found = entries.find(key);
        if (found != entries.end())
            return found->second.stringValue();
    }
    return std::nullopt;
}

std::string Bundle::localizedStringForKey(
    std::string_view key, std::string_view value, std::string_view table) const
{
    if (auto found = stringForKey(key, table))
        return *found;
    return std::string(value.empty() ? key : value);
}

std::string Bundle::localizedDisplayName() const
{
    const auto& manifestName = _info[displayNameKey].stringValue();
    auto name = localizedStringForKey(displayNameKey, manifestName, manifestTableName);
    if (name == displayNameKey && manifestName.empty())
        return bundleIdentifier();
    return name;
}

} // namespace tessel
