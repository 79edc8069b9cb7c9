#pragma once

#include "platform/foundation/Value.h"

#include <memory>
#include <string>

namespace tessel {

// The platform's record of one application, as the registry knows it.
class ApplicationProxy {
public:
    struct Fields {
        std::string bundleIdentifier;
        bool installed = true;
        // "System" for system applications, "User" otherwise.
        std::string applicationType = "User";
        // Empty when the application has no bundle location.
        std::string bundlePath;
        // Empty when the application has no data container.
        std::string dataContainerPath;
        std::string localizedName;
        // Dictionary of entitlement name to value.
        Value entitlements;
        // The manifest keys of an application without a bundle; a bundle's
        // manifest is read from the bundle instead.
        Value infoDictionary;
        // A themed icon name or an absolute path; empty when none.
        std::string iconName;
    };

    explicit ApplicationProxy(Fields fields)
        : _fields(std::move(fields))
    {
    }

    // The record of the default workspace for the identifier, or null when unknown.
    static std::shared_ptr<ApplicationProxy> applicationProxyForIdentifier(
        const std::string& bundleIdentifier);

    const std::string& bundleIdentifier() const { return _fields.bundleIdentifier; }
    bool isInstalled() const { return _fields.installed; }
    const std::string& applicationType() const { return _fields.applicationType; }
    const std::string& bundlePath() const { return _fields.bundlePath; }
    const std::string& dataContainerPath() const { return _fields.dataContainerPath; }
    const std::string& localizedName() const { return _fields.localizedName; }
    const Value& entitlements() const { return _fields.entitlements; }
    const Value& entitlementValueForKey(std::string_view key) const { return _fields.entitlements[key]; }
    const Value& infoDictionary() const { return _fields.infoDictionary; }
    const std::string& iconName() const { return _fields.iconName; }

private:
    Fields _fields;
};

} // namespace tessel
