#pragma once

#include "platform/foundation/Archivable.h"
#include "platform/records/NotificationAction.h"

#include <memory>
#include <string>
#include <vector>

namespace tessel {

class KeyedUnarchiver;
class NotificationCategory;

using NotificationActions = std::vector<std::shared_ptr<NotificationAction>>;
// A set: no two members are equal. Kept in the order the members came in.
using NotificationCategories = std::vector<std::shared_ptr<NotificationCategory>>;

// A named group of actions; a notification names its category to get its buttons.
class NotificationCategory : public Archivable {
public:
    static constexpr const char* archivedClassName = "NotificationCategory";

    NotificationCategory() = default;
    explicit NotificationCategory(std::string identifier);

    const std::string& identifier() const { return _identifier; }
    void setIdentifier(std::string identifier) { _identifier = std::move(identifier); }

    // Contexts other than the minimal one read and write the default list.
    const NotificationActions& actionsForContext(int64_t context) const;
    void setActions(NotificationActions actions, int64_t context);

    // The set of the given categories: nulls and repeated equal members dropped.
    static NotificationCategories uniqued(const NotificationCategories& categories);

    std::string className() const override { return archivedClassName; }
    void encodeWithCoder(KeyedArchiver& coder) const override;
    std::string description() const override;
    bool isEqual(const Archivable& other) const override;

    static std::shared_ptr<NotificationCategory> decode(KeyedUnarchiver& coder);

private:
    std::string _identifier;
    NotificationActions _defaultActions;
    NotificationActions _minimalActions;
};

} // namespace tessel
