#include "platform/bulletins/SectionInfoDatabase.h"

#include "platform/Platform.h"
#include "platform/foundation/Format.h"

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

    // A row is whatever the file holds: the identifier's length is checked and
    // the numbers are kept to what a record can mean.
    std::optional<SectionInfo> rowSectionInfo(const SqliteStatement& row)
    {
        auto sectionID = row.columnBytes(0);
        if (sectionID.size() > SectionInfoDatabase::maximumSectionIDLength)
            return std::nullopt;
        SectionInfo info;
        info.sectionID = sectionID;
        info.sectionType = row.columnInt64(1);
        info.allowsNotifications = row.columnInt64(2) != 0;
        info.pushSettings = static_cast<uint64_t>(row.columnInt64(3)) & pushSettingsMask;
        info.alertType = row.columnInt64(4);
        info.showsInLockScreen = row.columnInt64(5) != 0;
        info.showsInNotificationCentre = row.columnInt64(6) != 0;
        return info;
    }

} // namespace

SectionInfoDatabase::SectionInfoDatabase(std::string path, std::shared_ptr<SystemLog> log)
    : _log(std::move(log))
    , _database({
          .path = std::move(path),
          .name = "SectionInfoDatabase",
          .schema = schema,
          .statements = {
              format("SELECT %s FROM section_info WHERE section_id = ?1", columns),
              format("SELECT %s FROM section_info ORDER BY section_id", columns),
              format("INSERT OR REPLACE INTO section_info (%s) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7)", columns),
          },
          .report = [this](std::string_view message, bool) { this->log(LogPriority::Error, message); },
      })
{
}

void SectionInfoDatabase::log(LogPriority priority, std::string_view message) const
{
    if (_log)
        _log->log(priority, message);
    else
        Platform::log(priority, message);
}

std::optional<SectionInfo> SectionInfoDatabase::sectionInfo(std::string_view sectionID)
{
    std::lock_guard lock(_lock);
    if (sectionID.size() > maximumSectionIDLength)
        return std::nullopt;
    auto statement = _database.statement(Select, "read");
    if (!statement)
        return std::nullopt;
    statement.bindBytes(1, sectionID);
    int code = statement.step();
    if (code == SQLITE_ROW)
        return rowSectionInfo(statement);
    if (code != SQLITE_DONE)
        _database.failed("read", code);
    return std::nullopt;
}

std::vector<SectionInfo> SectionInfoDatabase::allSectionInfos()
{
    std::lock_guard lock(_lock);
    std::vector<SectionInfo> infos;
    auto statement = _database.statement(SelectAll, "list");
    if (!statement)
        return infos;
    int code;
    while ((code = statement.step()) == SQLITE_ROW) {
        if (auto info = rowSectionInfo(statement))
            infos.push_back(std::move(*info));
    }
    if (code != SQLITE_DONE) {
        _database.failed("list", code);
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
    auto statement = _database.statement(Replace, "write");
    if (!statement)
        return false;
    statement.bindBytes(1, info.sectionID);
    statement.bindInt64(2, info.sectionType);
    statement.bindInt64(3, info.allowsNotifications);
    statement.bindInt64(4, static_cast<int64_t>(info.pushSettings & pushSettingsMask));
    statement.bindInt64(5, info.alertType);
    statement.bindInt64(6, info.showsInLockScreen);
    statement.bindInt64(7, info.showsInNotificationCentre);
    int code = statement.step();
    if (code != SQLITE_DONE) {
        _database.failed("write", code);
        return false;
    }
    return true;
}

} // namespace tessel
