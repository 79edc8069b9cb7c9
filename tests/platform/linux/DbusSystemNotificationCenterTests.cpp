#include "ipc/IpcTestSupport.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/linux/dbus/DbusSystemNotificationCenter.h"

#include <gtest/gtest.h>

using namespace tessel;
using namespace tessel::ipctest;
using Center = DbusSystemNotificationCenter;

namespace {

// Two processes' centers on a private bus, each on its own connection.
class SystemNotificationsOnABus : public ::testing::Test {
protected:
    void TearDown() override { WorkQueue::waitUntilIdle(); }

    void observe(SystemNotificationCenter& center, const std::string& who, const std::string& name)
    {
        center.addObserver(
            name, [this, who](const std::string& heard) { this->heard.push(who + " " + heard); });
    }
    std::vector<std::string> heardBy(const std::string& who)
    {
        auto all = heard.items();
        std::erase_if(all, [&](auto& item) { return item.rfind(who + " ", 0) != 0; });
        return all;
    }

    Mailbox<std::string> heard;
    PrivateBus bus;
    Center daemon { std::make_shared<DbusIpcService>(bus.address()) };
    Center other { std::make_shared<DbusIpcService>(bus.address()) };
};

TEST_F(SystemNotificationsOnABus, AnObserverHearsEachPostOnceWhoeverPosts)
{
    for (auto* who : { "daemon", "other" }) {
        auto& center = std::string(who) == "daemon" ? daemon : other;
        observe(center, who, "com.tamber.tessel.prefsChanged");
        observe(center, who, "SignificantTimeChangeNotification");
    }
    daemon.postNotification("com.tamber.tessel.prefsChanged");
    ASSERT_EQ(heard.waitFor(2).size(), 2u);
    // The bus keeps one sender's order: once this comes back, the first post's echo has too.
    other.postNotification("SignificantTimeChangeNotification");
    heard.waitFor(4);
    std::vector<std::string> daemonHeard { "daemon com.tamber.tessel.prefsChanged",
        "daemon SignificantTimeChangeNotification" };
    std::vector<std::string> otherHeard { "other com.tamber.tessel.prefsChanged",
        "other SignificantTimeChangeNotification" };
    EXPECT_EQ(heardBy("daemon"), daemonHeard);
    EXPECT_EQ(heardBy("other"), otherHeard);

    // Any process may post, as the documentation shows.
    ChildProcess send({ "/usr/bin/dbus-send", "--bus=" + bus.address(), "--type=signal", Center::objectPath,
        std::string(Center::interfaceName) + "." + Center::signalName,
        "string:com.tamber.tessel.prefsChanged" });
    EXPECT_EQ(send.exitStatus(), 0);
    heard.waitFor(6);
    daemonHeard.push_back("daemon com.tamber.tessel.prefsChanged");
    EXPECT_EQ(heardBy("daemon"), daemonHeard);
}

// Signals sent by hand on one connection, so that they arrive in order.
class RawPoster {
public:
    explicit RawPoster(const std::string& address)
        : _connection(sdbus::createSessionBusConnectionWithAddress(address))
        , _object(sdbus::createObject(*_connection, Center::objectPath))
    {
    }
    template <typename Argument> void post(const Argument& argument)
    {
        auto signal = _object->createSignal(Center::interfaceName, Center::signalName);
        signal << argument;
        _object->emitSignal(signal);
    }

private:
    std::unique_ptr<sdbus::IConnection> _connection;
    std::unique_ptr<sdbus::IObject> _object;
};

TEST_F(SystemNotificationsOnABus, NamesFromTheBusOutsideTheBoundsAreIgnored)
{
    std::string longest(Center::maximumNameLength, 'n');
    for (auto& name : { longest, longest + "n", std::string("fence") })
        observe(daemon, "daemon", name);
    RawPoster poster(bus.address());
    poster.post(longest + "n");
    poster.post(std::string());
    poster.post(int32_t(7));
    poster.post(longest);
    poster.post(std::string("fence"));
    std::vector<std::string> expected { "daemon " + longest, "daemon fence" };
    EXPECT_EQ(heard.waitFor(2), expected);

    struct Case {
        std::string name;
        bool valid;
    } cases[] = { { longest, true }, { longest + "n", false }, { "", false }, { "caf\xc3\xa9", true },
        { "caf\xe9", false }, { std::string("a\0b", 3), false } };
    for (auto& c : cases)
        EXPECT_EQ(Center::isValidName(c.name), c.valid) << c.name;
}

TEST_F(SystemNotificationsOnABus, AFloodFoldsIntoFewDeliveries)
{
    observe(daemon, "daemon", "flood");
    observe(daemon, "daemon", "fence");
    RawPoster poster(bus.address());
    for (int i = 0; i < 2000; ++i)
        poster.post(std::string("flood"));
    poster.post(std::string("fence"));
    auto items = heard.waitFor(2);
    auto floods = std::count(items.begin(), items.end(), "daemon flood");
    // One delivery per rest at most, and the last of a burst is never lost.
    EXPECT_GE(floods, 1);
    EXPECT_LT(floods, 500);
}

TEST(SystemNotificationsWithoutABus, PostsStillReachLocalObservers)
{
    TemporaryDirectory nowhere;
    Center center(std::make_shared<DbusIpcService>("unix:path=" + nowhere.path() + "/no-bus"));
    std::vector<std::string> heard;
    center.addObserver("name", [&](const std::string& name) { heard.push_back(name); });
    center.postNotification("name");
    center.postNotification("name");
    EXPECT_EQ(heard, (std::vector<std::string> { "name", "name" }));
}

} // namespace
