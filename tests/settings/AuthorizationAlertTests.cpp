#include "settings/SettingsFixture.h"

#include "core/KTNotificationLocalizedString.h"
#include "platform/applications/Bundle.h"
#include "settings/KTNotificationAuthorizationAlertController.h"

#include <atomic>
#include <cstdlib>
#include <tessel/Tessel.h>

using namespace tessel;
using namespace tessel::testing;

namespace {

class AuthorizationAlert : public SettingsFixture {
protected:
    void SetUp() override
    {
        SettingsFixture::SetUp();
        // The host's texts, in its own bundle's "Vantry" table.
        ASSERT_TRUE(workspace().install({ .identifier = "com.tamber.vantry",
            .strings = { { "en",
                { { "Vantry",
                    { { "USER_NOTIFICATION_PERMISSION_ALERT_TITLE",
                          "“%@” Would Like to Send You Notifications" },
                        { "USER_NOTIFICATION_PERMISSION_ALERT_BODY", "Notifications may include alerts." },
                        { "USER_NOTIFICATION_PERMISSION_ALERT_ALLOW", "Allow" },
                        { "USER_NOTIFICATION_PERMISSION_ALERT_DENY", "Don’t Allow" } } } } } } }));
        device.platform().hostBundlePath = workspace().bundlePathForInstall("com.tamber.vantry");
    }

    // Requests on the controller's queue and records the answers in order.
    void request(const std::string& bundleIdentifier)
    {
        queue->async([this, bundleIdentifier] {
            controller->requestAuthorizationForBundleIdentifier(bundleIdentifier, [this](int64_t result) {
                std::lock_guard lock(resultsLock);
                results.push_back(result);
            });
        });
        device.waitUntilIdle();
    }

    std::vector<int64_t> answered()
    {
        std::lock_guard lock(resultsLock);
        return results;
    }

    std::shared_ptr<WorkQueue> queue = WorkQueue::create("com.tamber.KTNotificationSettingsService");
    std::shared_ptr<KTNotificationAuthorizationAlertController> controller
        = std::make_shared<KTNotificationAuthorizationAlertController>(queue);
    std::mutex resultsLock;
    std::vector<int64_t> results;
};

TEST_F(AuthorizationAlert, OneAlertAnswersEveryWaitingCallerInOrder)
{
    request(app);
    request(app);
    ASSERT_EQ(alertsShown(), 1u);
    EXPECT_TRUE(answered().empty());

    answerAlert(0, SystemAlertDefaultResponse);
    EXPECT_EQ(answered(), (std::vector<int64_t> { 1, 1 }));
    EXPECT_EQ(device.systemAlerts().shown()[0].dictionary,
        Value(Value::Dictionary {
            { SystemAlertHeaderKey, "“Example” Would Like to Send You Notifications" },
            { SystemAlertMessageKey, "Notifications may include alerts." },
            { SystemAlertDefaultButtonTitleKey, "Allow" },
            { SystemAlertAlternateButtonTitleKey, "Don’t Allow" },
            { kKTNotificationAuthorizationAlertBundleIdentifierKey, "com.example.app" },
        }));
}

TEST_F(AuthorizationAlert, EachAnswerIsPassedOnAndTheNextRequestAsksAgain)
{
    // Anything but the two buttons is neither yes nor no.
    std::pair<int64_t, int64_t> cases[]
        = { { SystemAlertDefaultResponse, 1 }, { SystemAlertAlternateResponse, 0 },
              { SystemAlertCancelResponse, -1 }, { 2, -1 }, { -1, -1 }, { 0x100, -1 } };
    for (auto [response, result] : cases) {
        results.clear();
        userAnswers(response);
        request(app);
        EXPECT_EQ(answered(), std::vector<int64_t> { result }) << response;
    }
    EXPECT_EQ(alertsShown(), std::size(cases));
}

TEST_F(AuthorizationAlert, AnAlertThatCannotBeShownLeavesTheCallersWaiting)
{
    device.systemAlerts().scriptCreationFailure();
    request(app);
    request(app);
    EXPECT_TRUE(answered().empty());
    EXPECT_EQ(alertsShown(), 0u);
    EXPECT_TRUE(
        device.systemLog().contains("Could not show the notification permission alert for com.example.app"));
}

TEST_F(AuthorizationAlert, TheCInterfaceHopsToTheMainQueue)
{
    std::atomic<int> answer = 99;
    userAnswers(SystemAlertDefaultResponse);
    KTShowNotificationAuthorizationAlert(
        "com.example.app", "Example",
        [](void* context, int result) { static_cast<std::atomic<int>*>(context)->store(result); }, &answer);
    device.waitUntilIdle();
    EXPECT_EQ(answer, 1);
}

TEST_F(AuthorizationAlert, LocalizedStringsFallBackFromBundleToDefaultToKey)
{
    ASSERT_TRUE(workspace().install({ .identifier = "com.example.texts",
        .strings
        = { { "en", { { "Localizable", { { "GREETING", "Hello %@ and %2$@" }, { "EMPTY", "" } } } } } } }));
    auto bundle = Bundle::bundleWithPath(workspace().bundlePathForInstall("com.example.texts"));
    Value arguments(Value::Array { Value("Ann"), Value("Bo") });
    struct {
        Value key, defaultValue;
        std::shared_ptr<Bundle> bundle;
        std::optional<std::string> expected;
    } cases[] = {
        { "GREETING", {}, bundle, "Hello Ann and Bo" },
        { "MISSING", "Default %@", bundle, "Default %@" },
        { "EMPTY", "Fallback", bundle, "Fallback" },
        { "GREETING", "Default", nullptr, "Default" },
        { "", "", bundle, std::nullopt },
        { Value(5), Value(6), bundle, std::nullopt },
        { Value(5), "Default", bundle, "Default" },
    };
    for (const auto& c : cases)
        EXPECT_EQ(KTNotificationLocalizedString(c.key, c.defaultValue, c.bundle, arguments), c.expected)
            << c.key.description();

    const char* cArguments[] = { "Cy", nullptr };
    auto path = workspace().bundlePathForInstall("com.example.texts");
    char* text = ::KTNotificationLocalizedString("GREETING", nullptr, path.c_str(), cArguments, 2);
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text, "Hello Cy and (null)");
    free(text);
    EXPECT_EQ(::KTNotificationLocalizedString(nullptr, "", nullptr, nullptr, 0), nullptr);
}

} // namespace
