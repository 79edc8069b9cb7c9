#include "platform/concurrency/WorkQueue.h"
#include "platform/files/FileManager.h"
#include "platform/files/Preferences.h"
#include "platform/ipc/AuditToken.h"
#include "platform/linux/LinuxPushService.h"
#include "platform/processes/ApplicationStateMonitor.h"
#include "platform/sim/SimulatedApplicationWorkspace.h"
#include "platform/sim/SimulatedDevice.h"
#include "platform/sim/SimulatedProcessManager.h"
#include "platform/sim/SimulatedPushService.h"

#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <mutex>

using namespace tessel;

namespace {

struct Heard {
    std::string what;
    Bytes token;
    std::optional<std::string> topic;
    std::string identifier;
    bool onMain = false;
};

class RecordingDelegate : public PushConnectionDelegate {
public:
    void connectionDidReceiveToken(PushConnection&, const Bytes& token,
        const std::optional<std::string>& topic, const std::string& identifier) override
    {
        add({ "token", token, topic, identifier, WorkQueue::main().isCurrent() });
    }
    void connectionDidReceivePublicToken(PushConnection&, const Bytes& token) override
    {
        add({ "public", token, {}, {}, WorkQueue::main().isCurrent() });
    }
    void connectionDidReceiveIncomingMessage(PushConnection&, const Value& message) override
    {
        add({ "message:" + message["topic"].stringValue(), {}, {}, {}, WorkQueue::main().isCurrent() });
    }
    std::vector<Heard> heard()
    {
        std::lock_guard lock(_lock);
        return _heard;
    }

private:
    void add(Heard heard)
    {
        std::lock_guard lock(_lock);
        _heard.push_back(std::move(heard));
    }
    std::mutex _lock;
    std::vector<Heard> _heard;
};

} // namespace

TEST(SimulatedPushConnection, CallsTheDelegateOnTheCallbackQueueWhileItLives)
{
    SimulatedDevice device;
    auto connection = std::static_pointer_cast<SimulatedPushConnection>(
        device.platform().pushService->makeConnection("production", WorkQueue::main()));
    auto delegate = std::make_shared<RecordingDelegate>();
    connection->setDelegate(delegate);
    connection->sendToken({ 1, 2 }, std::string("com.example.app"), "id-1");
    connection->sendPublicToken({ 9 });
    connection->sendIncomingMessage(Value::Dictionary { { "topic", "com.example.app" } });
    device.waitUntilIdle();
    auto heard = delegate->heard();
    ASSERT_EQ(heard.size(), 3u);
    EXPECT_EQ(heard[0].what, "token");
    EXPECT_EQ(heard[0].token, (Bytes { 1, 2 }));
    EXPECT_EQ(heard[0].topic, "com.example.app");
    EXPECT_EQ(heard[0].identifier, "id-1");
    EXPECT_EQ(heard[1].what, "public");
    EXPECT_EQ(heard[2].what, "message:com.example.app");
    for (auto& one : heard)
        EXPECT_TRUE(one.onMain) << one.what;

    // Not retained: a delegate that is gone hears nothing and nothing breaks.
    delegate.reset();
    connection->sendPublicToken({ 9 });
    device.waitUntilIdle();
}

TEST(SimulatedPushConnection, MovesOnlyTopicsThatAreInTheSourceList)
{
    SimulatedDevice device;
    auto connection = std::static_pointer_cast<SimulatedPushConnection>(
        device.platform().pushService->makeConnection("production", WorkQueue::main()));
    connection->setEnabledTopics({ "a" });
    connection->setOpportunisticTopics({ "b" });
    connection->moveTopic("b", PushConnection::OpportunisticTopics, PushConnection::EnabledTopics);
    connection->moveTopic("c", PushConnection::OpportunisticTopics, PushConnection::EnabledTopics);
    EXPECT_EQ(connection->enabledTopics(), (std::vector<std::string> { "a", "b" }));
    EXPECT_TRUE(connection->opportunisticTopics().empty());
    EXPECT_EQ(connection->moves().size(), 2u);
    EXPECT_EQ(device.pushService().connection("production"), connection);
    connection.reset();
    EXPECT_EQ(device.pushService().connection("production"), nullptr);
}

TEST(LinuxPushService, TokensAreStablePerTopicAndIdentifierAndSurviveARestart)
{
    SimulatedDevice device; // for the main queue's idle wait and the log
    TemporaryDirectory directory;
    Bytes first, publicToken;
    {
        auto service = std::make_shared<LinuxPushService>(directory.path());
        first = service->tokenForTopic("production", "com.example.app", "id-1");
        EXPECT_EQ(first.size(), 32u);
        EXPECT_EQ(service->tokenForTopic("production", "com.example.app", "id-1"), first);
        EXPECT_NE(service->tokenForTopic("production", "com.example.app", "id-2"), first);
        EXPECT_NE(service->tokenForTopic("development", "com.example.app", "id-1"), first);
        publicToken = service->publicToken("production");
        EXPECT_NE(service->publicToken("development"), publicToken);
    }
    auto service = std::make_shared<LinuxPushService>(directory.path());
    EXPECT_EQ(service->tokenForTopic("production", "com.example.app", "id-1"), first);
    EXPECT_EQ(service->publicToken("production"), publicToken);
    service->invalidateTokenForTopic("production", "com.example.app", "id-1");
    EXPECT_NE(service->tokenForTopic("production", "com.example.app", "id-1"), first);
}

