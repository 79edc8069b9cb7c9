#pragma once

#include "platform/bulletins/ActionAppearance.h"
#include "platform/foundation/Value.h"

#include <cstdint>
#include <optional>
#include <string>

namespace tessel {

// A button of a bulletin, or what tapping the bulletin itself does.
struct BulletinAction {
    enum ActivationMode : int64_t { ActivationModeForeground = 0, ActivationModeBackground = 1 };
    enum Behavior : int64_t { BehaviorDefault = 0, BehaviorTextInput = 1 };

    std::string identifier;
    // Without one the service shows nothing for the action of its own.
    std::optional<ActionAppearance> appearance;
    std::string launchBundleID;
    int64_t activationMode = ActivationModeForeground;
    int64_t behavior = BehaviorDefault;
    Value::Dictionary behaviorParameters;
    bool authenticationRequired = false;

    // Opens the application, with nothing called back.
    static BulletinAction launchActionForBundleID(std::string bundleID);

    std::string description() const;
    bool operator==(const BulletinAction&) const = default;
};

} // namespace tessel
