#include "platform/bulletins/BulletinRequestParameters.h"

#include "platform/foundation/Format.h"
#include "platform/foundation/Value.h"

namespace tessel {

std::string BulletinRequestParameters::description() const
{
    return format("<BulletinRequestParameters destination: %lu maximum: %lu since: %@>",
        static_cast<uint64_t>(publisherDestination), maximumCount, sinceDate ? Value(*sinceDate) : Value());
}

} // namespace tessel
