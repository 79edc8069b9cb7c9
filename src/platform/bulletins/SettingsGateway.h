#pragma once

#include "platform/bulletins/SectionInfo.h"

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tessel {

// Reads and writes the bulletin service's per-section settings. Completions
// and handlers run on the queue the gateway was made for; a section the
// service does not know is answered as absent (or left out of a list).
class SettingsGateway {
public:
    using SectionInfoCompletion = std::function<void(std::optional<SectionInfo> sectionInfo)>;
    using SectionInfosCompletion = std::function<void(std::vector<SectionInfo> sectionInfos)>;
    // Receives the current record and answers its replacement.
    using UpdateHandler = std::function<SectionInfo(const SectionInfo& sectionInfo)>;

    virtual ~SettingsGateway() = default;

    virtual void getSectionInfoForSectionID(const std::string& sectionID, SectionInfoCompletion completion)
        = 0;
    virtual void getSectionInfoForSectionIDs(
        const std::set<std::string>& sectionIDs, SectionInfosCompletion completion)
        = 0;
    // Every section the service knows.
    virtual void getSectionInfoWithCompletion(SectionInfosCompletion completion) = 0;
    // The record's own section identifier is replaced by sectionID.
    virtual void setSectionInfo(const SectionInfo& sectionInfo, const std::string& sectionID) = 0;
    // Does nothing for a section the service does not know.
    virtual void updateSectionInfoForSectionID(const std::string& sectionID, UpdateHandler handler) = 0;
    // Later calls do nothing and answer nothing.
    virtual void invalidate() = 0;
};

} // namespace tessel
