#pragma once

#include "tessel/services/Records.h"

#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace tessel {

// What the daemon sent could not be read; the answer is dropped.
struct MalformedAnswer : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Each throws MalformedAnswer for bytes the safe decoders refuse, so that the
// application only ever receives records it can read. Empty bytes stand for
// null: no settings, no entries.
std::optional<ArchivedRecord> validatedSettings(ArchivedRecord settings);
std::vector<ArchivedRecord> validatedNotifications(std::vector<ArchivedRecord> notifications);
std::map<std::string, bool> backgroundRefreshMapping(const ArchivedRecord& archive);
std::vector<ScheduleEntry> scheduleEntries(const ArchivedRecord& archive);
ArchivedRecord archivedFetchRequest(const ScheduleFetchRequest& request);

} // namespace tessel
