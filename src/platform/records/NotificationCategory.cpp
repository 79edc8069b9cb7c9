#include "platform/records/NotificationCategory.h"

#include "platform/archive/KeyedArchiver.h"
#include "platform/archive/KeyedUnarchiver.h"
#include "platform/foundation/Format.h"

#include <algorithm>

namespace tessel {

namespace {

    Value archivedActions(const NotificationActions& actions)
    {
        Value::Array array;
        array.reserve(actions.size());
        for (const auto& action : actions)
            array.emplace_back(action);
        return Value(std::move(array));
    }

    NotificationActions decodedActions(const Value& value)
    {
        NotificationActions actions;
        for (const auto& element : value.arrayValue()) {
            if (auto action = element.objectAs<NotificationAction>())
                actions.push_back(std::move(action));
        }
        return actions;
    }

    bool equalActions(const NotificationActions& a, const NotificationActions& b)
    {
        return std::equal(a.begin(), a.end(), b.begin(), b.end(),
            [](const auto& x, const auto& y) { return x && y ? x->isEqual(*y) : x == y; });
    }

    std::string describeActions(const NotificationActions& actions)
    {
        std::string text;
        for (const auto& action : actions)
            text += (text.empty() ? "" : ", ") + (action ? action->identifier() : std::string("(null)"));
        return text;
    }

} // namespace

NotificationCategory::NotificationCategory(std::string identifier)
    : _identifier(std::move(identifier))
{
}

const NotificationActions& NotificationCategory::actionsForContext(int64_t context) const
{
    return context == NotificationAction::ContextMinimal ? _minimalActions : _defaultActions;
}

void NotificationCategory::setActions(NotificationActions actions, int64_t context)
{
    std::erase(actions, nullptr);
    (context == NotificationAction::ContextMinimal ? _minimalActions : _defaultActions) = std::move(actions);
}

NotificationCategories NotificationCategory::uniqued(const NotificationCategories& categories)
{
    NotificationCategories set;
    for (const auto& category : categories) {
        if (!category)
            continue;
        bool present = std::any_of(
            set.begin(), set.end(), [&](const auto& member) { return member->isEqual(*category); });
        if (!present)
            set.push_back(category);
    }
    return set;
}

void NotificationCategory::encodeWithCoder(KeyedArchiver& coder) const
{
    coder.encodeObject(_identifier, "identifier");
    coder.encodeObject(archivedActions(_defaultActions), "defaultActions");
    coder.encodeObject(archivedActions(_minimalActions), "minimalActions");
}

std::shared_ptr<NotificationCategory> NotificationCategory::decode(KeyedUnarchiver& coder)
{
    auto category = std::make_shared<NotificationCategory>(coder.decodeObject("identifier").stringValue());
    category->_defaultActions = decodedActions(coder.decodeObject("defaultActions"));
    category->_minimalActions = decodedActions(coder.decodeObject("minimalActions"));
    return category;
}

std::string NotificationCategory::description() const
{
    return format("<NotificationCategory %@ default: (%@) minimal: (%@)>", _identifier,
        describeActions(_defaultActions), describeActions(_minimalActions));
}

bool NotificationCategory::isEqual(const Archivable& other) const
{
    auto category = dynamic_cast<const NotificationCategory*>(&other);
    return category && category->_identifier == _identifier
        && equalActions(category->_defaultActions, _defaultActions)
        && equalActions(category->_minimalActions, _minimalActions);
}

} // namespace tessel
