#pragma once

#include "platform/bulletins/BulletinRequest.h"
#include "platform/bulletins/BulletinRequestParameters.h"
#include "platform/bulletins/DataProviderClearedInfo.h"
#include "platform/bulletins/SectionInfo.h"
#include "platform/bulletins/SectionParameters.h"
#include "platform/bulletins/ThumbnailSizeConstraints.h"
#include "platform/foundation/SortDescriptor.h"
#include "platform/foundation/Value.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tessel {

// What the bulletin service asks of the provider of one section. The service
// calls it on the queue the provider was hosted with.
class BulletinDataProvider {
public:
    virtual ~BulletinDataProvider() = default;

    virtual std::string sectionIdentifier() const = 0;
    virtual std::string sectionDisplayName() const = 0;
    virtual std::vector<SortDescriptor> sortDescriptors() const = 0;
    virtual bool syncsBulletinDismissal() const = 0;
    virtual SectionParameters sectionParameters() const = 0;
    virtual SectionInfo defaultSectionInfo() const = 0;

    // Absent: the provider has nothing for those parameters.
    virtual std::optional<BulletinSet> bulletinsWithRequestParameters(
        const BulletinRequestParameters& parameters, const Value& lastCleared)
        = 0;
    virtual DataProviderClearedInfo clearedInfoAndBulletinsForClearingAllBulletinsWithLimit(
        uint64_t limit, const Value& lastClearedInfo)
        = 0;
    // The section's new cleared info.
    virtual Value clearedInfoForBulletins(const BulletinSet& bulletins, const Value& lastClearedInfo) = 0;
    virtual void noteSectionInfoDidChange(const SectionInfo& sectionInfo) = 0;
    virtual void dataProviderDidLoad() = 0;

    // Attachments of bulletins marked with one, by the bulletin's record identifier.
    virtual std::optional<Bytes> attachmentPNGDataForRecordID(
        const std::string& recordID, const ThumbnailSizeConstraints& constraints)
        = 0;
    virtual float attachmentAspectRatioForRecordID(const std::string& recordID) = 0;
};

} // namespace tessel
