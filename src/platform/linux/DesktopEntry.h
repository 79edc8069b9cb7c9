#pragma once

#include "platform/foundation/Value.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tessel {

// The [Desktop Entry] group of one desktop entry file (see docs/bundles.md):
//
//     [Desktop Entry]
//     Type=Application
//     Name=Mail
//     Name[de]=Post
//     X-Tessel-Entitlements=push;location
//     X-Tessel-VYAppUsesLocalNotifications=true
//
// Files come from anyone who can write to a data directory, so anything
// malformed or over the bounds fails as a whole. Other groups are checked for
// form and otherwise ignored.
class DesktopEntry {
public:
    static constexpr std::string_view fileExtension = "desktop";
    static constexpr size_t maximumFileLength = 64 * 1024;
    static constexpr size_t maximumLineLength = 4096;
    static constexpr std::string_view tesselKeyPrefix = "X-Tessel-";
    static constexpr std::string_view entitlementsKey = "X-Tessel-Entitlements";

    static std::optional<DesktopEntry> parse(std::string_view text, std::string* error = nullptr);
    static std::optional<DesktopEntry> read(const std::string& path, std::string* error = nullptr);

    // The desktop-file id of a path relative to an applications directory:
    // "kde/org.example.Mail.desktop" -> "kde-org.example.Mail". Empty when the
    // path names no desktop file.
    static std::string desktopFileId(std::string_view relativePath);

    // Type=Application and not Hidden.
    bool isApplication() const { return _type == "Application" && !_hidden; }
    bool isHidden() const { return _hidden; }
    bool noDisplay() const { return _noDisplay; }
    // Started by calling its org.freedesktop.Application interface on the bus.
    bool isDBusActivatable() const { return _dbusActivatable; }
    // Name in the first of localizations ("de-CH", "de", "sr@latin") that has
    // it, each tried as language_COUNTRY@modifier down to language alone; else
    // the plain Name, which may be empty.
    std::string localizedName(const std::vector<std::string>& localizations) const;
    const std::string& iconName() const { return _icon; }
    // Each name of X-Tessel-Entitlements, granted as true.
    const Value::Dictionary& entitlements() const { return _entitlements; }
    // The other X-Tessel-<Key> keys as <Key>: true/false as booleans, decimal
    // integers as numbers, anything else as strings.
    const Value::Dictionary& info() const { return _info; }

private:
    void take(std::string_view key, std::string_view locale, std::string_view value);

    std::string _type;
    std::string _name;
    // By locale without its encoding ("de_DE@euro").
    std::map<std::string, std::string, std::less<>> _localizedNames;
    std::string _icon;
    bool _hidden = false;
    bool _noDisplay = false;
    bool _dbusActivatable = false;
    Value::Dictionary _entitlements;
    Value::Dictionary _info;
};

} // namespace tessel
