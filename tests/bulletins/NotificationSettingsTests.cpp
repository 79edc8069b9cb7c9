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

TEST(NotificationSettings, RoundTripsThroughAKeyedArchive)
{
    NotificationSettings::registerArchivableClasses();
    NotificationSettings::registerArchivableClasses();
    auto reply = action("reply", "Reply");
    reply->setBehavior(NotificationAction::BehaviorTextInput);
    reply->setParameters({ { "submit", "Send" } });
    reply->setActivationMode(NotificationAction::ActivationModeBackground);
    auto remove = action("delete", "Delete");
    remove->setDestructive(true);
    remove->setAuthenticationRequired(true);
    auto settings = NotificationSettings::settingsForTypes(
        NotificationSettings::TypeAlert | NotificationSettings::TypeBadge,
        { category("mail", { reply, remove }, { remove }), category("chat", { reply }) });

    auto data = KeyedArchive::archivedData(Value(settings));
    ASSERT_TRUE(data);
    auto decoded = KeyedArchive::unarchive(*data);
    ASSERT_TRUE(decoded);
    auto copy = decoded->objectAs<NotificationSettings>();
    ASSERT_TRUE(copy);
    EXPECT_TRUE(copy->isEqual(*settings)) << copy->description();
    ASSERT_EQ(copy->categories().size(), 2u);
    const auto& actions = copy->categories()[0]->actionsForContext(NotificationAction::ContextDefault);
    ASSERT_EQ(actions.size(), 2u);
    EXPECT_TRUE(actions[0]->isEqual(*reply));
    EXPECT_TRUE(actions[1]->isDestructive());
    EXPECT_TRUE(actions[1]->isAuthenticationRequired());

    // Any field changed makes them differ.
    auto other = action("reply", "Reply");
    EXPECT_FALSE(other->isEqual(*reply));
    EXPECT_FALSE(category("mail", { reply })->isEqual(*category("mail", { reply }, { reply })));
}

TEST(NotificationSettings, SetsHoldNoTwoEqualCategoriesInAnyOrder)
{
    auto a = category("a", { action("x", "X") });
    auto settings
        = NotificationSettings::settingsForTypes(1, { a, nullptr, category("a", { action("x", "X") }) });
    EXPECT_EQ(settings->categories().size(), 1u);

    auto b = category("b", {});
    EXPECT_TRUE(NotificationSettings::settingsForTypes(1, { a, b })
                    ->isEqual(*NotificationSettings::settingsForTypes(1, { b, a })));
    EXPECT_FALSE(NotificationSettings::settingsForTypes(1, { a, b })
                     ->isEqual(*NotificationSettings::settingsForTypes(3, { b, a })));
}

TEST(NotificationSettings, ValidatedCopyKeepsWhatCanBeShown)
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
    EXPECT_EQ(validated->types(), NotificationSettings::allTypes);
    ASSERT_EQ(validated->categories().size(), 1u);
    const auto& kept = validated->categories()[0];
    EXPECT_EQ(kept->identifier(), "first");
    const auto& actions = kept->actionsForContext(NotificationAction::ContextDefault);
    ASSERT_EQ(actions.size(), 1u);
    EXPECT_EQ(actions[0]->title(), "X");
    EXPECT_EQ(kept->actionsForContext(NotificationAction::ContextMinimal).size(), 1u);
    // A copy: the original is untouched.
    EXPECT_EQ(original->categories().size(), 3u);
    EXPECT_EQ(original->types(), 0xffu);
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

TEST(NotificationSettings, ForeignObjectsInACategoryAreLeftOut)
{
    NotificationSettings::registerArchivableClasses();
    auto data = KeyedArchive::archivedData(Value(std::make_shared<ForgedCategory>()));
    ASSERT_TRUE(data);
    auto decoded = KeyedArchive::unarchive(*data);
    ASSERT_TRUE(decoded);
    auto mail = decoded->objectAs<NotificationCategory>();
    ASSERT_TRUE(mail);
    EXPECT_TRUE(mail->isEqual(*category("mail", { action("ok", "OK") })));
}

} // namespace
