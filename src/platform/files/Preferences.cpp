#include "platform/files/Preferences.h"

#include "platform/archive/PropertyList.h"
#include "platform/files/FileManager.h"
#include "platform/files/Path.h"

namespace tessel {

Preferences::Preferences(std::string preferencesDirectory)
    : _directory(std::move(preferencesDirectory))
{
}

void Preferences::setFailureHandler(FailureHandler handler)
{
    std::lock_guard lock(_lock);
    _failureHandler = std::move(handler);
}

bool Preferences::isValidDomainName(std::string_view domain)
{
    return !domain.empty() && domain != "." && domain.find('/') == std::string_view::npos
        && domain.find("..") == std::string_view::npos && domain.find('\0') == std::string_view::npos;
}

std::string Preferences::pathForDomain(std::string_view domain) const
{
    return Path::appendingComponent(_directory, std::string(domain) + ".plist");
}

void Preferences::reportFailure(const std::string& message)
{
    if (_failureHandler)
        _failureHandler(message);
}

const Value::Dictionary& Preferences::domainLocked(std::string_view domain)
{
    static const Value::Dictionary empty;
    if (!isValidDomainName(domain))
        return empty;
    if (auto found = _domains.find(domain); found != _domains.end())
        return found->second;

    Value::Dictionary contents;
    std::string path = pathForDomain(domain);
    std::string error;
    if (FileManager::fileExistsAtPath(path)) {
        if (auto bytes = FileManager::contentsAtPath(path, &error, PropertyList::maximumInputLength)) {
            if (auto value = PropertyList::read(*bytes, &error); value && value->isDictionary())
                contents = value->dictionaryValue();
            else
                reportFailure("preferences " + path + ": " + (value ? "root is not a dictionary" : error));
        } else {
            reportFailure("preferences " + error);
        }
    }
    return _domains.emplace(std::string(domain), std::move(contents)).first->second;
}

Value Preferences::valueForKey(std::string_view key, std::string_view domain)
{
    std::lock_guard lock(_lock);
    const auto& contents = domainLocked(domain);
    auto found = contents.find(key);
    return found == contents.end() ? Value() : found->second;
}

bool Preferences::boolForKey(std::string_view key, std::string_view domain)
{
    return valueForKey(key, domain).boolValue();
}

int64_t Preferences::integerForKey(std::string_view key, std::string_view domain)
{
    return valueForKey(key, domain).integerValue();
}

double Preferences::doubleForKey(std::string_view key, std::string_view domain)
{
    return valueForKey(key, domain).doubleValue();
}

std::string Preferences::stringForKey(std::string_view key, std::string_view domain)
{
    return valueForKey(key, domain).stringValue();
}

bool Preferences::hasValueForKey(std::string_view key, std::string_view domain)
{
    return !valueForKey(key, domain).isNull();
}

bool Preferences::setValue(const Value& value, std::string_view key, std::string_view domain)
{
    if (!isValidDomainName(domain))
        return false;
    std::lock_guard lock(_lock);
    Value::Dictionary contents = domainLocked(domain);
    if (value.isNull())
        contents.erase(std::string(key));
    else
        contents.insert_or_assign(std::string(key), value);

    std::string error;
    auto bytes = PropertyList::data(Value(contents), PropertyList::Format::Binary, &error);
    if (!bytes) {
        reportFailure("preferences " + pathForDomain(domain) + ": " + error);
        return false;
    }
    if (!FileManager::createDirectoryAtPath(_directory, true, &error)
        || !FileManager::writeAtomically(pathForDomain(domain), *bytes, &error)) {
        reportFailure("preferences " + error);
        return false;
    }
    _domains.insert_or_assign(std::string(domain), std::move(contents));
    return true;
}

void Preferences::reload()
{
    std::lock_guard lock(_lock);
    _domains.clear();
}

void Preferences::reload(std::string_view domain)
{
    std::lock_guard lock(_lock);
    auto found = _domains.find(domain);
    if (found != _domains.end())
        _domains.erase(found);
}

} // namespace tessel
