#include "tesselctl/SettingsJson.h"

#include "tesselctl/CommandError.h"

#include <set>
#include <sstream>

namespace tessel::ctl {

namespace {

    constexpr std::pair<uint64_t, const char*> typeNames[] = {
        { NotificationTypeBadge, "badge" },
        { NotificationTypeSound, "sound" },
        { NotificationTypeAlert, "alert" },
    };

    void onlyKeys(const Json& object, std::set<std::string_view> known, const std::string& where)
    {
        if (!object.is_object())
            throw CommandError::usage(where + " must be a JSON object");
        for (const auto& [key, value] : object.items())
            if (!known.contains(key))
                throw CommandError::usage("unknown key \"" + key + "\" in " + where);
    }

    std::string requiredText(const Json& object, const char* key, const std::string& where)
    {
        auto found = object.find(key);
        if (found == object.end() || !found->is_string() || found->get<std::string>().empty())
            throw CommandError::usage(where + " needs \"" + key + "\", a text that is not empty");
        return found->get<std::string>();
    }

    bool flag(const Json& object, const char* key, const std::string& where)
    {
        auto found = object.find(key);
        if (found == object.end())
            return false;
        if (!found->is_boolean())
            throw CommandError::usage("\"" + std::string(key) + "\" in " + where + " must be true or false");
        return found->get<bool>();
    }

    NotificationActionFields action(const Json& json, const std::string& where)
    {
        onlyKeys(json, { "identifier", "title", "background", "destructive", "text-input" }, where);
        NotificationActionFields action;
        action.identifier = requiredText(json, "identifier", where);
        auto title = json.find("title");
        if (title != json.end() && !title->is_string())
            throw CommandError::usage("\"title\" in " + where + " must be a text");
        action.title = title != json.end() ? title->get<std::string>() : action.identifier;
        action.activationMode = flag(json, "background", where) ? NotificationActionFields::Background
                                                                : NotificationActionFields::Foreground;
        action.behavior
            = flag(json, "text-input", where) ? NotificationActionFields::TextInput : NotificationActionFields::Default;
        action.destructive = flag(json, "destructive", where);
        return action;
    }

    std::string actionText(const NotificationActionFields& action)
    {
        std::string text = action.identifier + " \"" + action.title + "\"";
        std::vector<std::string> traits;
        if (action.activationMode == NotificationActionFields::Background)
            traits.push_back("background");
        if (action.destructive)
            traits.push_back("destructive");
        if (action.behavior == NotificationActionFields::TextInput)
            traits.push_back("text input");
        for (size_t i = 0; i < traits.size(); ++i)
            text += (i ? ", " : " (") + traits[i];
        return traits.empty() ? text : text + ")";
    }

    std::string onOff(const Json& value) { return value.get<bool>() ? "on" : "off"; }

} // namespace

uint64_t SettingsJson::types(std::string_view list)
{
    if (list == "none")
        return 0;
    uint64_t types = 0;
    std::string item;
    std::istringstream items { std::string(list) };
    while (std::getline(items, item, ',')) {
        uint64_t bit = 0;
        for (const auto& [candidate, name] : typeNames)
            if (item == name)
                bit = candidate;
        if (!bit)
            throw CommandError::usage(
                "\"" + item + "\" is not a notification type: give badge, sound and alert, or none");
        types |= bit;
    }
    if (!types)
        throw CommandError::usage("no notification types given: give badge, sound and alert, or none");
    return types;
}

std::string SettingsJson::typesText(uint64_t types)
{
    std::string text;
    for (const auto& [bit, name] : typeNames)
        if (types & bit)
            text += (text.empty() ? "" : ", ") + std::string(name);
    return text.empty() ? "none" : text;
}

Json SettingsJson::typesJson(uint64_t types)
{
    Json list = Json::array();
    for (const auto& [bit, name] : typeNames)
        if (types & bit)
            list.push_back(name);
    return list;
}

std::vector<NotificationCategoryFields> SettingsJson::categories(const Json& list)
{
    if (!list.is_array())
        throw CommandError::usage("the categories must be a JSON array");
    std::vector<NotificationCategoryFields> categories;
    for (const auto& json : list) {
        std::string where = "category " + std::to_string(categories.size() + 1);
        onlyKeys(json, { "identifier", "actions" }, where);
        NotificationCategoryFields category;
        category.identifier = requiredText(json, "identifier", where);
        auto actions = json.find("actions");
        if (actions != json.end() && !actions->is_array())
            throw CommandError::usage("\"actions\" of " + where + " must be an array");
        if (actions != json.end())
            for (const auto& item : *actions)
                category.defaultActions.push_back(action(item,
                    "action " + std::to_string(category.defaultActions.size() + 1) + " of " + where));
        categories.push_back(std::move(category));
    }
    return categories;
}

Json SettingsJson::categoriesJson(const std::vector<NotificationCategoryFields>& categories)
{
    Json list = Json::array();
    for (const auto& category : categories) {
        Json actions = Json::array();
        for (const auto& action : category.defaultActions)
            actions.push_back({ { "identifier", action.identifier }, { "title", action.title },
                { "background", action.activationMode == NotificationActionFields::Background },
                { "destructive", action.destructive },
                { "text-input", action.behavior == NotificationActionFields::TextInput } });
        list.push_back({ { "identifier", category.identifier }, { "actions", actions } });
    }
    return list;
}

Json SettingsJson::settingsJson(const NotificationSettingsFields& settings)
{
    return { { "types", typesJson(settings.types) }, { "categories", categoriesJson(settings.categories) } };
}

Lines SettingsJson::settingsLines(const NotificationSettingsFields& settings)
{
    Lines lines { { "registered types", typesText(settings.types) } };
    for (const auto& category : settings.categories) {
        std::string actions;
        for (const auto& action : category.defaultActions)
            actions += (actions.empty() ? "" : "; ") + actionText(action);
        lines.emplace_back("category " + category.identifier, actions.empty() ? "no actions" : actions);
    }
    return lines;
}

Lines SettingsJson::sectionLines(const Json& section)
{
    Lines lines;
    auto add = [&](const char* key, const char* label, auto show, Json::value_t type) {
        auto found = section.find(key);
        bool number = type == Json::value_t::number_integer;
        if (found != section.end() && (found->type() == type || (number && found->is_number_integer())))
            lines.emplace_back(label, show(*found));
    };
    auto yesNo = [](const Json& value) { return std::string(value.get<bool>() ? "yes" : "no"); };
    auto text = [](const Json& value) { return value.get<std::string>(); };
    auto types = [](const Json& value) { return typesText(static_cast<uint64_t>(value.get<int64_t>())); };
    add("AllowsNotifications", "allows notifications", yesNo, Json::value_t::boolean);
    add("AlertStyle", "alert style", text, Json::value_t::string);
    add("SupportedTypes", "supported types", types, Json::value_t::number_integer);
    add("EnabledTypes", "enabled types", types, Json::value_t::number_integer);
    add("ShowsInLockScreen", "lock screen", onOff, Json::value_t::boolean);
    add("ShowsInNotificationCentre", "notification centre", onOff, Json::value_t::boolean);
    return lines;
}

} // namespace tessel::ctl
