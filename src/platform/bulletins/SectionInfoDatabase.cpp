#include "platform/bulletins/SectionInfoDatabase.h"

#include "platform/Platform.h"
#include "platform/files/FileManager.h"
#include "platform/files/Path.h"
#include "platform/foundation/Format.h"

#include <cstdio>
#include <sqlite3.h>

namespace tessel {

namespace {

    constexpr const char* schema = "CREATE TABLE IF NOT EXISTS section_info ("
                                   "section_id BLOB NOT NULL PRIMARY KEY, "
                                   "section_type INTEGER NOT NULL, "
                                   "allows_notifications INTEGER NOT NULL, "
                                   "push_settings INTEGER NOT NULL, "
                                   "alert_type INTEGER NOT NULL, "
                                   "shows_in_lock_screen INTEGER NOT NULL, "
                                   "shows_in_notification_centre INTEGER NOT NULL) WITHOUT ROWID";

    constexpr const char* columns
        = "section_id, section_type, allows_notifications, push_settings, alert_type, "
          "shows_in_lock_screen, shows_in_notification_centre";

    // Only bits 0-5 of push settings mean anything.
    constexpr uint64_t pushSettingsMask = 63;

    bool isDamage(int code)
    {
        int primary = code & 0xff;
        return primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB;
    }

    class Statement {
    public:
        Statement(sqlite3* database, const std::string& sql)
        {
            _code = sqlite3_prepare_v2(database, sql.c_str(), -1, &_statement, nullptr);
        }
        ~Statement() { sqlite3_finalize(_statement); }
        Statement(const Statement&) = delete;
        Statement& operator=(const Statement&) = delete;

        int code() const { return _code; }
        sqlite3_stmt* get() const { return _statement; }

    private:
        sqlite3_stmt* _statement = nullptr;
        int _code;
    };

    void bindSectionID(sqlite3_stmt* statement, std::string_view sectionID)
    {
        static const char empty = 0;
        sqlite3_bind_blob64(
            statement, 1, sectionID.empty() ? &empty : sectionID.data(), sectionID.size(), SQLITE_STATIC);
    }

