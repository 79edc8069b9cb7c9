#include "platform/concurrency/WorkQueue.h"
#include "platform/files/FileManager.h"
#include "platform/files/Preferences.h"
#include "platform/ipc/AuditToken.h"
#include "platform/linux/LinuxPushService.h"
#include "platform/sim/SimulatedApplicationWorkspace.h"
#include "platform/sim/SimulatedDevice.h"
#include "platform/sim/SimulatedProcessManager.h"

#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <mutex>

using namespace tessel;

namespace {

using Lines = std::vector<std::string>;

std::string hex(const Bytes& bytes) { return Value(bytes).description(); }

// One line per call; a call off the main queue is marked.
class RecordingDelegate : public PushConnectionDelegate {
public:
    void connectionDidReceiveToken(PushConnection&, const Bytes& token,
        const std::optional<std::string>& topic, const std::string& identifier) override
    {
        add("token " + hex(token) + " " + topic.value_or("-") + " " + identifier);
    }
    void connectionDidReceivePublicToken(PushConnection&, const Bytes& token) override
    {
        add("public " + hex(token));
    }
    void connectionDidReceiveIncomingMessage(PushConnection&, const IncomingPushMessage& message) override
    {
        add("message " + message.topic);
    }
    Lines heard()
    {
        std::lock_guard lock(_lock);
        return _heard;
    }

private:
    void add(std::string line)
    {
        std::lock_guard lock(_lock);
        _heard.push_back(WorkQueue::main().isCurrent() ? line : line + " off main");
    }
    std::mutex _lock;
    Lines _heard;
};

} // namespace

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

    // A damaged token file gives new tokens.
    ASSERT_TRUE(FileManager::writeAtomically(directory / "production.plist", Bytes { 'x', 'y' }));
    auto renewed = service->publicToken("production");
    EXPECT_EQ(renewed.size(), 32u);
    EXPECT_NE(renewed, publicToken);
}

TEST(LinuxPushService, ConnectionsAnnounceThePublicTokenAnswerRequestsAndTakeMessagesOnTheirTopics)
{
    SimulatedDevice device;
    TemporaryDirectory directory;
    auto service = std::make_shared<LinuxPushService>(directory.path());
    auto connection = service->makeConnection("production", WorkQueue::main());
    auto delegate = std::make_shared<RecordingDelegate>();
    connection->setDelegate(delegate);
    connection->requestTokenForTopic("com.example.app", "id-1");
    connection->setEnabledTopics({ "t" });
    connection->setOpportunisticTopics({ "o" });
    connection->setIgnoredTopics({ "i" });
    for (auto topic : { "t", "o", "i", "unknown" })
        EXPECT_EQ(
            service->injectIncomingMessage("production", { .topic = topic }), *topic != 'i' && *topic != 'u')
            << topic;
    EXPECT_FALSE(service->injectIncomingMessage("development", { .topic = "t" }));
    device.waitUntilIdle();
    EXPECT_EQ(delegate->heard(),
        (Lines { "public " + hex(service->publicToken("production")),
            "token " + hex(service->tokenForTopic("production", "com.example.app", "id-1"))
                + " com.example.app id-1",
            "message t", "message o" }));
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

TEST(AuditToken, ResolvesTheCallersEntitlementThroughItsProcess)
{
    SimulatedDevice device;
    ASSERT_TRUE(device.applicationWorkspace().install(
        { .identifier = "com.example.app", .entitlements = { { "rlx-environment", "development" } } }));
    ASSERT_TRUE(device.applicationWorkspace().install({ .identifier = "com.example.plain" }));
    auto entitled = device.processManager().launch("com.example.app");
    auto plain = device.processManager().launch("com.example.plain");
    auto unknown = device.processManager().launch("com.example.missing");
    auto entitlement = [](int32_t pid) { return entitlementValueForAuditToken({ pid }, "rlx-environment"); };
    EXPECT_EQ(entitlement(entitled->pid()), Value("development"));
    for (int32_t pid : { plain->pid(), unknown->pid(), 424242 })
        EXPECT_TRUE(entitlement(pid).isNull()) << pid;
    device.processManager().terminate(entitled->pid());
    EXPECT_TRUE(entitlement(entitled->pid()).isNull());
}
