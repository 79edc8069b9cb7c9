#include "platform/applications/ApplicationDataStore.h"

#include "platform/Platform.h"
#include "platform/applications/ApplicationDataStoreDatabase.h"
#include "platform/archive/PropertyList.h"
#include "platform/foundation/Format.h"
#include "platform/logging/SystemLog.h"

namespace tessel {

namespace {

    using Kind = ApplicationDataStoreDatabase::Kind;

} // namespace

std::shared_ptr<ApplicationDataStore> ApplicationDataStore::storeForApplication(
    const std::string& bundleIdentifier)
{
    if (bundleIdentifier.empty())
        return nullptr;
    return std::make_shared<ApplicationDataStore>(bundleIdentifier, Platform::current().dataStores);
}

std::vector<std::string> ApplicationDataStore::applicationsWithStores()
{
    auto database = Platform::current().dataStores;
    if (!database) {
        Platform::log(LogPriority::Error, "ApplicationDataStore: the platform has no data store database");
        return {};
    }
    return database->bundleIdentifiers();
}

ApplicationDataStore::ApplicationDataStore(
    std::string bundleIdentifier, std::shared_ptr<ApplicationDataStoreDatabase> database)
    : _bundleIdentifier(std::move(bundleIdentifier))
    , _database(std::move(database))
{
}

bool ApplicationDataStore::hasDatabase(std::string_view operation) const
{
    if (_database)
        return true;
    Platform::log(LogPriority::Error,
        format("ApplicationDataStore: %s for %s failed: no database", operation, _bundleIdentifier));
    return false;
}

Value ApplicationDataStore::objectForKey(std::string_view key)
{
    if (!hasDatabase("read"))
        return {};
    auto entry = _database->entry(_bundleIdentifier, key);
    if (!entry || entry->kind != Kind::PropertyList)
        return {};
    std::string error;
    auto value = PropertyList::read(entry->bytes, &error);
    if (!value) {
        _database->log(LogPriority::Error,
            format("ApplicationDataStore: %s of %s does not read: %s", key, _bundleIdentifier, error));
        return {};
    }
    return *value;
}

bool ApplicationDataStore::setObject(const Value& value, std::string_view key)
{
    if (value.isNull())
        return removeObjectForKey(key);
    if (!hasDatabase("write"))
        return false;
    std::string error;
    auto bytes = PropertyList::data(value, PropertyList::Format::Binary, &error);
    if (!bytes) {
        _database->log(LogPriority::Error,
            format("ApplicationDataStore: %s of %s is no property list: %s", key, _bundleIdentifier, error));
        return false;
    }
    return _database->setEntry(_bundleIdentifier, key, Kind::PropertyList, *bytes);
}

bool ApplicationDataStore::setArchivedObject(const Value& value, std::string_view key)
{
    if (value.isNull())
        return removeObjectForKey(key);
    if (!hasDatabase("write"))
        return false;
    std::string error;
    auto bytes = KeyedArchive::archivedData(value, &error);
    if (!bytes) {
        _database->log(LogPriority::Error,
            format("ApplicationDataStore: %s of %s cannot be archived: %s", key, _bundleIdentifier, error));
        return false;
    }
    return _database->setEntry(_bundleIdentifier, key, Kind::KeyedArchive, *bytes);
}

Value ApplicationDataStore::archivedObjectForKey(
    std::string_view key, const UnarchiveOptions& options, std::optional<Value::Type> expectedType)
{
    if (!hasDatabase("read"))
        return {};
    auto entry = _database->entry(_bundleIdentifier, key);
    if (!entry || entry->kind != Kind::KeyedArchive)
        return {};
    std::string error;
    auto value = KeyedArchive::unarchive(entry->bytes, options, &error);
    if (!value) {
        _database->log(LogPriority::Warning,
            format("ApplicationDataStore: %s of %s does not unarchive: %s", key, _bundleIdentifier, error));
        return {};
    }
    if (expectedType && value->type() != *expectedType)
        return {};
    return *value;
}

bool ApplicationDataStore::removeObjectForKey(std::string_view key)
{
    return hasDatabase("remove") && _database->removeEntry(_bundleIdentifier, key);
}

bool ApplicationDataStore::synchronize() { return hasDatabase("synchronize") && _database->checkpoint(); }

} // namespace tessel
