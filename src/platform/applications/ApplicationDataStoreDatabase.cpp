#include "platform/applications/ApplicationDataStoreDatabase.h"

#include "platform/Platform.h"
#include "platform/files/FileManager.h"
#include "platform/files/Path.h"
#include "platform/foundation/Format.h"

#include <cstdio>
#include <ctime>
#include <sqlite3.h>

namespace tessel {

namespace {

    constexpr const char* schema = "CREATE TABLE IF NOT EXISTS entries ("
                                   "bundle_identifier BLOB NOT NULL, "
                                   "key BLOB NOT NULL, "
                                   "kind INTEGER NOT NULL, "
                                   "value BLOB NOT NULL, "
                                   "PRIMARY KEY (bundle_identifier, key)) WITHOUT ROWID";

    constexpr const char* statementTexts[] = {
        "SELECT kind, value FROM entries WHERE bundle_identifier = ?1 AND key = ?2",
        ("INSERT INTO entries (bundle_identifier, key, kind, value) VALUES (?1, ?2, ?3, ?4) "
         "ON CONFLICT (bundle_identifier, key) DO UPDATE SET kind = excluded.kind, value = excluded.value"),
        "DELETE FROM entries WHERE bundle_identifier = ?1 AND key = ?2",
        "SELECT DISTINCT bundle_identifier FROM entries ORDER BY bundle_identifier",
    };

    bool isDamage(int code)
    {
        int primary = code & 0xff;
        return primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB;
    }

    // A null pointer would bind SQL NULL, which the NOT NULL columns refuse.
    int bindBytes(sqlite3_stmt* statement, int index, const void* bytes, size_t length)
    {
        static const char empty = 0;
        return sqlite3_bind_blob64(statement, index, length ? bytes : &empty, length, SQLITE_STATIC);
    }

    int bindName(sqlite3_stmt* statement, int index, std::string_view name)
    {
        return bindBytes(statement, index, name.data(), name.size());
    }

    // Statements go back to their cached state whichever way a call ends.
    class StatementUse {
    public:
        explicit StatementUse(sqlite3_stmt* statement)
            : _statement(statement)
        {
        }
        ~StatementUse()
        {
            if (_statement) {
                sqlite3_reset(_statement);
                sqlite3_clear_bindings(_statement);
            }
        }
        StatementUse(const StatementUse&) = delete;
        StatementUse& operator=(const StatementUse&) = delete;

    private:
        sqlite3_stmt* _statement;
    };

    // Runs sql and keeps the first column of its first row.
    int execute(sqlite3* database, const char* sql, std::string* firstValue = nullptr)
    {
        return sqlite3_exec(
            database, sql,
            [](void* context, int columns, char** values, char**) {
                auto out = static_cast<std::string*>(context);
                if (out && out->empty() && columns > 0 && values[0])
                    *out = values[0];
                return 0;
            },
            firstValue, nullptr);
    }

