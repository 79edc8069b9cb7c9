#pragma once

#include "platform/foundation/Archivable.h"
#include "platform/foundation/Value.h"

#include <cstdint>
#include <memory>
#include <string>

namespace tessel {

class KeyedUnarchiver;

// A button an application defines for its notifications, within a category.
class NotificationAction : public Archivable {
public:
    static constexpr const char* archivedClassName = "NotificationAction";

    enum ActivationMode : int64_t { ActivationModeForeground = 0, ActivationModeBackground = 1 };
    enum Behavior : int64_t { BehaviorDefault = 0, BehaviorTextInput = 1 };
    // The contexts a category lists actions for.
    enum Context : int64_t { ContextDefault = 0, ContextMinimal = 1 };

    NotificationAction() = default;
    NotificationAction(std::string identifier, std::string title);

    const std::string& identifier() const { return _identifier; }
    void setIdentifier(std::string identifier) { _identifier = std::move(identifier); }
    const std::string& title() const { return _title; }
    void setTitle(std::string title) { _title = std::move(title); }
    int64_t activationMode() const { return _activationMode; }
    void setActivationMode(int64_t mode) { _activationMode = mode; }
    int64_t behavior() const { return _behavior; }
    void setBehavior(int64_t behavior) { _behavior = behavior; }
    // Property-list values only, as for a text input's button title.
    const Value::Dictionary& parameters() const { return _parameters; }
    void setParameters(Value::Dictionary parameters) { _parameters = std::move(parameters); }
    bool isDestructive() const { return _destructive; }
    void setDestructive(bool destructive) { _destructive = destructive; }
    bool isAuthenticationRequired() const { return _authenticationRequired; }
    void setAuthenticationRequired(bool required) { _authenticationRequired = required; }

    // Usable: it has an identifier and a title.
    bool isValid() const { return !_identifier.empty() && !_title.empty(); }

    std::string className() const override { return archivedClassName; }
    void encodeWithCoder(KeyedArchiver& coder) const override;
    std::string description() const override;
    bool isEqual(const Archivable& other) const override;

    static std::shared_ptr<NotificationAction> decode(KeyedUnarchiver& coder);

private:
    std::string _identifier;
    std::string _title;
    int64_t _activationMode = ActivationModeForeground;
    int64_t _behavior = BehaviorDefault;
    Value::Dictionary _parameters;
    bool _destructive = false;
    bool _authenticationRequired = false;
};

} // namespace tessel
