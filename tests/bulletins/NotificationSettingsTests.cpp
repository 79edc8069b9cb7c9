#include "platform/archive/KeyedArchive.h"
#include "platform/archive/KeyedArchiver.h"
#include "platform/records/NotificationSettings.h"

#include <gtest/gtest.h>

using namespace tessel;

namespace {

std::shared_ptr<NotificationAction> action(std::string identifier, std::string title)
{
    return std::make_shared<NotificationAction>(std::move(identifier), std::move(title));
}

std::shared_ptr<NotificationCategory> category(
    std::string identifier, NotificationActions defaults, NotificationActions minimal = {})
{
    auto category = std::make_shared<NotificationCategory>(std::move(identifier));
    category->setActions(std::move(defaults), NotificationAction::ContextDefault);
    category->setActions(std::move(minimal), NotificationAction::ContextMinimal);
    return category;
}

// Archives as a category whose lists hold things other than actions.
class ForgedCategory : public Archivable {
public:
    std::string className() const override { return NotificationCategory::archivedClassName; }
    void encodeWithCoder(KeyedArchiver& coder) const override
    {
        coder.encodeObject("mail", "identifier");
        coder.encodeObject(Value(Value::Array { Value(NotificationSettings::settingsForTypes(1, {})),
                               Value("x"), Value(action("ok", "OK")) }),
            "defaultActions");
        coder.encodeObject(Value(42), "minimalActions");
    }
};

template <typename T> std::shared_ptr<T> roundTrip(const Value& value)
{
    auto data = KeyedArchive::archivedData(value);
    auto decoded = data ? KeyedArchive::unarchive(*data) : std::nullopt;
    return decoded ? decoded->objectAs<T>() : nullptr;
}

TEST(NotificationSettings, RoundTripsThroughAKeyedArchive)
{
    NotificationSettings::registerArchivableClasses();
    NotificationSettings::registerArchivableClasses();
    auto reply = action("reply", "Reply");
    reply->setBehavior(NotificationAction::BehaviorTextInput);
    auto remove = action("delete", "Delete");
    auto settings = NotificationSettings::settingsForTypes(
        NotificationSettings::TypeAlert | NotificationSettings::TypeBadge,
        { category("mail", { reply, remove }, { remove }), category("chat", { reply }) });

    auto copy = roundTrip<NotificationSettings>(Value(settings));
    ASSERT_TRUE(copy);
    EXPECT_TRUE(copy->isEqual(*settings)) << copy->description();

    // Any field changed makes them differ.
    EXPECT_FALSE(action("reply", "Reply")->isEqual(*reply));
    EXPECT_FALSE(category("mail", { reply })->isEqual(*category("mail", { reply }, { reply })));

    // Whatever else a category's lists hold is left out.
    auto mail = roundTrip<NotificationCategory>(Value(std::make_shared<ForgedCategory>()));
    ASSERT_TRUE(mail);
    EXPECT_TRUE(mail->isEqual(*category("mail", { action("ok", "OK") })));
}

TEST(NotificationSettings, ValidatedCopiesKeepWhatCanBeShown)
{
    auto original = NotificationSettings::settingsForTypes(0xff,
        {
            category("", { action("x", "X") }),
            category("first",
                { action("x", "X"), action("", "No identifier"), action("y", ""), action("x", "Again") },
                { action("m", "M") }),
            category("first", { action("z", "Z") }),
        });
    auto validated = original->validatedSettings();
    auto expected = NotificationSettings::settingsForTypes(
        NotificationSettings::allTypes, { category("first", { action("x", "X") }, { action("m", "M") }) });
    EXPECT_TRUE(validated->isEqual(*expected)) << validated->description();
    EXPECT_EQ(original->categories().size(), 3u) << "a copy: the original is untouched";
}

} // namespace
