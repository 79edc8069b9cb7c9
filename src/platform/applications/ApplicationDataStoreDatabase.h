#pragma once

#include "platform/files/SqliteDatabase.h"
#include "platform/foundation/Value.h"
#include "platform/logging/SystemLog.h"

#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tessel {

// The small key/value data of every application, in one SQLite file. Each
// write is one committed statement (WAL, synchronous=FULL), so it is durable
// when the call returns. Thread-safe: one connection behind a mutex, opened on
// first use. Failures are logged and answered false or absent. A file that
// does not open as a sound database is moved aside to
// "<name>.corrupt-<UTC timestamp>" and a new empty one takes its place.
class ApplicationDataStoreDatabase {
public:
    // How an entry's bytes are encoded; a reader asking for the other kind
    // gets nothing.
    enum class Kind : int { PropertyList = 0, KeyedArchive = 1 };

    struct Entry {
        Kind kind = Kind::PropertyList;
        Bytes bytes;
    };

    static constexpr const char* fileName = "ApplicationDataStore.sqlite";
    // Identifiers and keys are names, not payloads.
    static constexpr size_t maximumNameLength = 4096;
    static constexpr size_t maximumValueLength = 16 * 1024 * 1024;

    // Messages go to log; without one, to the installed platform's system log.
    explicit ApplicationDataStoreDatabase(std::string path, std::shared_ptr<SystemLog> log = nullptr);
    ApplicationDataStoreDatabase(const ApplicationDataStoreDatabase&) = delete;
    ApplicationDataStoreDatabase& operator=(const ApplicationDataStoreDatabase&) = delete;

    const std::string& path() const { return _database.path(); }

    // Absent when there is no such entry or it cannot be read.
    std::optional<Entry> entry(std::string_view bundleIdentifier, std::string_view key);
    bool setEntry(std::string_view bundleIdentifier, std::string_view key, Kind kind, const Bytes& bytes);
    // Removing a missing entry succeeds.
    bool removeEntry(std::string_view bundleIdentifier, std::string_view key);
    // Identifiers with at least one entry, sorted bytewise.
    std::vector<std::string> bundleIdentifiers();
    // Moves the write-ahead log into the main file.
    bool checkpoint();

    void log(LogPriority priority, std::string_view message) const;

private:
    enum Statement { Select, Upsert, Delete, ListIdentifiers };

    bool checkNames(std::string_view bundleIdentifier, std::string_view key, std::string_view operation);

    const std::shared_ptr<SystemLog> _log;
    std::mutex _lock;
    SqliteDatabase _database;
};

} // namespace tessel
