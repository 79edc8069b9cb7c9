#include "platform/files/Preferences.h"

#include "platform/archive/PropertyList.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <thread>

using namespace tessel;

namespace {

constexpr const char* domain = "org.tessel.test";

std::vector<std::string> listing(const std::string& path)
{
    return FileManager::contentsOfDirectoryAtPath(path).value_or(std::vector<std::string> { "<absent>" });
}

class PreferencesTest : public testing::Test {
protected:
    std::string domainPath(const std::string& name = domain) const { return _directory / (name + ".plist"); }
    void writeFile(const std::string& path, const Bytes& bytes)
    {
        ASSERT_TRUE(FileManager::writeAtomically(path, bytes));
    }

    TemporaryDirectory _directory;
};

TEST_F(PreferencesTest, TypedReadsOfWhatWasWritten)
{
    struct Case {
        const char* key;
        Value value;
        bool asBool;
        int64_t asInteger;
        double asDouble;
        std::string asString;
    };
    const Case cases[] = {
        { "flagOn", true, true, 1, 1.0, "" },
        { "count", 42, true, 42, 42.0, "" },
        { "ratio", 2.5, true, 2, 2.5, "" },
        { "yes", "YES", true, 0, 0.0, "YES" },
        { "numeric", "17", true, 17, 17.0, "17" },
        { "absent", Value(), false, 0, 0.0, "" },
    };
    {
        Preferences writer(_directory.path());
        for (const auto& c : cases)
            ASSERT_TRUE(writer.setValue(c.value, c.key, domain)) << c.key;
    }
    // A second instance sees only what reached the file.
    Preferences preferences(_directory.path());
    for (const auto& c : cases) {
        EXPECT_EQ(preferences.valueForKey(c.key, domain), c.value) << c.key;
        EXPECT_EQ(preferences.hasValueForKey(c.key, domain), !c.value.isNull()) << c.key;
        EXPECT_EQ(preferences.boolForKey(c.key, domain), c.asBool) << c.key;
        EXPECT_EQ(preferences.integerForKey(c.key, domain), c.asInteger) << c.key;
        EXPECT_DOUBLE_EQ(preferences.doubleForKey(c.key, domain), c.asDouble) << c.key;
        EXPECT_EQ(preferences.stringForKey(c.key, domain), c.asString) << c.key;
    }
    EXPECT_FALSE(preferences.hasValueForKey("count", "org.tessel.other"));
}

TEST_F(PreferencesTest, ReloadSeesAnotherWriter)
{
    Preferences reader(_directory.path());
    Preferences writer(_directory.path());
    for (const char* name : { domain, "org.tessel.other" })
        ASSERT_TRUE(writer.setValue(1, "level", name));
    EXPECT_EQ(reader.integerForKey("level", domain), 1);
    EXPECT_EQ(reader.integerForKey("level", "org.tessel.other"), 1);
    for (const char* name : { domain, "org.tessel.other" })
        ASSERT_TRUE(writer.setValue(2, "level", name));
    EXPECT_EQ(reader.integerForKey("level", domain), 1) << "reads come from the cache until reload";
    reader.reload(domain);
    EXPECT_EQ(reader.integerForKey("level", domain), 2);
    EXPECT_EQ(reader.integerForKey("level", "org.tessel.other"), 1)
        << "only the reloaded domain is read again";
    reader.reload();
    EXPECT_EQ(reader.integerForKey("level", "org.tessel.other"), 2);

    ASSERT_TRUE(writer.setValue(Value(), "level", domain));
    reader.reload();
    EXPECT_FALSE(reader.hasValueForKey("level", domain)) << "null removes the key from the file";
    ASSERT_TRUE(writer.setValue(3, "level", domain));
    ASSERT_TRUE(FileManager::removeItemAtPath(domainPath()));
    reader.reload();
    EXPECT_FALSE(reader.hasValueForKey("level", domain));
}

TEST_F(PreferencesTest, UnusableFilesReadEmptyAndAreReplacedByTheNextWrite)
{
    auto array = PropertyList::data(Value(Value::Array { 1, 2 }), PropertyList::Format::Binary);
    ASSERT_TRUE(array);
    const std::pair<const char*, Bytes> cases[]
        = { { "garbage", Bytes { 'n', 'o', 't', ' ', 'a', ' ', 'l', 'i', 's', 't' } }, { "empty", Bytes {} },
              { "arrayRoot", *array } };
    for (const auto& [name, contents] : cases) {
        SCOPED_TRACE(name);
        writeFile(domainPath(name), contents);
        Preferences preferences(_directory.path());
        std::vector<std::string> failures;
        preferences.setFailureHandler([&](const std::string& message) { failures.push_back(message); });
        EXPECT_FALSE(preferences.hasValueForKey("key", name));
        ASSERT_EQ(failures.size(), 1u);
        EXPECT_NE(failures[0].find(domainPath(name)), std::string::npos) << failures[0];

        ASSERT_TRUE(preferences.setValue("value", "key", name));
        Preferences fresh(_directory.path());
        EXPECT_EQ(fresh.stringForKey("key", name), "value");
    }

    // A missing file is empty without a failure; its directory comes with the first write.
    Preferences preferences(_directory / "not-yet");
    preferences.setFailureHandler([&](const std::string& message) { ADD_FAILURE() << message; });
    EXPECT_FALSE(preferences.boolForKey("key", domain));
    ASSERT_TRUE(preferences.setValue(true, "key", domain));
    EXPECT_TRUE(FileManager::fileExistsAtPath(_directory / "not-yet/org.tessel.test.plist"));
}

TEST_F(PreferencesTest, HostileDomainNamesStayInside)
{
    std::string inside = _directory / "prefs";
    ASSERT_TRUE(FileManager::createDirectoryAtPath(inside, false));
    writeFile(_directory / "escape.plist",
        *PropertyList::data(Value::Dictionary { { "secret", 1 } }, PropertyList::Format::Xml));
    Preferences preferences(inside);
    for (const char* name : { "../escape", "..", ".", "", "a/b", "/etc/passwd", "a..b", "sub/../escape" }) {
        SCOPED_TRACE(name);
        EXPECT_FALSE(preferences.hasValueForKey("secret", name));
        EXPECT_FALSE(preferences.setValue(2, "secret", name));
        EXPECT_FALSE(Preferences::isValidDomainName(name));
    }
    EXPECT_TRUE(Preferences::isValidDomainName("com.example.app"));
    EXPECT_TRUE(listing(inside).empty());
    EXPECT_EQ(listing(_directory.path()), (std::vector<std::string> { "escape.plist", "prefs" }));
}

TEST_F(PreferencesTest, FailedWritesChangeNothing)
{
    Preferences preferences(_directory.path());
    ASSERT_TRUE(preferences.setValue(1, "key", domain));
    struct Unarchivable : Archivable {
        std::string className() const override { return "Unarchivable"; }
        void encodeWithCoder(KeyedArchiver&) const override { }
    };
    EXPECT_FALSE(preferences.setValue(Value(std::make_shared<Unarchivable>()), "key", domain));
    EXPECT_EQ(preferences.integerForKey("key", domain), 1);

    writeFile(_directory / "file", Bytes { 'x' });
    Preferences blocked(_directory / "file/prefs");
    std::string failure;
    blocked.setFailureHandler([&](const std::string& message) { failure = message; });
    EXPECT_FALSE(blocked.setValue(1, "key", domain));
    EXPECT_FALSE(blocked.hasValueForKey("key", domain));
    EXPECT_NE(failure.find(_directory / "file"), std::string::npos) << failure;
}

TEST_F(PreferencesTest, ConcurrentWritersLoseNothing)
{
    auto key = [](int thread, int i) { return "key" + std::to_string(thread) + "-" + std::to_string(i); };
    Preferences preferences(_directory.path());
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&, thread] {
            for (int i = 0; i < 8; ++i)
                preferences.setValue(i, key(thread, i), domain);
        });
    }
    for (auto& thread : threads)
        thread.join();
    Preferences fresh(_directory.path());
    for (int thread = 0; thread < 4; ++thread) {
        for (int i = 0; i < 8; ++i)
            EXPECT_EQ(fresh.integerForKey(key(thread, i), domain), i) << key(thread, i);
    }
}

} // namespace