    // A row is whatever the file holds: the identifier's length is checked and
    // the numbers are kept to what a record can mean.
    std::optional<SectionInfo> rowSectionInfo(sqlite3_stmt* statement)
    {
        auto bytes = static_cast<const char*>(sqlite3_column_blob(statement, 0));
        auto length = static_cast<size_t>(sqlite3_column_bytes(statement, 0));
        if (length > SectionInfoDatabase::maximumSectionIDLength)
            return std::nullopt;
        SectionInfo info;
        info.sectionID = length ? std::string(bytes, length) : std::string();
        info.sectionType = sqlite3_column_int64(statement, 1);
        info.allowsNotifications = sqlite3_column_int64(statement, 2) != 0;
        info.pushSettings = static_cast<uint64_t>(sqlite3_column_int64(statement, 3)) & pushSettingsMask;
        info.alertType = sqlite3_column_int64(statement, 4);
        info.showsInLockScreen = sqlite3_column_int64(statement, 5) != 0;
        info.showsInNotificationCentre = sqlite3_column_int64(statement, 6) != 0;
        return info;
    }

} // namespace

SectionInfoDatabase::SectionInfoDatabase(std::string path, std::shared_ptr<SystemLog> log)
    : _path(std::move(path))
    , _log(std::move(log))
{
}

SectionInfoDatabase::~SectionInfoDatabase()
{
    std::lock_guard lock(_lock);
    closeLocked();
}

void SectionInfoDatabase::log(LogPriority priority, std::string_view message) const
{
    if (_log)
        _log->log(priority, message);
    else
        Platform::log(priority, message);
}

bool SectionInfoDatabase::openLocked()
{
    if (_database)
        return true;
    FileManager::createDirectoryAtPath(Path::deletingLastComponent(_path), true);
    int code = sqlite3_open_v2(
        _path.c_str(), &_database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    if (code == SQLITE_OK) {
        sqlite3_busy_timeout(_database, busyTimeoutMilliseconds);
        for (const char* sql : { "PRAGMA journal_mode = WAL", "PRAGMA synchronous = FULL", schema }) {
            if ((code = sqlite3_exec(_database, sql, nullptr, nullptr, nullptr)) != SQLITE_OK)
                break;
        }
    }
    if (code == SQLITE_OK)
        return true;
    log(LogPriority::Error,
        format("SectionInfoDatabase: cannot open %s: %s (%d)", _path,
            _database ? sqlite3_errmsg(_database) : sqlite3_errstr(code), code));
    closeLocked();
    return false;
}

void SectionInfoDatabase::closeLocked()
{
    if (_database) {
        sqlite3_close_v2(_database);
        _database = nullptr;
    }
}

void SectionInfoDatabase::failed(std::string_view operation, int code)
{
    log(LogPriority::Error,
        format("SectionInfoDatabase: %s failed in %s: %s (%d)", operation, _path,
            _database ? sqlite3_errmsg(_database) : sqlite3_errstr(code), code));
    if (isDamage(code))
        closeLocked();
}

std::optional<SectionInfo> SectionInfoDatabase::sectionInfo(std::string_view sectionID)
{
    std::lock_guard lock(_lock);
    if (sectionID.size() > maximumSectionIDLength || !openLocked())
        return std::nullopt;
    Statement statement(_database, format("SELECT %s FROM section_info WHERE section_id = ?1", columns));
    if (statement.code() != SQLITE_OK) {
        failed("read", statement.code());
        return std::nullopt;
    }
    bindSectionID(statement.get(), sectionID);
    int code = sqlite3_step(statement.get());
    if (code == SQLITE_ROW)
        return rowSectionInfo(statement.get());
    if (code != SQLITE_DONE)
        failed("read", code);
    return std::nullopt;
}

std::vector<SectionInfo> SectionInfoDatabase::allSectionInfos()
{
    std::lock_guard lock(_lock);
    std::vector<SectionInfo> infos;
    if (!openLocked())
        return infos;
    Statement statement(_database, format("SELECT %s FROM section_info ORDER BY section_id", columns));
    if (statement.code() != SQLITE_OK) {
        failed("list", statement.code());
        return infos;
    }
    int code;
    while ((code = sqlite3_step(statement.get())) == SQLITE_ROW) {
        if (auto info = rowSectionInfo(statement.get()))
            infos.push_back(std::move(*info));
    }
    if (code != SQLITE_DONE) {
        failed("list", code);
        infos.clear();
    }
    return infos;
}

bool SectionInfoDatabase::setSectionInfo(const SectionInfo& info)
{
    std::lock_guard lock(_lock);
    if (info.sectionID.size() > maximumSectionIDLength) {
        log(LogPriority::Error,
            format("SectionInfoDatabase: write refused: section identifier of %zu bytes",
                info.sectionID.size()));
        return false;
    }
    if (!openLocked())
        return false;
    Statement statement(_database,
        format("INSERT OR REPLACE INTO section_info (%s) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7)", columns));
    if (statement.code() != SQLITE_OK) {
        failed("write", statement.code());
        return false;
    }
    bindSectionID(statement.get(), info.sectionID);
    sqlite3_bind_int64(statement.get(), 2, info.sectionType);
    sqlite3_bind_int64(statement.get(), 3, info.allowsNotifications);
    sqlite3_bind_int64(statement.get(), 4, static_cast<int64_t>(info.pushSettings & pushSettingsMask));
    sqlite3_bind_int64(statement.get(), 5, info.alertType);
    sqlite3_bind_int64(statement.get(), 6, info.showsInLockScreen);
    sqlite3_bind_int64(statement.get(), 7, info.showsInNotificationCentre);
    int code = sqlite3_step(statement.get());
    if (code != SQLITE_DONE) {
        failed("write", code);
        return false;
    }
    return true;
}

} // namespace tessel
