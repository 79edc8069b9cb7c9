#pragma once

#include "platform/bulletins/SectionInfo.h"
#include "platform/files/SqliteDatabase.h"
#include "platform/logging/SystemLog.h"

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tessel {

// The bulletin service's section settings, one row per section in a table of
// the Library's SQLite database (beside the application data store's table).
// Every write is committed before the call returns (WAL, synchronous=FULL).
// Thread-safe; opened on first use. Failures are logged and answered as
// absent, empty or false; a damaged file is left to the data store, which owns
// it, and is opened afresh on the next use.
class SectionInfoDatabase {
public:
    static constexpr size_t maximumSectionIDLength = 4096;

    explicit SectionInfoDatabase(std::string path, std::shared_ptr<SystemLog> log = nullptr);
    SectionInfoDatabase(const SectionInfoDatabase&) = delete;
    SectionInfoDatabase& operator=(const SectionInfoDatabase&) = delete;

    std::optional<SectionInfo> sectionInfo(std::string_view sectionID);
    // Sorted by section identifier.
    std::vector<SectionInfo> allSectionInfos();
    bool setSectionInfo(const SectionInfo& sectionInfo);

private:
    // Indices into the statements given to _database.
    enum Statement { Select, SelectAll, Replace };

    void log(LogPriority priority, std::string_view message) const;

    const std::shared_ptr<SystemLog> _log;
    std::mutex _lock;
    SqliteDatabase _database;
};

} // namespace tessel
