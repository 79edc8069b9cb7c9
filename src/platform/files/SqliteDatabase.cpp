#include "platform/files/SqliteDatabase.h"

#include "platform/files/FileManager.h"
#include "platform/files/Path.h"
#include "platform/foundation/Format.h"

#include <ctime>
#include <sqlite3.h>

namespace tessel {

namespace {

    bool isDamage(int code)
    {
        int primary = code & 0xff;
        return primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB;
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

SqliteDatabase::SqliteDatabase(Options options)
    : _options(std::move(options))
    , _statements(_options.statements.size(), nullptr)
{
}

SqliteDatabase::~SqliteDatabase() { close(); }

bool SqliteDatabase::open()
{
    if (_database)
        return true;
    FileManager::createDirectoryAtPath(Path::deletingLastComponent(path()), true);
    std::string reason;
    bool damaged = false;
    if (openAndCheck(reason, damaged))
        return true;
    if (damaged) {
        error(format("%s: %s is damaged (%s); starting a new one", _options.name, path(), reason));
        moveDamagedFileAside();
        if (openAndCheck(reason, damaged))
            return true;
    }
    error(format("%s: cannot open %s: %s", _options.name, path(), reason));
    return false;
}

bool SqliteDatabase::openAndCheck(std::string& reason, bool& damaged)
{
    damaged = false;
    int code = sqlite3_open_v2(path().c_str(), &_database,
        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    auto fail = [&](std::string_view step) {
        reason = format("%s (%d)", errorText(code), code);
        // Only the owner names the step: a guest's message is SQLite's alone.
        if (_options.ownsFile)
            reason = format("%s: %s", step, reason);
        damaged = _options.ownsFile && isDamage(code);
        close();
        return false;
    };
    if (code != SQLITE_OK)
        return fail("open");
    sqlite3_busy_timeout(_database, busyTimeoutMilliseconds);
    std::string mode;
    if ((code = execute("PRAGMA journal_mode = WAL", &mode)) != SQLITE_OK)
        return fail("journal mode");
    if (_options.ownsFile && mode != "wal")
        _options.report(format("%s: %s keeps journal mode %s", _options.name, path(), mode), true);
    if ((code = execute("PRAGMA synchronous = FULL")) != SQLITE_OK)
        return fail("synchronous");
    if (_options.ownsFile) {
        std::string check;
        if ((code = execute("PRAGMA quick_check", &check)) != SQLITE_OK)
            return fail("check");
        if (check != "ok") {
            reason = "check: " + check;
            damaged = true;
            close();
            return false;
        }
    }
    if ((code = execute(_options.schema)) != SQLITE_OK)
        return fail("schema");
    return true;
}

// Runs sql and keeps the first column of its first row.
int SqliteDatabase::execute(const char* sql, std::string* firstValue)
{
    return sqlite3_exec(
        _database, sql,
        [](void* context, int columns, char** values, char**) {
            auto out = static_cast<std::string*>(context);
            if (out && out->empty() && columns > 0 && values[0])
                *out = values[0];
            return 0;
        },
        firstValue, nullptr);
}

const char* SqliteDatabase::errorText(int code) const
{
    return _database ? sqlite3_errmsg(_database) : sqlite3_errstr(code);
}

void SqliteDatabase::moveDamagedFileAside()
{
    std::string base = path() + ".corrupt-" + utcTimestamp();
    std::string aside = base;
    for (int attempt = 1; FileManager::fileExistsAtPath(aside) && attempt < 1000; ++attempt)
        aside = base + "-" + std::to_string(attempt);
    std::string reason;
    if (FileManager::moveItemAtPath(path(), aside, &reason)) {
        error(format("%s: moved the damaged database to %s", _options.name, aside));
        // The log belongs to the damaged file; keep it beside it for inspection.
        if (FileManager::fileExistsAtPath(path() + "-wal"))
            FileManager::moveItemAtPath(path() + "-wal", aside + "-wal");
    } else {
        error(format("%s: cannot move the damaged database aside: %s", _options.name, reason));
        FileManager::removeItemAtPath(path());
        FileManager::removeItemAtPath(path() + "-wal");
    }
    FileManager::removeItemAtPath(path() + "-shm");
}

void SqliteDatabase::close()
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

SqliteStatement SqliteDatabase::statement(size_t which, std::string_view operation)
{
    if (!open())
        return SqliteStatement();
    sqlite3_stmt*& slot = _statements[which];
    if (!slot) {
        int code = sqlite3_prepare_v3(
            _database, _options.statements[which].c_str(), -1, SQLITE_PREPARE_PERSISTENT, &slot, nullptr);
        if (code != SQLITE_OK) {
            failed(operation, code);
            return SqliteStatement();
        }
    }
    return SqliteStatement(&slot);
}

void SqliteDatabase::failed(std::string_view operation, int code)
{
    error(format("%s: %s failed in %s: %s (%d)", _options.name, operation, path(), errorText(code), code));
    if (isDamage(code))
        close();
}

bool SqliteDatabase::checkpoint()
{
    if (!open())
        return false;
    int code = sqlite3_wal_checkpoint_v2(_database, nullptr, SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr);
    if (code != SQLITE_OK) {
        failed("checkpoint", code);
        return false;
    }
    return true;
}

} // namespace tessel
