#include "platform/linux/DesktopEntry.h"

#include "platform/files/FileManager.h"
#include "platform/files/Path.h"
#include "platform/foundation/Utf8.h"

#include <algorithm>
#include <charconv>

namespace tessel {

namespace {

    bool isAsciiAlphanumeric(char c)
    {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
    }

    bool isKey(std::string_view key)
    {
        return !key.empty()
            && std::all_of(key.begin(), key.end(), [](char c) { return isAsciiAlphanumeric(c) || c == '-'; });
    }

    bool isLocale(std::string_view locale)
    {
        return !locale.empty() && std::all_of(locale.begin(), locale.end(), [](char c) {
            return isAsciiAlphanumeric(c) || c == '_' || c == '-' || c == '.' || c == '@';
        });
    }

    bool isGroupName(std::string_view name)
    {
        return !name.empty() && std::none_of(name.begin(), name.end(), [](char c) {
            return c == '[' || c == ']' || (static_cast<unsigned char>(c) < 0x20) || c == 0x7f;
        });
    }

    std::string_view trimmedFront(std::string_view text)
    {
        auto start = text.find_first_not_of(" \t");
        return start == std::string_view::npos ? std::string_view() : text.substr(start);
    }

    std::string_view trimmedBack(std::string_view text)
    {
        auto end = text.find_last_not_of(" \t");
        return end == std::string_view::npos ? std::string_view() : text.substr(0, end + 1);
    }

    // "de_DE.UTF-8@euro" -> "de_DE@euro": the encoding plays no part in matching.
    std::string withoutEncoding(std::string_view locale)
    {
        auto dot = locale.find('.');
        if (dot == std::string_view::npos)
            return std::string(locale);
        auto at = locale.find('@', dot);
        return std::string(locale.substr(0, dot))
            + std::string(at == std::string_view::npos ? "" : locale.substr(at));
    }

    // Unknown escapes stay as written: they belong to keys we do not read
    // (Exec quotes differently) and are no reason to refuse a file.
    std::string unescape(std::string_view value, bool listItem = false)
    {
        std::string result;
        result.reserve(value.size());
        for (size_t i = 0; i < value.size(); ++i) {
            if (value[i] != '\\' || i + 1 == value.size()) {
                result += value[i];
                continue;
            }
            char next = value[++i];
            switch (next) {
            case 's':
                result += ' ';
                break;
            case 'n':
                result += '\n';
                break;
            case 't':
                result += '\t';
                break;
            case 'r':
                result += '\r';
                break;
            case '\\':
                result += '\\';
                break;
            default:
                if (!(listItem && next == ';'))
                    result += '\\';
                result += next;
            }
        }
        return result;
    }

    // Items end at an unescaped ";"; empty ones (a trailing ";" is customary) are dropped.
    std::vector<std::string> splitList(std::string_view value)
    {
        std::vector<std::string> items;
        size_t start = 0;
        for (size_t i = 0; i <= value.size(); ++i) {
            if (i < value.size() && value[i] == '\\' && i + 1 < value.size()) {
                ++i;
                continue;
            }
            if (i == value.size() || value[i] == ';') {
                if (i > start)
                    items.push_back(unescape(value.substr(start, i - start), true));
                start = i + 1;
            }
        }
        return items;
    }

