#include "platform/applications/Bundle.h"
#include "platform/archive/PropertyList.h"
#include "platform/files/FileManager.h"
#include "platform/files/Path.h"
#include "platform/sim/CapturedSystemLog.h"
#include "platform/sim/SimulatedDevice.h"

#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

using namespace tessel;

namespace {

void writeText(const std::string& path, std::string_view text)
{
    ASSERT_TRUE(FileManager::createDirectoryAtPath(Path::deletingLastComponent(path), true));
    ASSERT_TRUE(FileManager::writeAtomically(path, text.data(), text.size(), nullptr, false)) << path;
}

std::string plist(const Value& value, PropertyList::Format format = PropertyList::Format::Xml)
{
    auto bytes = PropertyList::data(value, format);
    EXPECT_TRUE(bytes);
    return bytes ? std::string(bytes->begin(), bytes->end()) : std::string();
}

class BundleTest : public ::testing::Test {
protected:
    std::string bundlePath() const { return directory / "Example.tapp"; }
    void writeManifest(const Value::Dictionary& info, PropertyList::Format format = PropertyList::Format::Xml)
    {
        writeText(Path::appendingComponent(bundlePath(), "Manifest.plist"), plist(Value(info), format));
    }
    void writeFile(const std::string& relativePath, std::string_view text = "x")
    {
        writeText(Path::appendingComponent(bundlePath(), relativePath), text);
    }
    std::shared_ptr<Bundle> open() const { return Bundle::bundleWithPath(bundlePath()); }

    SimulatedDevice device;
    TemporaryDirectory directory;
};

TEST_F(BundleTest, OnlyDirectoriesAreBundlesAndTheManifestIsRead)
{
    EXPECT_FALSE(Bundle::bundleWithPath(""));
    EXPECT_FALSE(Bundle::bundleWithPath(directory / "missing.tapp"));
    writeText(directory / "file.tapp", "not a directory");
    EXPECT_FALSE(Bundle::bundleWithPath(directory / "file.tapp"));

    Value::Dictionary good { { "Identifier", "com.example.app" }, { "DisplayName", "Example" } };
    struct Case {
        const char* name;
        std::optional<std::string> manifest; // absent: no manifest file
        std::string identifier;
        bool logged;
    };
    const Case cases[] = {
        { "good XML", plist(Value(good)), "com.example.app", false },
        { "good binary", plist(Value(good), PropertyList::Format::Binary), "com.example.app", false },
        { "missing", std::nullopt, "", true },
        { "malformed", std::string("<?xml version=\"1.0\"?><plist><dict><key>Identifier"), "", true },
        { "not a dictionary", plist(Value(Value::Array { "com.example.app" })), "", true },
        { "no identifier", plist(Value(Value::Dictionary { { "DisplayName", "X" } })), "", false },
        { "identifier of another type", plist(Value(Value::Dictionary { { "Identifier", 42 } })), "", false },
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        FileManager::removeItemAtPath(bundlePath());
        ASSERT_TRUE(FileManager::createDirectoryAtPath(bundlePath(), true));
        if (c.manifest)
            writeFile("Manifest.plist", *c.manifest);
        device.systemLog().clear();
        auto bundle = open();
        ASSERT_TRUE(bundle);
        EXPECT_EQ(bundle->bundleIdentifier(), c.identifier);
        EXPECT_TRUE(bundle->infoDictionary().isDictionary());
        EXPECT_EQ(device.systemLog().count("unreadable manifest"), c.logged ? 1u : 0u);
        EXPECT_EQ(bundle->manifestError().empty(), !c.logged);
        if (c.logged) {
            EXPECT_EQ(bundle->infoDictionary().length(), 0u);
        }
    }
}

TEST_F(BundleTest, ResourceLookup)
{
    writeManifest({ { "Identifier", "a" }, { "DevelopmentLocalization", "fr" } });
    writeFile("ding.caf");
    writeFile("Sounds/chime.caf");
    writeFile("de.lang/ding.caf"); // the unlocalized one is found first
    writeFile("de.lang/hallo.caf");
    writeFile("fr.lang/bonjour.caf");
    writeFile("en.lang/hello.caf");
    writeFile("Manifest.plist.d/x"); // a directory is no resource
    writeFile("secret.caf");
    device.platform().preferredLocalizations = { "de-CH", "en" };

    // Name, type, the path found relative to the bundle (empty: none).
    const std::tuple<const char*, const char*, std::string> cases[] = {
        { "ding", "caf", "ding.caf" },
        { "ding.caf", "", "ding.caf" },
        { "Sounds/chime", "caf", "Sounds/chime.caf" },
        { "hallo", "caf", "de.lang/hallo.caf" },
        { "hello", "caf", "en.lang/hello.caf" },
        { "bonjour", "caf", "fr.lang/bonjour.caf" },
        { "ding", "aiff", "" },
        { "missing", "caf", "" },
        { "Manifest.plist.d", "", "" },
        { "", "", "" },
        { "../Example.tapp/ding", "caf", "" },
        { "Sounds/../ding", "caf", "" },
        { "de.lang/../../Example.tapp/secret", "caf", "" },
        { "ding", "caf/../secret", "" },
    };
    auto bundle = open();
    for (const auto& [name, type, found] : cases) {
        auto expected = found.empty() ? std::string() : Path::appendingComponent(bundlePath(), found);
        EXPECT_EQ(bundle->pathForResource(name, type), expected) << name << " / " << type;
    }
    EXPECT_EQ(bundle->pathForResource(bundlePath() + "/ding", "caf"), "");
    EXPECT_EQ(bundle->localizations(), (std::vector<std::string> { "de", "en", "fr" }));
}

TEST_F(BundleTest, LocalizedStringsFallBack)
{
    writeManifest({ { "Identifier", "a" }, { "DevelopmentLocalization", "en" } });
    writeFile("de.lang/Localizable.strings", "\"greeting\" = \"Hallo\"; \"de only\";");
    writeFile("en.lang/Localizable.strings", "\"greeting\" = \"Hello\"; \"farewell\" = \"Bye\";");
    writeFile("en.lang/Alerts.strings", plist(Value(Value::Dictionary { { "alert", "Wake up" } })));
    writeFile("fr.lang/Localizable.strings", "\"greeting\" = \"Bonjour\"");
    device.platform().preferredLocalizations = { "fr", "de" };

    // Key, default value, table, the string found.
    const std::tuple<const char*, const char*, const char*, const char*> cases[] = {
        { "greeting", "", "", "Hallo" }, // fr's table is malformed
        { "de only", "", "Localizable", "de only" },
        { "farewell", "", "", "Bye" },
        { "missing", "Default", "", "Default" },
        { "missing", "", "", "missing" },
        { "alert", "", "Alerts", "Wake up" },
        { "greeting", "", "Alerts", "greeting" },
        { "greeting", "", "NoSuchTable", "greeting" },
        { "greeting", "v", "../en.lang/Localizable", "v" },
    };
    auto bundle = open();
    for (int round = 0; round < 2; ++round) {
        for (const auto& [key, value, table, expected] : cases)
            EXPECT_EQ(bundle->localizedStringForKey(key, value, table), expected) << key << " in " << table;
    }
    // Parsed once: the malformed table is reported once, however often it is consulted.
    EXPECT_EQ(device.systemLog().count("unreadable string table"), 1u);

    device.platform().preferredLocalizations = { "en" };
    EXPECT_EQ(bundle->localizedStringForKey("greeting", "", ""), "Hello");
}

} // namespace
