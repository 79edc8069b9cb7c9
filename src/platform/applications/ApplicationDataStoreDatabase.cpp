#include "platform/applications/ApplicationDataStoreDatabase.h"

#include "platform/Platform.h"
#include "platform/foundation/Format.h"

#include <iterator>
#include <sqlite3.h>

namespace tessel {

namespace {

    constexpr const char* schema = "CREATE TABLE IF NOT EXISTS entries ("
                                   "bundle_identifier BLOB NOT NULL, "
                                   "key BLOB NOT NULL, "
                                   "kind INTEGER NOT NULL, "
                                   "value BLOB NOT NULL, "
                                   "PRIMARY KEY (bundle_identifier, key)) WITHOUT ROWID";

    // By Statement.
    constexpr const char* statementTexts[] = {
        "SELECT kind, value FROM entries WHERE bundle_identifier = ?1 AND key = ?2",
        ("INSERT INTO entries (bundle_identifier, key, kind, value) VALUES (?1, ?2, ?3, ?4) "
         "ON CONFLICT (bundle_identifier, key) DO UPDATE SET kind = excluded.kind, value = excluded.value"),
        "DELETE FROM entries WHERE bundle_identifier = ?1 AND key = ?2",
        "SELECT DISTINCT bundle_identifier FROM entries ORDER BY bundle_identifier",
    };

} // namespace

ApplicationDataStoreDatabase::ApplicationDataStoreDatabase(std::string path, std::shared_ptr<SystemLog> log)
    : _log(std::move(log))
    , _database({
          .path = std::move(path),
          .name = "ApplicationDataStore",
          .schema = schema,
          .statements = { std::begin(statementTexts), std::end(statementTexts) },
          .ownsFile = true,
          .report =
              [this](std::string_view message, bool isWarning) {
                  this->log(isWarning ? LogPriority::Warning : LogPriority::Error, message);
              },
      })
{
}

void ApplicationDataStoreDatabase::log(LogPriority priority, std::string_view message) const
{
    if (_log)
        _log->log(priority, message);
    else
        Platform::log(priority, message);
}

bool ApplicationDataStoreDatabase::checkNames(
    std::string_view bundleIdentifier, std::string_view key, std::string_view operation)
{
    if (bundleIdentifier.size() <= maximumNameLength && key.size() <= maximumNameLength)
        return true;
    log(LogPriority::Error,
        format("ApplicationDataStore: %s refused: identifier of %zu bytes, key of %zu bytes (at most %zu)",
            operation, bundleIdentifier.size(), key.size(), maximumNameLength));
    return false;
}

std::optional<ApplicationDataStoreDatabase::Entry> ApplicationDataStoreDatabase::entry(
    std::string_view bundleIdentifier, std::string_view key)
{
    std::lock_guard lock(_lock);
    if (!checkNames(bundleIdentifier, key, "read"))
        return std::nullopt;
    auto statement = _database.statement(Select, "prepare");
    if (!statement)
        return std::nullopt;
    statement.bindBytes(1, bundleIdentifier);
    statement.bindBytes(2, key);
    int code = statement.step();
    if (code == SQLITE_DONE)
        return std::nullopt;
    if (code != SQLITE_ROW) {
        _database.failed("read", code);
        return std::nullopt;
    }
    auto kind = static_cast<int>(statement.columnInt64(0));
    auto bytes = statement.columnBytes(1);
    if ((kind != static_cast<int>(Kind::PropertyList) && kind != static_cast<int>(Kind::KeyedArchive))
        || bytes.size() > maximumValueLength) {
        log(LogPriority::Error,
            format("ApplicationDataStore: unreadable entry in %s (kind %d, %zu bytes)", path(), kind,
                bytes.size()));
        return std::nullopt;
    }
    return Entry { static_cast<Kind>(kind), Bytes(bytes.begin(), bytes.end()) };
}

bool ApplicationDataStoreDatabase::setEntry(
    std::string_view bundleIdentifier, std::string_view key, Kind kind, const Bytes& bytes)
{
    std::lock_guard lock(_lock);
    if (!checkNames(bundleIdentifier, key, "write"))
        return false;
    if (bytes.size() > maximumValueLength) {
        log(LogPriority::Error,
            format("ApplicationDataStore: write refused: value of %zu bytes (at most %zu)", bytes.size(),
                maximumValueLength));
        return false;
    }
    auto statement = _database.statement(Upsert, "prepare");
    if (!statement)
        return false;
    statement.bindBytes(1, bundleIdentifier);
    statement.bindBytes(2, key);
    statement.bindInt64(3, static_cast<int>(kind));
    statement.bindBytes(4, bytes.data(), bytes.size());
    int code = statement.step();
    if (code != SQLITE_DONE) {
        _database.failed("write", code);
        return false;
    }
    return true;
}

bool ApplicationDataStoreDatabase::removeEntry(std::string_view bundleIdentifier, std::string_view key)
{
    std::lock_guard lock(_lock);
    if (!checkNames(bundleIdentifier, key, "remove"))
        return false;
    auto statement = _database.statement(Delete, "prepare");
    if (!statement)
        return false;
    statement.bindBytes(1, bundleIdentifier);
    statement.bindBytes(2, key);
    int code = statement.step();
    if (code != SQLITE_DONE) {
        _database.failed("remove", code);
        return false;
    }
    return true;
}

std::vector<std::string> ApplicationDataStoreDatabase::bundleIdentifiers()
{
    std::lock_guard lock(_lock);
    std::vector<std::string> identifiers;
    auto statement = _database.statement(ListIdentifiers, "prepare");
    if (!statement)
        return identifiers;
    int code;
    while ((code = statement.step()) == SQLITE_ROW)
        identifiers.emplace_back(statement.columnBytes(0));
    if (code != SQLITE_DONE) {
        _database.failed("list", code);
        identifiers.clear();
    }
    return identifiers;
}

bool ApplicationDataStoreDatabase::checkpoint()
{
    std::lock_guard lock(_lock);
    return _database.checkpoint();
}

} // namespace tessel
