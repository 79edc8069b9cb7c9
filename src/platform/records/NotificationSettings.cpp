#include "platform/records/NotificationSettings.h"

#include "platform/archive/KeyedArchive.h"
#include "platform/archive/KeyedArchiver.h"
#include "platform/archive/KeyedUnarchiver.h"
#include "platform/foundation/Format.h"

#include <algorithm>
#include <mutex>
#include <set>

namespace tessel {

std::shared_ptr<NotificationSettings> NotificationSettings::settingsForTypes(
    uint64_t types, const NotificationCategories& categories)
{
    auto settings = std::make_shared<NotificationSettings>();
    settings->_types = types;
    settings->_categories = NotificationCategory::uniqued(categories);
    return settings;
}

void NotificationSettings::registerArchivableClasses()
{
    static std::once_flag once;
    std::call_once(once, [] {
        KeyedArchive::registerClass(archivedClassName, [](KeyedUnarchiver& coder) { return decode(coder); });
        KeyedArchive::registerClass(NotificationCategory::archivedClassName,
            [](KeyedUnarchiver& coder) { return NotificationCategory::decode(coder); });
        KeyedArchive::registerClass(NotificationAction::archivedClassName,
            [](KeyedUnarchiver& coder) { return NotificationAction::decode(coder); });
    });
}

std::shared_ptr<NotificationSettings> NotificationSettings::validatedSettings() const
{
    NotificationCategories categories;
    std::set<std::string> categoryIdentifiers;
    for (const auto& category : _categories) {
        if (!category || category->identifier().empty()
            || !categoryIdentifiers.insert(category->identifier()).second)
            continue;
        auto copy = std::make_shared<NotificationCategory>(category->identifier());
        for (auto context : { NotificationAction::ContextDefault, NotificationAction::ContextMinimal }) {
            NotificationActions actions;
            std::set<std::string> actionIdentifiers;
            for (const auto& action : category->actionsForContext(context)) {
                if (action && action->isValid() && actionIdentifiers.insert(action->identifier()).second)
                    actions.push_back(std::make_shared<NotificationAction>(*action));
            }
            copy->setActions(std::move(actions), context);
        }
        categories.push_back(std::move(copy));
    }
    return settingsForTypes(_types & allTypes, categories);
}

void NotificationSettings::encodeWithCoder(KeyedArchiver& coder) const
{
    coder.encodeInt64(static_cast<int64_t>(_types), "types");
    Value::Array categories;
    for (const auto& category : _categories)
        categories.emplace_back(category);
    coder.encodeObject(Value(std::move(categories)), "categories");
}

std::shared_ptr<NotificationSettings> NotificationSettings::decode(KeyedUnarchiver& coder)
{
    NotificationCategories categories;
    auto archived = coder.decodeObject("categories");
    for (const auto& element : archived.arrayValue()) {
        if (auto category = element.objectAs<NotificationCategory>())
            categories.push_back(std::move(category));
    }
    return settingsForTypes(static_cast<uint64_t>(coder.decodeInt64("types")), categories);
}

std::string NotificationSettings::description() const
{
    std::string categories;
    for (const auto& category : _categories)
        categories += (categories.empty() ? "" : ", ") + category->identifier();
    return format("<NotificationSettings types: %lu categories: (%@)>", _types, categories);
}

bool NotificationSettings::isEqual(const Archivable& other) const
{
    auto settings = dynamic_cast<const NotificationSettings*>(&other);
    if (!settings || settings->_types != _types || settings->_categories.size() != _categories.size())
        return false;
    // Sets: every member has an equal one in the other.
    return std::all_of(_categories.begin(), _categories.end(), [&](const auto& category) {
        return std::any_of(settings->_categories.begin(), settings->_categories.end(),
            [&](const auto& member) { return member->isEqual(*category); });
    });
}

} // namespace tessel
