// The control service as tesselctl reaches it in process: who is served, what
// the user's changes do to a section, and the delivered notifications.
#include "ipc/ControlConnectionListener.h"
#include "platform/ipc/IpcConnection.h"
#include "platform/sim/CapturedSystemLog.h"
#include "platform/sim/InProcessIpcService.h"
#include "platform/sim/SimulatedBulletinService.h"
#include "remote/RemoteServerFixture.h"
#include "services/ControlService.h"
#include "store/KTNotificationStore.h"

using namespace tessel;
using namespace tessel::testing;

namespace {

constexpr const char* controller = "com.example.controller";

struct Answer {
    bool answered = false;
    Value value;
    std::string error;
};

class ControlListenerTest : public RemoteServerFixture {
protected:
    void SetUp() override
    {
        RemoteServerFixture::SetUp();
        auto& workspace = device.applicationWorkspace();
        ASSERT_TRUE(workspace.install({ .identifier = app }));
        ASSERT_TRUE(workspace.install(
            { .identifier = controller, .entitlements = { { ControlService::entitlement, true } } }));
        start();
        control = ControlConnectionListener::make(server, { { "Version", "test" } });
        device.waitUntilIdle();
    }
    void TearDown() override
    {
        for (auto& end : ends)
            end->invalidate();
        control->invalidate();
        device.waitUntilIdle();
        RemoteServerFixture::TearDown();
    }

    std::shared_ptr<ControlServerProtocol> connect(const std::string& caller)
    {
        auto end = device.ipc().connect(ControlService::serviceName,
            { .pid = static_cast<int32_t>(200 + ends.size()), .bundleIdentifier = caller });
        EXPECT_TRUE(end);
        end->setRemoteObjectInterface(ControlService::serverInterface());
        end->resume();
        ends.push_back(end);
        return end->remoteObjectProxy<ControlServerProtocol>();
    }
    // Runs a request and waits until everything it set off is done.
    template <typename Call> Answer ask(const std::string& caller, Call call)
    {
        auto answer = std::make_shared<Answer>();
        call(*connect(caller), [answer](Value value, std::string error) {
            *answer = { true, std::move(value), std::move(error) };
        });
        device.waitUntilIdle();
        return *answer;
    }
    Answer update(const Value::Dictionary& changes)
    {
        return ask(controller, [&](auto& server, auto done) { server.updateSectionSettings(app, changes, done); });
    }

    std::shared_ptr<ControlConnectionListener> control;
    std::vector<std::shared_ptr<IpcConnection>> ends;
};

TEST_F(ControlListenerTest, OnlyEntitledCallersAreServedButAnyoneMaySeeTheStatus)
{
    for (std::string caller : { std::string(app), std::string() }) {
        SCOPED_TRACE(caller);
        EXPECT_FALSE(ask(caller, [](auto& server, auto done) { server.applications(done); }).answered);
        EXPECT_FALSE(ask(caller, [](auto& server, auto done) { server.clearDeliveredNotifications(app, done); }).answered);
        auto status = ask(caller, [](auto& server, auto done) { server.status(done); });
        EXPECT_EQ(status.value["Version"].stringValue(), "test");
        EXPECT_EQ(status.value["Applications"].integerValue(), 2);
    }
    EXPECT_TRUE(device.systemLog().contains(
        "Entitlement 'com.tamber.tessel.control' required to list applications: refused to com.example.app"));
    EXPECT_TRUE(device.systemLog().contains("refused to an unidentified process"));
    auto list = ask(controller, [](auto& server, auto done) { server.applications(done); }).value;
    ASSERT_EQ(list.arrayValue().size(), 2u);
    EXPECT_EQ(list.arrayValue()[0]["Identifier"].stringValue(), app);
    EXPECT_TRUE(list.arrayValue()[0]["Section"]["AllowsNotifications"].isBoolean());
}

TEST_F(ControlListenerTest, TheUsersChangesReachTheSectionAndBadOnesChangeNothing)
{
    auto before = device.bulletinService().sectionInfo(app);
    struct Case {
        const char* name;
        Value::Dictionary changes;
        const char* error;
    };
    for (const auto& bad : std::vector<Case> {
             { "unknown key", { { "Colour", "red" } }, "unknown setting Colour" },
             { "wrong type", { { "AllowsNotifications", "no" } }, "AllowsNotifications is a boolean" },
             { "bad style", { { "AlertStyle", "loud" } }, "AlertStyle is one of none, banner, alert" },
             { "types out of range", { { "EnabledTypes", 9 } }, "EnabledTypes is a number from 0 to 7" },
             { "one bad among good", { { "AllowsNotifications", false }, { "Colour", 1 } }, "unknown setting Colour" },
         }) {
        SCOPED_TRACE(bad.name);
        auto answer = update(bad.changes);
        EXPECT_EQ(answer.error, bad.error);
        EXPECT_EQ(device.bulletinService().sectionInfo(app), before);
    }
    auto answer = update({ { "AllowsNotifications", false }, { "AlertStyle", "alert" }, { "EnabledTypes", 7 } });
    ASSERT_EQ(answer.error, "");
    auto stored = device.bulletinService().sectionInfo(app);
    ASSERT_TRUE(stored);
    EXPECT_FALSE(stored->allowsNotifications);
    EXPECT_EQ(stored->alertType, SectionInfo::AlertTypeModal);
    // Only supported types can be enabled.
    EXPECT_EQ(answer.value["EnabledTypes"].integerValue(), answer.value["SupportedTypes"].integerValue());
    EXPECT_EQ(answer.value["AlertStyle"].stringValue(), "alert");
}

TEST_F(ControlListenerTest, DeliveredNotificationsAreListedAndCleared)
{
    auto store = KTNotificationStore::sharedInstance();
    store->saveRemoteNotificationWithTitle("Title", "Hello", {}, {}, {}, {}, {}, {}, app);
    auto listed = ask(controller, [](auto& server, auto done) { server.deliveredNotifications(app, done); });
    ASSERT_EQ(listed.value.arrayValue().size(), 1u);
    EXPECT_EQ(listed.value.arrayValue()[0]["AppNotificationMessage"].stringValue(), "Hello");
    EXPECT_EQ(ask(controller, [](auto& server, auto done) { server.clearDeliveredNotifications(app, done); }).error, "");
    listed = ask(controller, [](auto& server, auto done) { server.deliveredNotifications(app, done); });
    EXPECT_TRUE(listed.value.arrayValue().empty());
    auto unknown = ask(controller, [](auto& server, auto done) { server.deliveredNotifications("com.example.none", done); });
    EXPECT_EQ(unknown.error, "no installed application is called \"com.example.none\"");
}

} // namespace
