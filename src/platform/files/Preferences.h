#pragma once

#include "platform/foundation/Value.h"

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

namespace tessel {

// Named domains of settings, each a binary property list
// "<directory>/<domain>.plist" holding a dictionary. Domains are read on first
// use and cached until reload(). Thread-safe.
//
// A domain file that is missing, unreadable, not a property list or not a
// dictionary reads as empty; the reason goes to the failure handler when one
// is set (a missing file is not a failure). The handler runs under the lock
// and must not call back into this object. Domain names that could reach
// outside the directory ("", ".", anything with "/", ".." or NUL) are refused:
// they read empty and cannot be written.
class Preferences {
public:
    using FailureHandler = std::function<void(const std::string& message)>;

    explicit Preferences(std::string preferencesDirectory);

    const std::string& directory() const { return _directory; }
    void setFailureHandler(FailureHandler handler);

    Value valueForKey(std::string_view key, std::string_view domain);
    // Absent is false; strings such as "YES" count as true.
    bool boolForKey(std::string_view key, std::string_view domain);
    int64_t integerForKey(std::string_view key, std::string_view domain);
    double doubleForKey(std::string_view key, std::string_view domain);
    std::string stringForKey(std::string_view key, std::string_view domain);
    bool hasValueForKey(std::string_view key, std::string_view domain);

    // Null removes the key. The domain is written durably before this returns;
    // false (and nothing changed) when it cannot be.
    bool setValue(const Value& value, std::string_view key, std::string_view domain);

    // Forgets every cached domain so the next read sees the files as they are now.
    void reload();
    // Forgets one domain only, for values another process keeps changing.
    void reload(std::string_view domain);

    static bool isValidDomainName(std::string_view domain);

private:
    std::string pathForDomain(std::string_view domain) const;
    const Value::Dictionary& domainLocked(std::string_view domain);
    void reportFailure(const std::string& message);

    const std::string _directory;
    std::mutex _lock;
    std::map<std::string, Value::Dictionary, std::less<>> _domains;
    FailureHandler _failureHandler;
};

} // namespace tessel
