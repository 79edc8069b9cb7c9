#include "core/KTNotificationLocalizedString.h"
#include "platform/alerts/SystemAlert.h"
#include "platform/applications/Bundle.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/sim/CapturedSystemLog.h"
#include "platform/sim/SimulatedApplicationWorkspace.h"
#include "platform/sim/SimulatedDevice.h"
#include "platform/sim/SimulatedSystemAlerts.h"
#include "settings/KTNotificationAuthorizationAlertController.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <mutex>
#include <tessel/Tessel.h>

using namespace tessel;

namespace {

class AuthorizationAlert : public testing::Test {
protected:
    void SetUp() override
    {
        auto& workspace = device.applicationWorkspace();
        ASSERT_TRUE(workspace.install({ .identifier = "com.example.app", .displayName = "Example" }));
        ASSERT_TRUE(workspace.install({ .identifier = "com.tamber.system", .type = "System" }));
        // The host's texts, in its own bundle's "Vantry" table.
        ASSERT_TRUE(workspace.install({ .identifier = "com.tamber.vantry",
            .strings = { { "en",
                { { "Vantry",
                    { { "USER_NOTIFICATION_PERMISSION_ALERT_TITLE",
                          "“%@” Would Like to Send You Notifications" },
                        { "USER_NOTIFICATION_PERMISSION_ALERT_BODY", "Notifications may include alerts." },
                        { "USER_NOTIFICATION_PERMISSION_ALERT_ALLOW", "Allow" },
                        { "USER_NOTIFICATION_PERMISSION_ALERT_DENY", "Don’t Allow" } } } } } } }));
        device.platform().hostBundlePath
            = device.applicationWorkspace().bundlePathForInstall("com.tamber.vantry");
    }

    // Requests on the controller's queue and records the results in order.
    void request(const std::string& bundleIdentifier)
    {
        queue->async([this, bundleIdentifier] {
            controller->requestAuthorizationForBundleIdentifier(
                bundleIdentifier, [this, bundleIdentifier](int64_t result) {
                    std::lock_guard lock(resultsLock);
                    results.push_back(bundleIdentifier + "=" + std::to_string(result));
                });
        });
        device.waitUntilIdle();
    }

    std::vector<std::string> answered()
    {
        std::lock_guard lock(resultsLock);
        return results;
    }

