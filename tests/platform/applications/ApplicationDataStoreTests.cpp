#include "platform/applications/ApplicationDataStore.h"
#include "platform/applications/ApplicationDataStoreDatabase.h"
#include "platform/archive/KeyedArchiver.h"
#include "platform/archive/KeyedUnarchiver.h"
#include "platform/files/FileManager.h"
#include "platform/files/Path.h"
#include "platform/sim/CapturedSystemLog.h"
#include "platform/sim/SimulatedDevice.h"

#include <gtest/gtest.h>
#include <thread>

using namespace tessel;

namespace {

using Names = std::vector<std::string>;

class Note : public Archivable {
public:
    Note(std::string title, std::string name = "TestNote")
        : title(std::move(title))
        , name(std::move(name))
    {
    }
    std::string className() const override { return name; }
    void encodeWithCoder(KeyedArchiver& coder) const override { coder.encodeObject(title, "title"); }
    bool isEqual(const Archivable& other) const override
    {
        auto note = dynamic_cast<const Note*>(&other);
        return note && note->title == title && note->name == name;
    }

    std::string title;
    std::string name;
};

std::string databasePath(SimulatedDevice& device)
{
    return Path::appendingComponent(device.libraryDirectory(), ApplicationDataStoreDatabase::fileName);
}

class ApplicationDataStoreTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        for (std::string name : { "TestNote", "OtherNote" })
            KeyedArchive::registerClass(name, [name](KeyedUnarchiver& coder) {
                return std::make_shared<Note>(coder.decodeObject("title").stringValue(), name);
            });
        store = ApplicationDataStore::storeForApplication("com.example.app");
        ASSERT_TRUE(store);
    }

    SimulatedDevice device;
    std::shared_ptr<ApplicationDataStore> store;
};

TEST_F(ApplicationDataStoreTest, PlainValuesReadBackWithTheirKind)
{
    const Value values[] = { "a text ✓", "", -9007199254740993LL, 2.5, true, false, Date(757382400.5),
        Bytes { 0, 1, 255 }, Bytes {},
        Value::Dictionary { { "list", Value::Array { 1, "two", Date(3.0) } }, { "flag", true } } };
    for (const auto& value : values) {
        SCOPED_TRACE(value.description());
        ASSERT_TRUE(store->setObject(value, "key"));
        auto read = store->objectForKey("key");
        EXPECT_EQ(read.type(), value.type());
        EXPECT_EQ(read, value);
        EXPECT_TRUE(store->archivedObjectForKey("key").isNull());
    }
    // Values without a property-list form are refused and leave the old one.
    ASSERT_TRUE(store->setObject("before", "key"));
    for (const Value& value : { Value(std::make_shared<Note>("n")), Value(Value::Array { Value() }),
             Value(std::string("nul\0inside", 10)) }) {
        EXPECT_FALSE(store->setObject(value, "key")) << value.description();
        EXPECT_EQ(store->objectForKey("key"), Value("before"));
    }
}

TEST_F(ApplicationDataStoreTest, EveryWayOfRemovingRemoves)
{
    using Remover = std::function<bool(ApplicationDataStore&)>;
    const std::pair<const char*, Remover> removers[] = {
        { "setObject null", [](auto& s) { return s.setObject(Value(), "key"); } },
        { "setArchivedObject null", [](auto& s) { return s.setArchivedObject(Value(), "key"); } },
        { "removeObjectForKey", [](auto& s) { return s.removeObjectForKey("key"); } },
    };
    for (auto& [name, remove] : removers) {
        for (bool archived : { false, true }) {
            ASSERT_TRUE(archived ? store->setArchivedObject(1, "key") : store->setObject(1, "key"));
            ASSERT_EQ(ApplicationDataStore::applicationsWithStores(), Names { "com.example.app" });
            EXPECT_TRUE(remove(*store)) << name;
            EXPECT_TRUE(store->objectForKey("key").isNull()) << name;
            EXPECT_TRUE(store->archivedObjectForKey("key").isNull()) << name;
            EXPECT_TRUE(ApplicationDataStore::applicationsWithStores().empty()) << name;
            EXPECT_TRUE(remove(*store)) << name << ": a missing key";
        }
    }
}

Value note(const char* title, const char* name = "TestNote")
{
    return Value(std::make_shared<Note>(title, name));
}

