#pragma once

#include "platform/bulletins/SectionInfo.h"
#include "platform/logging/SystemLog.h"

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct sqlite3;

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
    static constexpr int busyTimeoutMilliseconds = 5000;

    explicit SectionInfoDatabase(std::string path, std::shared_ptr<SystemLog> log = nullptr);
    ~SectionInfoDatabase();
    SectionInfoDatabase(const SectionInfoDatabase&) = delete;
    SectionInfoDatabase& operator=(const SectionInfoDatabase&) = delete;

    std::optional<SectionInfo> sectionInfo(std::string_view sectionID);
    // Sorted by section identifier.
    std::vector<SectionInfo> allSectionInfos();
    bool setSectionInfo(const SectionInfo& sectionInfo);

private:
    bool openLocked();
    void closeLocked();
    void failed(std::string_view operation, int code);
    void log(LogPriority priority, std::string_view message) const;

    const std::string _path;
    const std::shared_ptr<SystemLog> _log;
    std::mutex _lock;
    sqlite3* _database = nullptr;
};

} // namespace tessel
