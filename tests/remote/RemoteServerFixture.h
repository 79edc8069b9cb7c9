#pragma once

#include "core/KTRemoteNotificationLogger.h"
#include "core/KTSystemStateProviding.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/events/NotificationCenter.h"
#include "platform/files/Preferences.h"
#include "platform/logging/FileLogManager.h"
#include "platform/processes/ApplicationStateMonitor.h"
#include "platform/push/PushEnvironment.h"
#include "platform/sim/SimulatedApplicationWorkspace.h"
#include "platform/sim/SimulatedDevice.h"
#include "platform/sim/SimulatedPushService.h"
#include "platform/sim/SimulatedSystemState.h"
#include "remote/KTRemoteNotificationClient.h"
#include "remote/KTRemoteNotificationServer.h"

#include <gtest/gtest.h>
#include <mutex>
#include <set>
#include <tessel/Tessel.h>

namespace tessel::testing {

inline constexpr const char* app = "com.example.app";
inline constexpr const char* otherApp = "com.example.other";

using FakeSystemState = SimulatedSystemState;

class TokenRecorder final : public KTRemoteNotificationServerDelegate {
public:
    void didReceiveDeviceToken(const Bytes& token, const std::string& bundleIdentifier) override
    {
        std::lock_guard lock(_lock);
        _tokens.emplace_back(bundleIdentifier, token);
    }
    std::vector<std::pair<std::string, Bytes>> tokens()
    {
        std::lock_guard lock(_lock);
        return _tokens;
    }

private:
    std::mutex _lock;
    std::vector<std::pair<std::string, Bytes>> _tokens;
};

// A device with the push server on it and its remote log switched on; every
// helper lets all work finish before it returns.
class RemoteServerFixture : public ::testing::Test {
protected:
    void SetUp() override
    {
        auto& platform = device.platform();
        ASSERT_TRUE(platform.preferences->setValue(true, "KTRemoteNotificationLogging", "com.tamber.tessel"));
        auto logger = std::make_shared<KTRemoteNotificationLogger>();
        platform.fileLogManager->registerLogger(logger);
        KTRemoteNotificationLogger::setRegisteredLogger(logger);
    }
    void TearDown() override { KTRemoteNotificationLogger::setRegisteredLogger(nullptr); }

    void start()
    {
        server = KTRemoteNotificationServer::initWithSystemStateProvider(state);
        server->setDelegate(recorder);
        device.waitUntilIdle();
    }
    // Push enabled through notifications, in production.
    void startWithEnabledApp()
    {
        start();
        setNotificationsEnabled(app, true);
        registerApp(app);
        ASSERT_TRUE(connection());
    }

    void setNotificationsEnabled(const std::string& bundleIdentifier, bool enabled)
    {
        device.platform().notificationCenter->postNotification(KTNotificationSettingsDidChangeNotification,
            nullptr,
            Value::Dictionary { { KTNotificationBundleIdentifierKey, bundleIdentifier },
                { KTNotificationEnabledKey, enabled } });
        device.waitUntilIdle();
    }
    void registerApp(
        const std::string& bundleIdentifier, const std::string& environment = PushEnvironmentProduction)
    {
        server->requestRemoteNotificationTokenWithEnvironment(environment, bundleIdentifier);
        device.waitUntilIdle();
    }
    void reportState(const std::string& bundleIdentifier, int64_t state, int64_t exitReason = 0)
    {
        device.applicationStates().reportStateChange(bundleIdentifier, state, exitReason);
        device.waitUntilIdle();
    }
    // Written by another process, as on a device.
    void setRefreshList(const Value& list)
    {
        Preferences other(device.platform().preferences->directory());
        ASSERT_TRUE(other.setValue(list, "KeepAppsUpToDateAppList", "com.tamber.mt"));
    }

    std::shared_ptr<SimulatedPushConnection> connection(
        const std::string& environment = PushEnvironmentProduction)
    {
        return device.pushService().connection(environment);
    }
    // A copy, so a test reads it without racing the queue.
    std::optional<KTRemoteNotificationClient> client(const std::string& bundleIdentifier)
    {
        auto record = server->queue()->sync(
            [&] { return server->_queue_clientForBundleIdentifier(bundleIdentifier); });
        if (!record)
            return std::nullopt;
        return *record;
    }
    bool waitingForToken(const std::string& bundleIdentifier)
    {
        return server->queue()->sync([&] { return server->_queue_isWaitingForToken(bundleIdentifier); });
    }
    std::vector<std::string> logLines() { return device.fileLogLines("KTRemoteNotificationLog"); }
    bool logged(const std::string& line)
    {
        auto lines = logLines();
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    }

    SimulatedDevice device;
    std::shared_ptr<FakeSystemState> state = std::make_shared<FakeSystemState>();
    std::shared_ptr<TokenRecorder> recorder = std::make_shared<TokenRecorder>();
    std::shared_ptr<KTRemoteNotificationServer> server;
};

} // namespace tessel::testing
