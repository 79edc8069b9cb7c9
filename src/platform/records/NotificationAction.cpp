#include "platform/records/NotificationAction.h"

#include "platform/archive/KeyedArchiver.h"
#include "platform/archive/KeyedUnarchiver.h"
#include "platform/foundation/Format.h"

namespace tessel {

NotificationAction::NotificationAction(std::string identifier, std::string title)
    : _identifier(std::move(identifier))
    , _title(std::move(title))
{
}

void NotificationAction::encodeWithCoder(KeyedArchiver& coder) const
{
    coder.encodeObject(_identifier, "identifier");
    coder.encodeObject(_title, "title");
    coder.encodeInt64(_activationMode, "activationMode");
    coder.encodeInt64(_behavior, "behavior");
    if (!_parameters.empty())
        coder.encodeObject(Value(_parameters), "parameters");
    coder.encodeBool(_destructive, "destructive");
    coder.encodeBool(_authenticationRequired, "authenticationRequired");
}

std::shared_ptr<NotificationAction> NotificationAction::decode(KeyedUnarchiver& coder)
{
    auto action = std::make_shared<NotificationAction>(
        coder.decodeObject("identifier").stringValue(), coder.decodeObject("title").stringValue());
    action->_activationMode = coder.decodeInt64("activationMode");
    action->_behavior = coder.decodeInt64("behavior");
    action->_parameters = coder.decodeObject("parameters").dictionaryValue();
    action->_destructive = coder.decodeBool("destructive");
    action->_authenticationRequired = coder.decodeBool("authenticationRequired");
    return action;
}

std::string NotificationAction::description() const
{
    return format("<NotificationAction %@ title: \"%@\" activation: %ld behavior: %ld parameters: %@ "
                  "destructive: %d authentication: %d>",
        _identifier, _title, _activationMode, _behavior, Value(_parameters), _destructive,
        _authenticationRequired);
}

bool NotificationAction::isEqual(const Archivable& other) const
{
    auto action = dynamic_cast<const NotificationAction*>(&other);
    return action && action->_identifier == _identifier && action->_title == _title
        && action->_activationMode == _activationMode && action->_behavior == _behavior
        && Value(action->_parameters) == Value(_parameters) && action->_destructive == _destructive
        && action->_authenticationRequired == _authenticationRequired;
}

} // namespace tessel
