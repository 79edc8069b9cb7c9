#pragma once

#include "platform/foundation/Archivable.h"
#include "platform/records/NotificationCategory.h"

#include <cstdint>
#include <memory>
#include <string>

namespace tessel {

class KeyedUnarchiver;

// What an application asks to show: notification types and action categories.
class NotificationSettings : public Archivable {
public:
    static constexpr const char* archivedClassName = "NotificationSettings";

    // Bits of types().
    enum Type : uint64_t { TypeNone = 0, TypeBadge = 1, TypeSound = 2, TypeAlert = 4 };
    static constexpr uint64_t allTypes = TypeBadge | TypeSound | TypeAlert;

    static std::shared_ptr<NotificationSettings> settingsForTypes(
        uint64_t types, const NotificationCategories& categories);
    // Registers the settings, category and action classes with KeyedArchive;
    // idempotent. Anything that unarchives them calls it first.
    static void registerArchivableClasses();

    uint64_t types() const { return _types; }
    const NotificationCategories& categories() const { return _categories; }

    // A copy fit to keep: unknown type bits dropped; categories without an
    // identifier dropped, and of several with one identifier the first kept;
    // within a category, actions without identifier or title dropped, and of
    // several with one identifier the first kept.
    std::shared_ptr<NotificationSettings> validatedSettings() const;

    std::string className() const override { return archivedClassName; }
    void encodeWithCoder(KeyedArchiver& coder) const override;
    std::string description() const override;
    bool isEqual(const Archivable& other) const override;

    static std::shared_ptr<NotificationSettings> decode(KeyedUnarchiver& coder);

private:
    uint64_t _types = TypeNone;
    NotificationCategories _categories;
};

} // namespace tessel
