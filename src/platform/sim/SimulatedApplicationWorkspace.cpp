#include "platform/sim/SimulatedApplicationWorkspace.h"

#include "platform/applications/ApplicationProxy.h"
#include "platform/applications/Bundle.h"
#include "platform/applications/StringTable.h"
#include "platform/archive/PropertyList.h"
#include "platform/files/FileManager.h"
#include "platform/files/Path.h"

namespace tessel {

namespace {

    bool writeFile(const std::string& path, const void* bytes, size_t length, std::string* error)
    {
        return FileManager::createDirectoryAtPath(Path::deletingLastComponent(path), true, error)
            && FileManager::writeAtomically(path, bytes, length, error, false);
    }

    // Identifiers map one to one onto names that stay in the directory, even
    // the unusable ones tests install on purpose.
    std::string escapedName(std::string_view identifier)
    {
        static const char digits[] = "0123456789ABCDEF";
        std::string name;
        for (size_t index = 0; index < identifier.size(); ++index) {
            auto c = static_cast<unsigned char>(identifier[index]);
            bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')
                || c == '-' || c == '_' || (c == '.' && index > 0 && identifier[index - 1] != '.');
            if (plain) {
                name += static_cast<char>(c);
            } else {
                name += '%';
                name += digits[c >> 4];
                name += digits[c & 0xF];
            }
        }
        return name.empty() ? "%" : name;
    }

} // namespace

SimulatedApplicationWorkspace::SimulatedApplicationWorkspace(const std::string& libraryDirectory)
    : DirectoryApplicationWorkspace(Path::appendingComponent(libraryDirectory, "Applications"),
        Path::appendingComponent(libraryDirectory, "Containers"))
{
}

std::string SimulatedApplicationWorkspace::bundlePathForInstall(const std::string& identifier) const
{
    return Path::appendingComponent(
        applicationsDirectory(), escapedName(identifier) + "." + std::string(Bundle::bundleExtension));
}

bool SimulatedApplicationWorkspace::install(const SimulatedApplication& application, std::string* error)
{
    Value::Dictionary manifest = application.info;
    auto set = [&manifest](std::string_view key, const std::string& value) {
        if (!value.empty())
            manifest.insert_or_assign(std::string(key), Value(value));
    };
    set(Bundle::identifierKey, application.identifier);
    set(Bundle::applicationTypeKey, application.type);
    set(Bundle::displayNameKey, application.displayName);
    set(Bundle::developmentLocalizationKey, application.developmentLocalization);
    // An installer's own executable name, unless the application brings one.
    manifest.try_emplace(std::string(Bundle::executableKey), Value(escapedName(application.identifier)));
    manifest.insert_or_assign(std::string(Bundle::entitlementsKey), Value(application.entitlements));
    auto manifestBytes = PropertyList::data(Value(std::move(manifest)), PropertyList::Format::Binary, error);
    if (!manifestBytes)
        return false;

    // Built beside the applications directory and moved in whole, as an installer would.
    auto bundlePath = bundlePathForInstall(application.identifier);
    auto staging
        = Path::appendingComponent(applicationsDirectory(), ".staging-" + Path::lastComponent(bundlePath));
    FileManager::removeItemAtPath(staging);
    bool written = writeFile(Path::appendingComponent(staging, Bundle::manifestFileName),
        manifestBytes->data(), manifestBytes->size(), error);
    for (const auto& [relativePath, bytes] : application.resources) {
        if (!written)
            break;
        written
            = writeFile(Path::appendingComponent(staging, relativePath), bytes.data(), bytes.size(), error);
    }
    for (const auto& [localization, tables] : application.strings) {
        for (const auto& [table, entries] : tables) {
            if (!written)
                break;
            auto text = StringTable::text(entries);
            auto path = Path::appendingComponent(
                Path::appendingComponent(
                    staging, localization + "." + std::string(Bundle::localizationExtension)),
                table + "." + std::string(Bundle::stringTableExtension));
            written = writeFile(path, text.data(), text.size(), error);
        }
    }
    if (written) {
        FileManager::removeItemAtPath(bundlePath);
        written = FileManager::moveItemAtPath(staging, bundlePath, error);
    }
    if (!written) {
        FileManager::removeItemAtPath(staging);
        return false;
    }

    if (DirectoryApplicationWorkspace::isAcceptableIdentifier(application.identifier)) {
        auto container = Path::appendingComponent(containersDirectory(), application.identifier);
        for (const auto& [relativePath, bytes] : application.containerFiles) {
            if (!writeFile(
                    Path::appendingComponent(container, relativePath), bytes.data(), bytes.size(), error))
                return false;
        }
    }
    rescan();
    return true;
}

bool SimulatedApplicationWorkspace::uninstall(const std::string& identifier, std::string* error)
{
    auto record = applicationProxyForIdentifier(identifier);
    auto bundlePath = record ? record->bundlePath() : bundlePathForInstall(identifier);
    bool removed = FileManager::removeItemAtPath(bundlePath, error);
    if (record && !record->dataContainerPath().empty())
        FileManager::removeItemAtPath(record->dataContainerPath());
    rescan();
    return removed;
}

} // namespace tessel