    std::string utcTimestamp()
    {
        std::time_t now = std::time(nullptr);
        std::tm parts {};
        gmtime_r(&now, &parts);
        char text[32];
        std::strftime(text, sizeof text, "%Y%m%dT%H%M%SZ", &parts);
        return text;
    }

} // namespace

ApplicationDataStoreDatabase::ApplicationDataStoreDatabase(std::string path, std::shared_ptr<SystemLog> log)
    : _path(std::move(path))
    , _log(std::move(log))
{
}

ApplicationDataStoreDatabase::~ApplicationDataStoreDatabase()
{
    std::lock_guard lock(_lock);
    closeLocked();
}

void ApplicationDataStoreDatabase::log(LogPriority priority, std::string_view message) const
{
    if (_log)
        _log->log(priority, message);
    else
        Platform::log(priority, message);
}

bool ApplicationDataStoreDatabase::openAndCheck(std::string& reason, bool& damaged)
{
    damaged = false;
    int code = sqlite3_open_v2(
        _path.c_str(), &_database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    auto fail = [&](std::string_view step) {
        reason = format("%s: %s (%d)", step, _database ? sqlite3_errmsg(_database) : "out of memory", code);
        damaged = isDamage(code);
        closeLocked();
        return false;
    };
    if (code != SQLITE_OK)
        return fail("open");
    sqlite3_busy_timeout(_database, busyTimeoutMilliseconds);
    std::string mode;
    if ((code = execute(_database, "PRAGMA journal_mode = WAL", &mode)) != SQLITE_OK)
        return fail("journal mode");
    if (mode != "wal")
        log(LogPriority::Warning, format("ApplicationDataStore: %s keeps journal mode %s", _path, mode));
    if ((code = execute(_database, "PRAGMA synchronous = FULL")) != SQLITE_OK)
        return fail("synchronous");
    std::string check;
    if ((code = execute(_database, "PRAGMA quick_check", &check)) != SQLITE_OK)
        return fail("check");
    if (check != "ok") {
        reason = "check: " + check;
        damaged = true;
        closeLocked();
        return false;
    }
    if ((code = execute(_database, schema)) != SQLITE_OK)
        return fail("schema");
    return true;
}

bool ApplicationDataStoreDatabase::openLocked()
{
    if (_database)
        return true;
    FileManager::createDirectoryAtPath(Path::deletingLastComponent(_path), true);
    std::string reason;
    bool damaged = false;
    if (openAndCheck(reason, damaged))
        return true;
    if (damaged) {
        log(LogPriority::Error,
            format("ApplicationDataStore: %s is damaged (%s); starting a new one", _path, reason));
        moveDamagedFileAside();
        if (openAndCheck(reason, damaged))
            return true;
    }
    log(LogPriority::Error, format("ApplicationDataStore: cannot open %s: %s", _path, reason));
    return false;
}

void ApplicationDataStoreDatabase::moveDamagedFileAside()
{
    std::string base = _path + ".corrupt-" + utcTimestamp();
    std::string aside = base;
    for (int attempt = 1; FileManager::fileExistsAtPath(aside) && attempt < 1000; ++attempt)
        aside = base + "-" + std::to_string(attempt);
    std::string error;
    if (FileManager::moveItemAtPath(_path, aside, &error)) {
        log(LogPriority::Error, format("ApplicationDataStore: moved the damaged database to %s", aside));
        // The log belongs to the damaged file; keep it beside it for inspection.
        if (FileManager::fileExistsAtPath(_path + "-wal"))
            FileManager::moveItemAtPath(_path + "-wal", aside + "-wal");
    } else {
        log(LogPriority::Error,
            format("ApplicationDataStore: cannot move the damaged database aside: %s", error));
        FileManager::removeItemAtPath(_path);
        FileManager::removeItemAtPath(_path + "-wal");
    }
    FileManager::removeItemAtPath(_path + "-shm");
}

void ApplicationDataStoreDatabase::closeLocked()
{
    for (auto& statement : _statements) {
        sqlite3_finalize(statement);
        statement = nullptr;
    }
    if (_database) {
        sqlite3_close_v2(_database);
        _database = nullptr;
    }
}

sqlite3_stmt* ApplicationDataStoreDatabase::statementLocked(Statement which)
{
    if (!openLocked())
        return nullptr;
    if (_statements[which])
        return _statements[which];
    int code = sqlite3_prepare_v3(
        _database, statementTexts[which], -1, SQLITE_PREPARE_PERSISTENT, &_statements[which], nullptr);
    if (code != SQLITE_OK) {
        failed("prepare", code);
        return nullptr;
    }
    return _statements[which];
}

void ApplicationDataStoreDatabase::failed(std::string_view operation, int code)
{
    log(LogPriority::Error,
        format("ApplicationDataStore: %s failed in %s: %s (%d)", operation, _path,
            _database ? sqlite3_errmsg(_database) : sqlite3_errstr(code), code));
    if (isDamage(code))
        closeLocked();
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
    auto statement = statementLocked(Select);
    if (!statement)
        return std::nullopt;
    StatementUse use(statement);
    bindName(statement, 1, bundleIdentifier);
    bindName(statement, 2, key);
    int code = sqlite3_step(statement);
    if (code == SQLITE_DONE)
        return std::nullopt;
    if (code != SQLITE_ROW) {
        failed("read", code);
        return std::nullopt;
    }
    int kind = sqlite3_column_int(statement, 0);
    auto bytes = static_cast<const uint8_t*>(sqlite3_column_blob(statement, 1));
    auto length = static_cast<size_t>(sqlite3_column_bytes(statement, 1));
    if ((kind != static_cast<int>(Kind::PropertyList) && kind != static_cast<int>(Kind::KeyedArchive))
        || length > maximumValueLength) {
        log(LogPriority::Error,
            format("ApplicationDataStore: unreadable entry in %s (kind %d, %zu bytes)", _path, kind, length));
        return std::nullopt;
    }
    Entry result { static_cast<Kind>(kind), {} };
    if (length)
        result.bytes.assign(bytes, bytes + length);
    return result;
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
    auto statement = statementLocked(Upsert);
    if (!statement)
        return false;
    StatementUse use(statement);
    bindName(statement, 1, bundleIdentifier);
    bindName(statement, 2, key);
    sqlite3_bind_int(statement, 3, static_cast<int>(kind));
    bindBytes(statement, 4, bytes.data(), bytes.size());
    int code = sqlite3_step(statement);
    if (code != SQLITE_DONE) {
        failed("write", code);
        return false;
    }
    return true;
}

bool ApplicationDataStoreDatabase::removeEntry(std::string_view bundleIdentifier, std::string_view key)
{
    std::lock_guard lock(_lock);
    if (!checkNames(bundleIdentifier, key, "remove"))
        return false;
    auto statement = statementLocked(Delete);
    if (!statement)
        return false;
    StatementUse use(statement);
    bindName(statement, 1, bundleIdentifier);
    bindName(statement, 2, key);
    int code = sqlite3_step(statement);
    if (code != SQLITE_DONE) {
        failed("remove", code);
        return false;
    }
    return true;
}

std::vector<std::string> ApplicationDataStoreDatabase::bundleIdentifiers()
{
    std::lock_guard lock(_lock);
    std::vector<std::string> identifiers;
    auto statement = statementLocked(ListIdentifiers);
    if (!statement)
        return identifiers;
    StatementUse use(statement);
    int code;
    while ((code = sqlite3_step(statement)) == SQLITE_ROW) {
        auto bytes = static_cast<const char*>(sqlite3_column_blob(statement, 0));
        auto length = static_cast<size_t>(sqlite3_column_bytes(statement, 0));
        identifiers.emplace_back(length ? std::string(bytes, length) : std::string());
    }
    if (code != SQLITE_DONE) {
        failed("list", code);
        identifiers.clear();
    }
    return identifiers;
}

bool ApplicationDataStoreDatabase::checkpoint()
{
    std::lock_guard lock(_lock);
    if (!openLocked())
        return false;
    int code = sqlite3_wal_checkpoint_v2(_database, nullptr, SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr);
    if (code != SQLITE_OK) {
        failed("checkpoint", code);
        return false;
    }
    return true;
}

} // namespace tessel
