#pragma once

#include "bulletins/KTDefaultDataProviderFactory.h"
#include "platform/alerts/SystemAlert.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/records/NotificationSettings.h"
#include "platform/sim/CapturedSystemLog.h"
#include "platform/sim/SimulatedApplicationWorkspace.h"
#include "platform/sim/SimulatedBulletinService.h"
#include "platform/sim/SimulatedDevice.h"
#include "platform/sim/SimulatedSystemAlerts.h"
#include "settings/KTNotificationSettingsService.h"

#include <gtest/gtest.h>
#include <mutex>

namespace tessel::testing {

inline constexpr const char* app = "com.example.app";
inline constexpr const char* otherApp = "com.example.other";
// A system application that does not schedule local notifications keeps its own data provider.
inline constexpr const char* customProviderApp = "com.tamber.clock";

// A device with applications installed, the settings service and the user at
// the permission alert; every helper lets all work finish before it returns.
class SettingsFixture : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(workspace().install({ .identifier = app, .displayName = "Example" }));
        ASSERT_TRUE(workspace().install({ .identifier = otherApp, .displayName = "Other" }));
        ASSERT_TRUE(workspace().install({ .identifier = customProviderApp, .type = "System" }));
    }

    SimulatedApplicationWorkspace& workspace() { return device.applicationWorkspace(); }
    SimulatedBulletinService& bulletins() { return device.bulletinService(); }
    std::shared_ptr<KTNotificationSettingsService> service()
    {
        return KTNotificationSettingsService::sharedInstance();
    }

    void registerSettings(
        const std::string& bundleIdentifier, uint64_t types, NotificationCategories categories = {})
    {
        service()->registerNotificationSettings(NotificationSettings::settingsForTypes(types, categories),
            bundleIdentifier, [this](std::shared_ptr<NotificationSettings> settings) {
                std::lock_guard lock(_lock);
                _answers.push_back(std::move(settings));
            });
        device.waitUntilIdle();
    }
    void registerTypes(const std::string& bundleIdentifier, uint64_t types)
    {
        service()->registerNotificationTypes(types, bundleIdentifier);
        device.waitUntilIdle();
    }

    // What the registrations were answered, in order.
    std::vector<std::shared_ptr<NotificationSettings>> answers()
    {
        std::lock_guard lock(_lock);
        return _answers;
    }

    size_t alertsShown() { return device.systemAlerts().shown().size(); }
    void answerAlert(size_t index, int64_t response)
    {
        device.systemAlerts().answer(index, response);
        device.waitUntilIdle();
    }
    // The user's answer to the next alert.
    void userAnswers(int64_t response) { device.systemAlerts().scriptAnswer(response); }

    SectionInfo section(const std::string& bundleIdentifier)
    {
        auto info = bulletins().sectionInfo(bundleIdentifier);
        EXPECT_TRUE(info) << "no section for " << bundleIdentifier;
        return info.value_or(SectionInfo {});
    }

    SimulatedDevice device;

private:
    std::mutex _lock;
    std::vector<std::shared_ptr<NotificationSettings>> _answers;
};

} // namespace tessel::testing