TEST(LinuxPushService, ADamagedTokenFileGivesNewTokens)
{
    SimulatedDevice device;
    TemporaryDirectory directory;
    auto service = std::make_shared<LinuxPushService>(directory.path());
    auto before = service->publicToken("production");
    ASSERT_TRUE(FileManager::writeAtomically(directory / "production.plist", Bytes { 'x', 'y' }));
    auto after = service->publicToken("production");
    EXPECT_EQ(after.size(), 32u);
    EXPECT_NE(after, before);
}

TEST(LinuxPushService, ConnectionsAnnounceThePublicTokenAnswerRequestsAndTakeInjectedMessages)
{
    SimulatedDevice device;
    TemporaryDirectory directory;
    auto service = std::make_shared<LinuxPushService>(directory.path());
    auto connection = service->makeConnection("production", WorkQueue::main());
    auto delegate = std::make_shared<RecordingDelegate>();
    connection->setDelegate(delegate);
    connection->requestTokenForTopic("com.example.app", "id-1");
    EXPECT_TRUE(service->injectIncomingMessage("production", Value::Dictionary { { "topic", "t" } }));
    EXPECT_FALSE(service->injectIncomingMessage("development", Value::Dictionary {}));
    device.waitUntilIdle();
    auto heard = delegate->heard();
    ASSERT_EQ(heard.size(), 3u);
    EXPECT_EQ(heard[0].what, "public");
    EXPECT_EQ(heard[0].token, service->publicToken("production"));
    EXPECT_EQ(heard[1].what, "token");
    EXPECT_EQ(heard[1].token, service->tokenForTopic("production", "com.example.app", "id-1"));
    EXPECT_EQ(heard[2].what, "message:t");
}

TEST(LinuxProfileConnection, AllowsAutomaticUpdatesUnlessThePreferenceSaysNo)
{
    TemporaryDirectory directory;
    auto preferences = std::make_shared<Preferences>(directory.path());
    LinuxProfileConnection connection(preferences, "com.example.host");
    EXPECT_TRUE(connection.isAutomaticAppUpdatesAllowed());
    preferences->setValue(false, "AutomaticAppUpdatesAllowed", "com.example.host");
    EXPECT_FALSE(connection.isAutomaticAppUpdatesAllowed());
}

TEST(ApplicationStateService, DeliversStatesInTheMaskUntilTheMonitorIsInvalidated)
{
    ApplicationStateService service;
    std::vector<std::string> heard;
    auto monitor = service.makeMonitor(ApplicationStateTerminated | ApplicationStateForeground,
        [&](const Value& info) { heard.push_back(info[ApplicationStateBundleIdentifierKey].stringValue()); });
    service.reportStateChange("a", ApplicationStateForeground);
    service.reportStateChange("b", ApplicationStateBackground);
    service.reportStateChange("c", ApplicationStateTerminated, ApplicationExitReasonUserKilled);
    monitor->invalidate();
    service.reportStateChange("d", ApplicationStateForeground);
    EXPECT_EQ(heard, (std::vector<std::string> { "a", "c" }));
}

TEST(AuditToken, ResolvesTheCallersEntitlementThroughItsProcess)
{
    SimulatedDevice device;
    ASSERT_TRUE(device.applicationWorkspace().install(
        { .identifier = "com.example.app", .entitlements = { { "rlx-environment", "development" } } }));
    ASSERT_TRUE(device.applicationWorkspace().install({ .identifier = "com.example.plain" }));
    auto entitled = device.processManager().launch("com.example.app");
    auto plain = device.processManager().launch("com.example.plain");
    auto unknown = device.processManager().launch("com.example.missing");
    EXPECT_EQ(
        entitlementValueForAuditToken({ entitled->pid() }, "rlx-environment").stringValue(), "development");
    EXPECT_TRUE(entitlementValueForAuditToken({ plain->pid() }, "rlx-environment").isNull());
    EXPECT_TRUE(entitlementValueForAuditToken({ unknown->pid() }, "rlx-environment").isNull());
    EXPECT_TRUE(entitlementValueForAuditToken({ 424242 }, "rlx-environment").isNull());
    device.processManager().terminate(entitled->pid());
    EXPECT_TRUE(entitlementValueForAuditToken({ entitled->pid() }, "rlx-environment").isNull());
}

TEST(ApplicationProcess, TellsObserversOfDebuggingChangesOnly)
{
    struct Observer : ApplicationProcessObserver {
        std::vector<bool> heard;
        void applicationProcessDebuggingStateDidChange(
            const std::shared_ptr<ApplicationProcess>& process) override
        {
            heard.push_back(process->isBeingDebugged());
        }
    };
    SimulatedProcessManager manager;
    auto process = manager.launch("com.example.app");
    auto observer = std::make_shared<Observer>();
    process->addObserver(observer);
    process->addObserver(observer);
    process->setBeingDebugged(true);
    process->setBeingDebugged(true);
    process->setBeingDebugged(false);
    process->removeObserver(observer.get());
    process->setBeingDebugged(true);
    EXPECT_EQ(observer->heard, (std::vector<bool> { true, false }));
}