    SimulatedDevice device;
    std::shared_ptr<WorkQueue> queue = WorkQueue::create("com.tamber.KTNotificationSettingsService");
    std::shared_ptr<KTNotificationAuthorizationAlertController> controller
        = std::make_shared<KTNotificationAuthorizationAlertController>(queue);
    std::mutex resultsLock;
    std::vector<std::string> results;
};

TEST_F(AuthorizationAlert, OneAlertAnswersEveryWaitingCallerInOrder)
{
    request("com.example.app");
    request("com.example.app");
    ASSERT_EQ(device.systemAlerts().shown().size(), 1u);
    EXPECT_TRUE(answered().empty());

    device.systemAlerts().answer(0, SystemAlertDefaultResponse);
    device.waitUntilIdle();
    EXPECT_EQ(answered(), (std::vector<std::string> { "com.example.app=1", "com.example.app=1" }));

    const auto shown = device.systemAlerts().shown()[0];
    EXPECT_EQ(shown.timeout, 0);
    EXPECT_EQ(shown.level, SystemAlertStopLevel);
    EXPECT_EQ(shown.flags, 32u);
    EXPECT_EQ(
        shown.dictionary[SystemAlertHeaderKey], Value("“Example” Would Like to Send You Notifications"));
    EXPECT_EQ(shown.dictionary[SystemAlertMessageKey], Value("Notifications may include alerts."));
    EXPECT_EQ(shown.dictionary[SystemAlertDefaultButtonTitleKey], Value("Allow"));
    EXPECT_EQ(shown.dictionary[SystemAlertAlternateButtonTitleKey], Value("Don’t Allow"));
    EXPECT_EQ(
        shown.dictionary[kKTNotificationAuthorizationAlertBundleIdentifierKey], Value("com.example.app"));

    // Answered: the next request asks again.
    device.systemAlerts().scriptAnswer(SystemAlertAlternateResponse);
    request("com.example.app");
    EXPECT_EQ(device.systemAlerts().shown().size(), 2u);
    EXPECT_EQ(answered().back(), "com.example.app=0");
}

TEST_F(AuthorizationAlert, AnswersOtherThanTheTwoButtonsAreNeither)
{
    for (int64_t response : { SystemAlertCancelResponse, int64_t(2), int64_t(-1), int64_t(0x100) }) {
        results.clear();
        device.systemAlerts().scriptAnswer(response);
        request("com.example.app");
        EXPECT_EQ(answered(), std::vector<std::string> { "com.example.app=-1" }) << response;
    }
}

TEST_F(AuthorizationAlert, SystemApplicationsAreAllowedWithoutAnAlert)
{
    queue->sync([&] {
        controller->requestAuthorizationForBundleIdentifier("com.tamber.system",
            [&](int64_t result) { results.push_back("system=" + std::to_string(result)); });
        // Answered before the request returned.
        EXPECT_EQ(results, std::vector<std::string> { "system=1" });
    });
    device.waitUntilIdle();
    EXPECT_TRUE(device.systemAlerts().shown().empty());
}

TEST_F(AuthorizationAlert, AnAlertThatCannotBeShownLeavesTheCallersWaiting)
{
    device.systemAlerts().scriptCreationFailure();
    request("com.example.app");
    request("com.example.app");
    EXPECT_TRUE(answered().empty());
    EXPECT_TRUE(device.systemAlerts().shown().empty());
    EXPECT_TRUE(
        device.systemLog().contains("Could not show the notification permission alert for com.example.app"));
}

TEST_F(AuthorizationAlert, TheCInterfaceHopsToTheMainQueue)
{
    struct Answer {
        std::mutex lock;
        int result = 99;
    } answer;
    device.systemAlerts().scriptAnswer(SystemAlertDefaultResponse);
    KTShowNotificationAuthorizationAlert(
        "com.example.app", "Example",
        [](void* context, int result) {
            auto target = static_cast<Answer*>(context);
            std::lock_guard lock(target->lock);
            target->result = result;
        },
        &answer);
    device.waitUntilIdle();
    std::lock_guard lock(answer.lock);
    EXPECT_EQ(answer.result, 1);
}

TEST_F(AuthorizationAlert, LocalizedStringsFallBackFromBundleToDefaultToKey)
{
    ASSERT_TRUE(device.applicationWorkspace().install({ .identifier = "com.example.texts",
        .strings
        = { { "en", { { "Localizable", { { "GREETING", "Hello %@ and %2$@" }, { "EMPTY", "" } } } } } } }));
    auto bundle
        = Bundle::bundleWithPath(device.applicationWorkspace().bundlePathForInstall("com.example.texts"));
    Value arguments(Value::Array { Value("Ann"), Value("Bo") });
    struct Case {
        Value key, defaultValue;
        std::shared_ptr<Bundle> bundle;
        Value arguments;
        std::optional<std::string> expected;
    } cases[] = {
        { "GREETING", {}, bundle, arguments, "Hello Ann and Bo" },
        { "GREETING", {}, bundle, Value("not an array"), "Hello (null) and (null)" },
        { "MISSING %@", {}, bundle, arguments, "MISSING %@" },
        { "MISSING", "Default %@", bundle, arguments, "Default %@" },
        { "EMPTY", "Fallback", bundle, arguments, "Fallback" },
        { "GREETING", "Default", nullptr, arguments, "Default" },
        { "", "", bundle, arguments, std::nullopt },
        { Value(5), Value(6), bundle, arguments, std::nullopt },
        { Value(5), "Default", bundle, arguments, "Default" },
    };
    for (const auto& c : cases)
        EXPECT_EQ(KTNotificationLocalizedString(c.key, c.defaultValue, c.bundle, c.arguments), c.expected)
            << c.key.description();

    const char* cArguments[] = { "Cy", nullptr };
    auto path = device.applicationWorkspace().bundlePathForInstall("com.example.texts");
    char* text = ::KTNotificationLocalizedString("GREETING", nullptr, path.c_str(), cArguments, 2);
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text, "Hello Cy and (null)");
    free(text);
    EXPECT_EQ(::KTNotificationLocalizedString(nullptr, "", nullptr, nullptr, 0), nullptr);
}

} // namespace