    Value typedValue(std::string text)
    {
        if (text == "true" || text == "false")
            return text == "true";
        int64_t number = 0;
        const char* end = text.data() + text.size();
        auto [stop, failure] = std::from_chars(text.data(), end, number);
        if (!text.empty() && failure == std::errc() && stop == end)
            return number;
        return text;
    }

} // namespace

std::optional<DesktopEntry> DesktopEntry::parse(std::string_view text, std::string* error)
{
    auto refuse = [error](std::string why) -> std::optional<DesktopEntry> {
        if (error)
            *error = std::move(why);
        return std::nullopt;
    };
    if (text.size() > maximumFileLength)
        return refuse("longer than " + std::to_string(maximumFileLength) + " bytes");
    if (!Utf8::isValid(text, false))
        return refuse("not UTF-8 text");
    DesktopEntry entry;
    enum class Group { None, DesktopEntry, Other } group = Group::None;
    bool sawDesktopEntry = false;
    size_t lineNumber = 0;
    for (size_t start = 0; start < text.size();) {
        auto end = std::min(text.find('\n', start), text.size());
        auto line = text.substr(start, end - start);
        start = end + 1;
        auto where = " on line " + std::to_string(++lineNumber);
        if (line.size() > maximumLineLength)
            return refuse("line too long" + where);
        line = trimmedBack(trimmedFront(line.ends_with('\r') ? line.substr(0, line.size() - 1) : line));
        if (line.empty() || line.front() == '#')
            continue;
        if (line.front() == '[') {
            auto name = line.substr(1, line.size() - 2);
            if (!line.ends_with(']') || line.size() < 2 || !isGroupName(name))
                return refuse("malformed group header" + where);
            if (name == "Desktop Entry" && sawDesktopEntry)
                return refuse("second [Desktop Entry] group" + where);
            sawDesktopEntry = sawDesktopEntry || name == "Desktop Entry";
            group = name == "Desktop Entry" ? Group::DesktopEntry : Group::Other;
            continue;
        }
        auto equals = line.find('=');
        if (group == Group::None || equals == std::string_view::npos)
            return refuse("not a key in a group, a group or a comment" + where);
        auto key = trimmedBack(line.substr(0, equals));
        std::string_view locale;
        if (auto open = key.find('['); open != std::string_view::npos) {
            locale = key.substr(open + 1, key.size() - open - 2);
            if (!key.ends_with(']') || !isLocale(locale))
                return refuse("malformed locale" + where);
            key = key.substr(0, open);
        }
        if (!isKey(key))
            return refuse("malformed key" + where);
        if (group == Group::DesktopEntry)
            entry.take(key, locale, trimmedFront(line.substr(equals + 1)));
    }
    if (!sawDesktopEntry)
        return refuse("no [Desktop Entry] group");
    return entry;
}

std::optional<DesktopEntry> DesktopEntry::read(const std::string& path, std::string* error)
{
    auto bytes = FileManager::contentsAtPath(path, error, maximumFileLength);
    if (!bytes)
        return std::nullopt;
    return parse(std::string_view(reinterpret_cast<const char*>(bytes->data()), bytes->size()), error);
}

std::string DesktopEntry::desktopFileId(std::string_view relativePath)
{
    if (Path::extension(relativePath) != fileExtension)
        return {};
    std::string id(relativePath.substr(0, relativePath.size() - fileExtension.size() - 1));
    std::replace(id.begin(), id.end(), '/', '-');
    return id;
}

// Later keys replace earlier ones; localized forms count only for Name.
void DesktopEntry::take(std::string_view key, std::string_view locale, std::string_view value)
{
    if (key == "Name") {
        (locale.empty() ? _name : _localizedNames[withoutEncoding(locale)]) = unescape(value);
        return;
    }
    if (!locale.empty())
        return;
    if (key == "Type")
        _type = unescape(value);
    else if (key == "Icon")
        _icon = unescape(value);
    else if (key == "Hidden")
        _hidden = value == "true";
    else if (key == "NoDisplay")
        _noDisplay = value == "true";
    else if (key == "DBusActivatable")
        _dbusActivatable = value == "true";
    else if (key == entitlementsKey) {
        _entitlements.clear();
        for (auto& name : splitList(value))
            _entitlements[std::move(name)] = true;
    } else if (key.starts_with(tesselKeyPrefix) && key.size() > tesselKeyPrefix.size())
        _info[std::string(key.substr(tesselKeyPrefix.size()))] = typedValue(unescape(value));
}

std::string DesktopEntry::localizedName(const std::vector<std::string>& localizations) const
{
    for (const auto& preferred : localizations) {
        auto locale = withoutEncoding(preferred);
        std::replace(locale.begin(), locale.end(), '-', '_');
        auto at = locale.find('@');
        auto modifier = at == std::string::npos ? std::string() : locale.substr(at);
        auto country = locale.substr(0, at);
        auto language = country.substr(0, country.find('_'));
        for (const auto& candidate : { country + modifier, country, language + modifier, language }) {
            auto found = _localizedNames.find(candidate);
            if (found != _localizedNames.end() && !found->second.empty())
                return found->second;
        }
    }
    return _name;
}

} // namespace tessel
