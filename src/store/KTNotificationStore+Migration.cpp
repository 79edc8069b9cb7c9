// Conversion of the old property-list stores into archived ones.
#include "store/KTNotificationStore.h"

#include "platform/archive/KeyedArchive.h"
#include "platform/archive/PropertyList.h"
#include "platform/files/FileManager.h"
#include "platform/files/Path.h"

#include <set>

namespace tessel {

namespace {

    constexpr const char* migrationName = "+[KTNotificationStore migratePushStore]";

    template <typename... Arguments>
    std::string migrationLine(std::string_view message, const Arguments&... arguments)
    {
        return format("%s %@", migrationName, format(message, arguments...));
    }

} // namespace

void KTNotificationStore::migratePushStore()
{
    auto directory = storeDirectory();
    logAlways(migrationLine("Migrating push store: %@", directory));
    bool isDirectory = false;
    if (!FileManager::fileExistsAtPath(directory, &isDirectory)) {
        logAlways(migrationLine("Push store does not exist; no migration needed."));
        return;
    }
    std::string error;
    auto entries = FileManager::contentsOfDirectoryAtPath(directory, &error);
    if (!entries) {
        logAlways(migrationLine("Unable to enumerate files in push store: %@", error));
        return;
    }

    std::set<std::string> failures;
    for (const auto& entry : *entries) {
        if (Path::extension(entry) != "vysnote")
            continue;
        auto path = Path::appendingComponent(directory, entry);
        logAlways(migrationLine("Migrating \"%@\"...", entry));
        auto data = FileManager::contentsAtPath(path);
        if (!data) {
            logAlways(migrationLine(":: Unable to read file."));
            failures.insert(path);
            continue;
        }
        auto list = PropertyList::read(*data, &error);
        if (!list) {
            logAlways(migrationLine(":: Error de-serializing push store: %@", error));
            failures.insert(path);
            continue;
        }
        if (!list->isArray()) {
            logAlways(migrationLine(":: Push store is not of the correct type; ignoring."));
            failures.insert(path);
            continue;
        }
        if (list->length() == 0) {
            FileManager::removeItemAtPath(path);
            logAlways(migrationLine(":: Successfully migrated file!"));
            continue;
        }
        auto archived = KeyedArchive::archivedData(*list, &error);
        if (!archived) {
            logAlways(migrationLine(":: Caught exception during archiving: %@.", error));
            failures.insert(path);
            continue;
        }
        if (archived->empty()) {
            logAlways(migrationLine(":: Unable to archive plist."));
            failures.insert(path);
            continue;
        }
        auto newPath = Path::appendingExtension(Path::deletingExtension(path), "pushstore");
        if (!FileManager::writeAtomically(newPath, *archived, &error)) {
            logAlways(migrationLine(":: Error writing \"%@\": %@", Path::lastComponent(newPath), error));
            failures.insert(path);
            continue;
        }
        FileManager::removeItemAtPath(path);
        logAlways(migrationLine(":: Successfully migrated file!"));
    }

    if (failures.empty())
        return;
    logAlways(
        migrationLine("%d files(s) did not migrate properly and will be moved aside.", failures.size()));
    auto failureDirectory = Path::appendingComponent(directory, "VYSNoteMigrationFailures");
    if (!FileManager::createDirectoryAtPath(failureDirectory, true, &error)) {
        logAlways(migrationLine("Unable to create new directory for failed migrations (%@). Please file a "
                                "bug and attach the contents of: %@",
            error, directory));
        return;
    }
    logAlways(migrationLine("Please file a bug and attach the contents of: %@", failureDirectory));
    for (const auto& path : failures) {
        auto name = Path::lastComponent(path);
        if (FileManager::moveItemAtPath(path, Path::appendingComponent(failureDirectory, name), &error))
            log("%s %@", migrationName, format("\"%@\" moved aside", name));
        else
            logAlways(migrationLine(":: Unable to move \"%@\" aside: %@", name, error));
    }
}

} // namespace tessel
