#pragma once

#include "platform/foundation/Value.h"

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tessel {

// An application's bundle directory (see docs/bundles.md):
//
//     Example.tapp/
//         Manifest.plist          the info dictionary
//         ding.caf ...            resources
//         en.lang/Localizable.strings, en.lang/ding.caf ...
//
// Everything in it comes from the application and is treated as hostile.
// Thread-safe; string tables are read once per Bundle object.
class Bundle {
public:
    static constexpr std::string_view bundleExtension = "tapp";
    static constexpr std::string_view manifestFileName = "Manifest.plist";
    static constexpr std::string_view localizationExtension = "lang";
    static constexpr std::string_view stringTableExtension = "strings";
    // The table that localizes manifest values, keyed like the manifest.
    static constexpr std::string_view manifestTableName = "Manifest";

    static constexpr std::string_view identifierKey = "Identifier";
    static constexpr std::string_view displayNameKey = "DisplayName";
    static constexpr std::string_view applicationTypeKey = "ApplicationType";
    static constexpr std::string_view executableKey = "Executable";
    static constexpr std::string_view entitlementsKey = "Entitlements";
    static constexpr std::string_view developmentLocalizationKey = "DevelopmentLocalization";

    static constexpr size_t maximumManifestLength = 1024 * 1024;

    // Null when the path is not a readable directory.
    static std::shared_ptr<Bundle> bundleWithPath(const std::string& path);

    const std::string& bundlePath() const { return _path; }
    // Empty when the manifest has no string identifier.
    std::string bundleIdentifier() const;
    // A missing or malformed manifest reads as an empty dictionary.
    const Value& infoDictionary() const { return _info; }
    // Why the manifest reads as empty; empty when it was read.
    const std::string& manifestError() const { return _manifestError; }
    // The bundle directory itself: resources sit beside the manifest.
    std::string resourcePath() const { return _path; }

    // Full path of an existing resource, or empty. With an empty type the name
    // is taken as given. Looks in the resource directory, then the preferred
    // localizations, then the development localization. Names that climb out
    // of the bundle ("..", a leading "/") find nothing.
    std::string pathForResource(std::string_view name, std::string_view type) const;
    // Names of the localization directories, sorted.
    std::vector<std::string> localizations() const;
    // The manifest's DevelopmentLocalization, "en" when absent.
    std::string developmentLocalization() const;
    // key in table (empty: "Localizable") of the first preferred localization
    // that has it, then of the development localization; otherwise value when
    // non-empty, else key.
    // The text of key in table (empty = "Localizable") of the first search
    // localization that has it; absent when none has.
    std::optional<std::string> stringForKey(std::string_view key, std::string_view table) const;
    std::string localizedStringForKey(
        std::string_view key, std::string_view value, std::string_view table) const;
    // DisplayName from the Manifest table, else the manifest's, else the identifier.
    std::string localizedDisplayName() const;

    // Localizations to search, best first: each preferred one, then its
    // language alone ("de-CH" -> "de"), then the development localization.
    std::vector<std::string> searchLocalizations() const;

    explicit Bundle(std::string path);

private:
    // A dictionary, or null for a missing or malformed table.
    Value table(const std::string& localization, std::string_view name) const;

    std::string _path;
    Value _info;
    std::string _manifestError;

    mutable std::mutex _tablesLock;
    // "<localization>/<table>" to what table() answers.
    mutable std::map<std::string, Value, std::less<>> _tables;
};

} // namespace tessel
