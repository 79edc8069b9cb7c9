#include "platform/bulletins/BulletinAction.h"

#include "platform/foundation/Format.h"

namespace tessel {

BulletinAction BulletinAction::launchActionForBundleID(std::string bundleID)
{
    BulletinAction action;
    action.launchBundleID = std::move(bundleID);
    return action;
}

std::string BulletinAction::description() const
{
    return format("<BulletinAction identifier: %@ appearance: %@ launch: %@ activation: %ld behavior: %ld "
                  "parameters: %@ authentication: %d>",
        identifier, appearance ? appearance->description() : std::string("(null)"), launchBundleID,
        activationMode, behavior, Value(behaviorParameters), authenticationRequired);
}

} // namespace tessel
