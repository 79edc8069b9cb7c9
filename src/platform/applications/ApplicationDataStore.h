#pragma once

#include "platform/archive/KeyedArchive.h"
#include "platform/foundation/Value.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tessel {

class ApplicationDataStoreDatabase;

// One application's key/value data in the platform's data store database.
// Entries written with setObject() read back only through objectForKey(), and
// archived ones only through archivedObjectForKey(); the other getter answers
// null. Every successful write is durable when it returns. Thread-safe.
class ApplicationDataStore {
public:
    // In the installed platform's database; null only for an empty identifier.
    static std::shared_ptr<ApplicationDataStore> storeForApplication(const std::string& bundleIdentifier);
    // Identifiers with at least one entry, sorted.
    static std::vector<std::string> applicationsWithStores();

    // Without a database every call fails and logs.
    ApplicationDataStore(
        std::string bundleIdentifier, std::shared_ptr<ApplicationDataStoreDatabase> database);

    const std::string& bundleIdentifier() const { return _bundleIdentifier; }

    // Property-list values: string, number, bool, date, data, array,
    // dictionary. Null removes the key.
    Value objectForKey(std::string_view key);
    bool setObject(const Value& value, std::string_view key);

    // Keyed archives of any value, objects included. Null removes the key. The
    // getter answers null when the key is missing, the bytes do not decode, or
    // the root is not what options.expectedClass and expectedType ask for.
    bool setArchivedObject(const Value& value, std::string_view key);
    Value archivedObjectForKey(std::string_view key, const UnarchiveOptions& options = {},
        std::optional<Value::Type> expectedType = std::nullopt);

    // Removing a missing key succeeds.
    bool removeObjectForKey(std::string_view key);
    // Writes are already durable; this folds the write-ahead log into the file.
    bool synchronize();

private:
    bool hasDatabase(std::string_view operation) const;

    const std::string _bundleIdentifier;
    const std::shared_ptr<ApplicationDataStoreDatabase> _database;
};

} // namespace tessel