TEST_F(ApplicationDataStoreTest, TypedReadsAnswerOnlyWhatWasAskedFor)
{
    Value notes = Value::Array { note("a"), note("b", "OtherNote") };
    // All cases write the same key, so each also checks that a rewrite of the
    // other kind replaced the entry.
    const struct {
        const char* name;
        Value stored;
        bool storedArchived;
        bool readArchived;
        UnarchiveOptions options;
        std::optional<Value::Type> expectedType;
        bool answersValue;
    } cases[] = {
        { "ObjectOfTheExpectedClass", note("a"), true, true, { "TestNote", {} }, std::nullopt, true },
        { "ObjectOfAnotherClass", note("a"), true, true, { "OtherNote", {} }, std::nullopt, false },
        { "PlainRootWhenAnObjectIsExpected", "a", true, true, { "TestNote", {} }, std::nullopt, false },
        { "ArrayOfAllowedClasses", notes, true, true, { {}, { "TestNote", "OtherNote" } }, Value::Type::Array,
            true },
        { "ArrayWithAForbiddenClass", notes, true, true, { {}, { "TestNote" } }, Value::Type::Array, false },
        { "ArrayWhenADictionaryIsExpected", Value::Array { 1 }, true, true, {}, Value::Type::Dictionary,
            false },
        { "ArchivedValueWithoutExpectations", Value::Dictionary { { "n", note("a") } }, true, true, {},
            std::nullopt, true },
        { "ArchivedGetterOnAPlainEntry", "a", false, true, {}, std::nullopt, false },
        { "ArchivedGetterWithTypeOnAPlainEntry", Value::Array { 1 }, false, true, {}, Value::Type::Array,
            false },
        { "PlainGetterOnAnArchivedEntry", "a", true, false, {}, std::nullopt, false },
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        ASSERT_TRUE(test.storedArchived ? store->setArchivedObject(test.stored, "key")
                                        : store->setObject(test.stored, "key"));
        auto read = test.readArchived ? store->archivedObjectForKey("key", test.options, test.expectedType)
                                      : store->objectForKey("key");
        EXPECT_EQ(read, test.answersValue ? test.stored : Value()) << read.description();
    }
}

// Damages the whole file, or one page of it as a torn write would.
class CorruptFiles : public ApplicationDataStoreTest, public ::testing::WithParamInterface<bool> { };

TEST_P(CorruptFiles, AreMovedAsideAndTheStoreStartsEmpty)
{
    auto path = databasePath(device);
    {
        // Enough entries for several pages, all in the main file.
        auto database = std::make_shared<ApplicationDataStoreDatabase>(path);
        ApplicationDataStore writer("com.example.old", database);
        for (int i = 0; i < 200; ++i)
            ASSERT_TRUE(writer.setObject(std::string(100, 'x'), "key" + std::to_string(i)));
        ASSERT_TRUE(database->checkpoint());
    }
    auto damaged = *FileManager::contentsAtPath(path);
    if (GetParam()) {
        std::string text = "this is not a database, just some text long enough to read";
        damaged.assign(text.begin(), text.end());
    } else {
        for (size_t i = 4096; i < 8192; ++i)
            damaged.at(i) = static_cast<uint8_t>(i * 37 + 11);
    }
    ASSERT_TRUE(FileManager::writeAtomically(path, damaged));

    EXPECT_TRUE(store->objectForKey("key0").isNull());
    ASSERT_TRUE(store->setObject("fresh", "key"));
    EXPECT_EQ(store->objectForKey("key"), Value("fresh"));
    EXPECT_EQ(ApplicationDataStore::applicationsWithStores(), Names { "com.example.app" });

    std::vector<std::string> aside;
    for (auto& name : FileManager::contentsOfDirectoryAtPath(device.libraryDirectory()).value_or(Names {})) {
        if (name.starts_with(std::string(ApplicationDataStoreDatabase::fileName) + ".corrupt-"))
            aside.push_back(name);
    }
    ASSERT_EQ(aside.size(), 1u);
    EXPECT_EQ(
        FileManager::contentsAtPath(Path::appendingComponent(device.libraryDirectory(), aside[0])), damaged);
    EXPECT_TRUE(device.systemLog().contains("is damaged"));
}

INSTANTIATE_TEST_SUITE_P(ApplicationDataStore, CorruptFiles, ::testing::Values(true, false),
    [](const auto& info) { return info.param ? "NotADatabase" : "ScribbledPage"; });

