#pragma once

#include "tesselctl/JsonPlist.h"
#include "tesselctl/NotificationJson.h"

#include <tessel/services/Records.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tessel::ctl {

// Notification types and categories as the user writes them and as
// tesselctl shows them, and the readable form of a section's settings.
class SettingsJson {
public:
    // "badge,sound,alert" in any order, or "none"; a usage error otherwise.
    static uint64_t types(std::string_view list);
    static std::string typesText(uint64_t types);
    static Json typesJson(uint64_t types);

    // [{"identifier", "actions": [{"identifier", "title", "background",
    // "destructive", "text-input"}]}]; unknown keys are usage errors, so that
    // a misspelt one is not silently dropped.
    static std::vector<NotificationCategoryFields> categories(const Json& list);
    static Json categoriesJson(const std::vector<NotificationCategoryFields>& categories);

    static Json settingsJson(const NotificationSettingsFields& settings);
    static Lines settingsLines(const NotificationSettingsFields& settings);
    // The daemon's section settings dictionary.
    static Lines sectionLines(const Json& section);
};

} // namespace tessel::ctl
