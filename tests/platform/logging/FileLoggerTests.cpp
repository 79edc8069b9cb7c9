#include "platform/files/Preferences.h"
#include "platform/logging/FileLogManager.h"
#include "platform/logging/FileLogger.h"

#include "support/TemporaryDirectory.h"

#include <climits>
#include <gtest/gtest.h>
#include <sstream>
#include <thread>

using namespace tessel;

namespace {

constexpr const char* domain = "org.tessel.logging";

class TestLogger : public FileLogger {
public:
    explicit TestLogger(std::string name = "Delivery")
        : _name(std::move(name))
    {
    }
    std::string name() const override { return _name; }
    std::string logPreferenceName() const override { return _name + "Log"; }
    std::string logPreferenceDomain() const override { return domain; }
    void _setEnabled(bool enabled) override
    {
        hooks.push_back(enabled ? "enable" : "disable");
        FileLogger::_setEnabled(enabled);
    }
    void _setLevel(int level) override
    {
        hooks.push_back("level " + std::to_string(level));
        FileLogger::_setLevel(level);
    }

    std::vector<std::string> hooks;

private:
    std::string _name;
};

class FileLoggerTest : public testing::Test {
protected:
    std::shared_ptr<FileLogManager> makeManager()
    {
        return std::make_shared<FileLogManager>(preferences, logsDirectory(), [this] { return now; });
    }
    std::string logsDirectory() const { return _directory / "Library/Logs"; }
    std::string logText(const std::string& name) const
    {
        auto contents = FileManager::contentsAtPath(logsDirectory() + "/" + name + ".log");
        return contents ? std::string(contents->begin(), contents->end()) : "<absent>";
    }

    TemporaryDirectory _directory;
    std::shared_ptr<Preferences> preferences = std::make_shared<Preferences>(_directory / "Preferences");
    Date now;
};

TEST_F(FileLoggerTest, RegistrationAppliesPreferences)
{
    struct Case {
        const char* label;
        Value::Dictionary settings;
        const char* settingsDomain;
        bool enabled;
        int level;
        std::vector<std::string> hooks;
    };
    const Case cases[] = {
        { "nothing set", {}, domain, false, -1, { "disable" } },
        { "enabled", { { "DeliveryLog", true } }, domain, true, -1, { "enable" } },
        { "with level", { { "DeliveryLog", true }, { "DeliveryLogLevel", 5 } }, domain, true, 5,
            { "enable", "level 5" } },
        { "level alone", { { "DeliveryLogLevel", 0 } }, domain, false, 0, { "disable", "level 0" } },
        { "level out of range", { { "DeliveryLogLevel", int64_t(1) << 40 } }, domain, false, INT_MAX,
            { "disable", "level " + std::to_string(INT_MAX) } },
        { "another domain", { { "DeliveryLog", true }, { "DeliveryLogLevel", 5 } }, "org.tessel.other", false,
            -1, { "disable" } },
        { "another logger's key", { { "OtherLog", true } }, domain, false, -1, { "disable" } },
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        TemporaryDirectory scratch;
        auto settings = std::make_shared<Preferences>(scratch.path());
        for (const auto& [key, value] : c.settings)
            ASSERT_TRUE(settings->setValue(value, key, c.settingsDomain));
        FileLogManager manager(settings, scratch / "Logs", [] { return Date(); });
        auto logger = std::make_shared<TestLogger>();
        manager.registerLogger(logger);
        EXPECT_EQ(logger->isEnabled(), c.enabled);
        EXPECT_EQ(logger->level(), c.level);
        EXPECT_EQ(logger->hooks, c.hooks);
    }
}

TEST_F(FileLoggerTest, ReloadFollowsTheFileOnDisk)
{
    auto manager = makeManager();
    auto logger = std::make_shared<TestLogger>();
    manager->registerLogger(logger);
    manager->registerLogger(logger);
    EXPECT_EQ(manager->loggers().size(), 1u);
    EXPECT_FALSE(logger->isEnabled());

    // Another process (here another Preferences object) changes the file.
    Preferences other(preferences->directory());
    ASSERT_TRUE(other.setValue(true, "DeliveryLog", domain));
    ASSERT_TRUE(other.setValue(3, "DeliveryLogLevel", domain));
    EXPECT_FALSE(logger->isEnabled()) << "nothing changes before a reload";
    manager->reloadFromDefaults();
    EXPECT_TRUE(logger->isEnabled());
    EXPECT_EQ(logger->level(), 3);

    // Without a level preference the level stays where it was.
    ASSERT_TRUE(other.setValue(Value(), "DeliveryLogLevel", domain));
    ASSERT_TRUE(other.setValue(false, "DeliveryLog", domain));
    manager->reloadFromDefaults();
    EXPECT_FALSE(logger->isEnabled());
    EXPECT_EQ(logger->level(), 3);
    EXPECT_EQ(logger->hooks, (std::vector<std::string> { "disable", "enable", "level 3", "disable" }));
}

TEST_F(FileLoggerTest, LoggersWithoutALiveManagerWriteNothing)
{
    auto unregistered = std::make_shared<TestLogger>("Unregistered");
    unregistered->log("lost");
    auto orphan = std::make_shared<TestLogger>("Orphan");
    {
        auto manager = makeManager();
        manager->registerLogger(orphan);
        orphan->log("kept");
    }
    orphan->log("lost");
    EXPECT_EQ(logText("Unregistered"), "<absent>");
    EXPECT_EQ(logText("Orphan"), "2001-01-01T00:00:00.000Z kept\n");

    auto manager = makeManager();
    auto escaping = std::make_shared<TestLogger>("../Escape");
    manager->registerLogger(escaping);
    escaping->log("nowhere");
    EXPECT_FALSE(FileManager::fileExistsAtPath(_directory / "Library/Escape.log"));
}

TEST_F(FileLoggerTest, ConcurrentLinesStayWhole)
{
    auto manager = makeManager();
    auto logger = std::make_shared<TestLogger>();
    manager->registerLogger(logger);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&, thread] {
            for (int i = 0; i < 100; ++i)
                logger->log("thread " + std::to_string(thread) + " line " + std::to_string(i)
                    + std::string(200, '.'));
        });
    }
    for (auto& thread : threads)
        thread.join();
    std::istringstream lines(logText("Delivery"));
    std::string line;
    int count = 0;
    while (std::getline(lines, line)) {
        ++count;
        EXPECT_EQ(line.rfind("2001-01-01T00:00:00.000Z thread ", 0), 0u) << line;
        EXPECT_EQ(line.substr(line.size() - 200), std::string(200, '.'));
    }
    EXPECT_EQ(count, 400);
}

} // namespace