// Also keeps applications apart and lists them sorted.
TEST_F(ApplicationDataStoreTest, HostileNamesStayApart)
{
    const std::string nul("com.example.app\0evil", 20);
    // Its "/archived" sibling below is exactly as long as allowed.
    const std::string longest(ApplicationDataStoreDatabase::maximumNameLength - 9, 'k');
    const std::string tooLong(ApplicationDataStoreDatabase::maximumNameLength + 1, 'k');
    // Identifier, key, whether they are accepted.
    const std::tuple<std::string, std::string, bool> cases[] = {
        { "com.example.app", "", true },
        { "com.example.app", std::string("key\0", 4), true },
        { "com.example.app", "key", true },
        { nul, "key", true },
        { "com.example.app", longest, true },
        { longest, "key", true },
        { std::string(ApplicationDataStoreDatabase::maximumNameLength, 'i'), "key", true },
        { "com.example.app", tooLong, false },
        { tooLong, "key", false },
        { "com.example.app", std::string("\xff\xfe", 2), true },
    };
    int number = 0;
    for (auto& [identifier, key, accepted] : cases) {
        ApplicationDataStore named(identifier, device.platform().dataStores);
        EXPECT_EQ(named.setObject(++number, key), accepted) << number;
        EXPECT_EQ(named.setArchivedObject(number, key + "/archived"), accepted) << number;
    }
    number = 0;
    for (auto& [identifier, key, accepted] : cases) {
        ApplicationDataStore named(identifier, device.platform().dataStores);
        ++number;
        Value expected = accepted ? Value(number) : Value();
        EXPECT_EQ(named.objectForKey(key), expected) << number;
        EXPECT_EQ(named.archivedObjectForKey(key + "/archived"), expected) << number;
        EXPECT_EQ(named.removeObjectForKey(key), accepted) << number;
    }
    EXPECT_EQ(ApplicationDataStore::applicationsWithStores(),
        (Names { "com.example.app", nul, std::string(ApplicationDataStoreDatabase::maximumNameLength, 'i'),
            longest }));
    EXPECT_FALSE(ApplicationDataStore::storeForApplication(""));
}

TEST_F(ApplicationDataStoreTest, AnUnusableLocationFailsWithoutCrashing)
{
    auto blocker = Path::appendingComponent(device.libraryDirectory(), "blocker");
    ASSERT_TRUE(FileManager::writeAtomically(blocker, Bytes { 1 }));
    ApplicationDataStore unusable("com.example.app",
        std::make_shared<ApplicationDataStoreDatabase>(
            Path::appendingComponent(blocker, "data.sqlite"), device.platform().systemLog));
    EXPECT_FALSE(unusable.setObject(1, "key"));
    EXPECT_TRUE(unusable.objectForKey("key").isNull());
    EXPECT_FALSE(unusable.synchronize());
    EXPECT_TRUE(device.systemLog().contains("cannot open"));

    ApplicationDataStore withoutDatabase("com.example.app", nullptr);
    EXPECT_FALSE(withoutDatabase.setArchivedObject(1, "key"));
    EXPECT_TRUE(withoutDatabase.archivedObjectForKey("key").isNull());
}

TEST_F(ApplicationDataStoreTest, ConcurrentWritesAndReadsAcrossApplications)
{
    constexpr int threads = 8;
    constexpr int writes = 50;
    std::vector<std::thread> workers;
    std::atomic<int> failures { 0 };
    for (int t = 0; t < threads; ++t)
        workers.emplace_back([&, t] {
            auto mine
                = ApplicationDataStore::storeForApplication("com.example.thread" + std::to_string(t % 2));
            for (int i = 0; i < writes; ++i) {
                auto key = std::to_string(t) + "/" + std::to_string(i);
                bool ok
                    = i % 2 ? mine->setArchivedObject(Value::Array { t, i }, key) : mine->setObject(i, key);
                if (!ok || mine->objectForKey(std::to_string(t) + "/0") != Value(0))
                    ++failures;
            }
        });
    for (auto& worker : workers)
        worker.join();
    EXPECT_EQ(failures, 0);
    for (int t = 0; t < threads; ++t) {
        auto mine = ApplicationDataStore::storeForApplication("com.example.thread" + std::to_string(t % 2));
        for (int i = 0; i < writes; ++i) {
            auto key = std::to_string(t) + "/" + std::to_string(i);
            auto read = i % 2 ? mine->archivedObjectForKey(key) : mine->objectForKey(key);
            EXPECT_EQ(read, i % 2 ? Value(Value::Array { t, i }) : Value(i)) << key;
        }
    }
}

} // namespace
