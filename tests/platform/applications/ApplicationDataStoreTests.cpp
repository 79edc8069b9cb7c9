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

std::vector<std::string> filesAside(SimulatedDevice& device)
{
    std::vector<std::string> aside;
    for (auto& name : FileManager::contentsOfDirectoryAtPath(device.libraryDirectory())
                          .value_or(std::vector<std::string> {}))
        if (name.starts_with(std::string(ApplicationDataStoreDatabase::fileName) + ".corrupt-"))
            aside.push_back(name);
    return aside;
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

struct PlainCase {
    const char* name;
    Value value;
};

void PrintTo(const PlainCase& test, std::ostream* out) { *out << test.name; }

class PlainValues : public ApplicationDataStoreTest, public ::testing::WithParamInterface<PlainCase> { };

TEST_P(PlainValues, ReadBackWithTheirKind)
{
    auto& value = GetParam().value;
    ASSERT_TRUE(store->setObject(value, "key"));
    auto read = store->objectForKey("key");
    EXPECT_EQ(read.type(), value.type());
    EXPECT_EQ(read, value);
    EXPECT_TRUE(store->archivedObjectForKey("key").isNull());
}

INSTANTIATE_TEST_SUITE_P(ApplicationDataStore, PlainValues,
    ::testing::Values(PlainCase { "String", "a text ✓" }, PlainCase { "EmptyString", "" },
        PlainCase { "Integer", Value(-9007199254740993LL) }, PlainCase { "Real", Value(2.5) },
        PlainCase { "True", Value(true) }, PlainCase { "False", Value(false) },
        PlainCase { "Date", Value(Date(757382400.5)) }, PlainCase { "Data", Value(Bytes { 0, 1, 255 }) },
        PlainCase { "EmptyData", Value(Bytes {}) },
        PlainCase { "Nested",
            Value(Value::Dictionary {
                { "list", Value(Value::Array { 1, "two", Value(Date(3.0)) }) }, { "flag", true } }) }),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(ApplicationDataStoreTest, ValuesWithoutPropertyListFormAreRefusedAndLeaveTheOldOne)
{
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
            ASSERT_EQ(ApplicationDataStore::applicationsWithStores(),
                std::vector<std::string> { "com.example.app" });
            EXPECT_TRUE(remove(*store)) << name;
            EXPECT_TRUE(store->objectForKey("key").isNull()) << name;
            EXPECT_TRUE(store->archivedObjectForKey("key").isNull()) << name;
            EXPECT_TRUE(ApplicationDataStore::applicationsWithStores().empty()) << name;
            EXPECT_TRUE(remove(*store)) << name << ": a missing key";
        }
    }
}

struct TypedReadCase {
    const char* name;
    Value stored;
    bool storedArchived;
    bool readArchived;
    UnarchiveOptions options;
    std::optional<Value::Type> expectedType;
    bool answersValue;
};

void PrintTo(const TypedReadCase& test, std::ostream* out) { *out << test.name; }

class TypedReads : public ApplicationDataStoreTest, public ::testing::WithParamInterface<TypedReadCase> { };

TEST_P(TypedReads, AnswerOnlyWhatWasAskedFor)
{
    auto& test = GetParam();
    ASSERT_TRUE(test.storedArchived ? store->setArchivedObject(test.stored, "key")
                                    : store->setObject(test.stored, "key"));
    auto read = test.readArchived ? store->archivedObjectForKey("key", test.options, test.expectedType)
                                  : store->objectForKey("key");
    if (test.answersValue)
        EXPECT_EQ(read, test.stored);
    else
        EXPECT_TRUE(read.isNull()) << read.description();
}

Value note(const char* title, const char* name = "TestNote")
{
    return Value(std::make_shared<Note>(title, name));
}

INSTANTIATE_TEST_SUITE_P(ApplicationDataStore, TypedReads,
    ::testing::Values(TypedReadCase { "ObjectOfTheExpectedClass", note("a"), true, true, { "TestNote", {} },
                          std::nullopt, true },
        TypedReadCase {
            "ObjectOfAnotherClass", note("a"), true, true, { "OtherNote", {} }, std::nullopt, false },
        TypedReadCase { "PlainRootWhenAnObjectIsExpected", Value("a"), true, true, { "TestNote", {} },
            std::nullopt, false },
        TypedReadCase { "ArrayOfAllowedClasses", Value(Value::Array { note("a"), note("b", "OtherNote") }),
            true, true, { {}, { "TestNote", "OtherNote" } }, Value::Type::Array, true },
        TypedReadCase { "ArrayWithAForbiddenClass", Value(Value::Array { note("a"), note("b", "OtherNote") }),
            true, true, { {}, { "TestNote" } }, Value::Type::Array, false },
        TypedReadCase { "ArrayWhenADictionaryIsExpected", Value(Value::Array { 1 }), true, true, {},
            Value::Type::Dictionary, false },
        TypedReadCase { "ArchivedValueWithoutExpectations", Value(Value::Dictionary { { "n", note("a") } }),
            true, true, {}, std::nullopt, true },
        TypedReadCase { "PlainGetterOnAnArchivedEntry", Value("a"), true, false, {}, std::nullopt, false },
        TypedReadCase { "ArchivedGetterOnAPlainEntry", Value("a"), false, true, {}, std::nullopt, false },
        TypedReadCase { "ArchivedGetterWithTypeOnAPlainEntry", Value(Value::Array { 1 }), false, true, {},
            Value::Type::Array, false }),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(ApplicationDataStoreTest, RewritingAKeyChangesItsKind)
{
    ASSERT_TRUE(store->setObject("plain", "key"));
    ASSERT_TRUE(store->setArchivedObject(note("archived"), "key"));
    EXPECT_TRUE(store->objectForKey("key").isNull());
    EXPECT_EQ(store->archivedObjectForKey("key"), note("archived"));
    ASSERT_TRUE(store->setObject("plain again", "key"));
    EXPECT_EQ(store->objectForKey("key"), Value("plain again"));
    EXPECT_TRUE(store->archivedObjectForKey("key").isNull());
}

TEST_F(ApplicationDataStoreTest, ApplicationsAreIsolatedAndListedSorted)
{
    auto other = ApplicationDataStore::storeForApplication("com.example.another");
    auto third = ApplicationDataStore::storeForApplication("org.example.third");
    ASSERT_TRUE(third->setObject(3, "key"));
    ASSERT_TRUE(store->setObject(1, "key"));
    ASSERT_TRUE(other->setObject(2, "key"));
    EXPECT_EQ(ApplicationDataStore::applicationsWithStores(),
        (std::vector<std::string> { "com.example.another", "com.example.app", "org.example.third" }));

    ASSERT_TRUE(store->removeObjectForKey("key"));
    EXPECT_TRUE(store->objectForKey("key").isNull());
    EXPECT_EQ(other->objectForKey("key"), Value(2));
    EXPECT_EQ(third->objectForKey("key"), Value(3));
    EXPECT_EQ(ApplicationDataStore::applicationsWithStores(),
        (std::vector<std::string> { "com.example.another", "org.example.third" }));
}

TEST_F(ApplicationDataStoreTest, ANewDatabaseOnTheSameFileSeesTheData)
{
    ASSERT_TRUE(store->setObject("plain", "plain"));
    ASSERT_TRUE(store->setArchivedObject(note("archived"), "archived"));

    auto reopened = std::make_shared<ApplicationDataStoreDatabase>(databasePath(device));
    ApplicationDataStore again("com.example.app", reopened);
    EXPECT_EQ(again.objectForKey("plain"), Value("plain"));
    EXPECT_EQ(again.archivedObjectForKey("archived", { "TestNote", {} }), note("archived"));
    EXPECT_EQ(reopened->bundleIdentifiers(), std::vector<std::string> { "com.example.app" });
}

TEST_F(ApplicationDataStoreTest, SynchronizeFoldsTheLogIntoTheFile)
{
    ASSERT_TRUE(store->setObject("value", "key"));
    auto wal = databasePath(device) + "-wal";
    ASSERT_GT(FileManager::contentsAtPath(wal).value_or(Bytes {}).size(), 0u);
    EXPECT_TRUE(store->synchronize());
    EXPECT_EQ(FileManager::contentsAtPath(wal).value_or(Bytes { 1 }).size(), 0u);
    EXPECT_EQ(store->objectForKey("key"), Value("value"));
}

// Damages the file the way a torn disk or a stray write would.
using Damage = std::function<void(const std::string& path)>;

struct CorruptCase {
    const char* name;
    Damage damage;
};

void PrintTo(const CorruptCase& test, std::ostream* out) { *out << test.name; }

class CorruptFiles : public ApplicationDataStoreTest, public ::testing::WithParamInterface<CorruptCase> { };

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
    GetParam().damage(path);
    auto damaged = FileManager::contentsAtPath(path);
    ASSERT_TRUE(damaged);

    EXPECT_TRUE(store->objectForKey("key0").isNull());
    ASSERT_TRUE(store->setObject("fresh", "key"));
    EXPECT_EQ(store->objectForKey("key"), Value("fresh"));
    EXPECT_EQ(ApplicationDataStore::applicationsWithStores(), std::vector<std::string> { "com.example.app" });

    auto aside = filesAside(device);
    ASSERT_EQ(aside.size(), 1u);
    EXPECT_EQ(
        FileManager::contentsAtPath(Path::appendingComponent(device.libraryDirectory(), aside[0])), damaged);
    EXPECT_TRUE(device.systemLog().contains("is damaged"));
}

void overwrite(const std::string& path, size_t offset, size_t length)
{
    auto bytes = *FileManager::contentsAtPath(path);
    ASSERT_GE(bytes.size(), offset + length);
    for (size_t i = offset; i < offset + length; ++i)
        bytes[i] = static_cast<uint8_t>(i * 37 + 11);
    ASSERT_TRUE(FileManager::writeAtomically(path, bytes));
}

INSTANTIATE_TEST_SUITE_P(ApplicationDataStore, CorruptFiles,
    ::testing::Values(CorruptCase { "NotADatabase",
                          [](const std::string& path) {
                              std::string text = "this is not a database, just some text long enough to read";
                              ASSERT_TRUE(FileManager::writeAtomically(path, text.data(), text.size()));
                          } },
        CorruptCase { "ScribbledHeader", [](const std::string& path) { overwrite(path, 0, 100); } },
        CorruptCase { "ScribbledPage", [](const std::string& path) { overwrite(path, 4096, 4096); } }),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(ApplicationDataStoreTest, HostileNamesStayApart)
{
    const std::string nul("com.example.app\0evil", 20);
    // Its "/archived" sibling below is exactly as long as allowed.
    const std::string longest(ApplicationDataStoreDatabase::maximumNameLength - 9, 'k');
    const std::string tooLong(ApplicationDataStoreDatabase::maximumNameLength + 1, 'k');
    struct Case {
        std::string identifier;
        std::string key;
        bool accepted;
    };
    const Case cases[] = {
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
    for (auto& test : cases) {
        ApplicationDataStore named(test.identifier, device.platform().dataStores);
        EXPECT_EQ(named.setObject(++number, test.key), test.accepted) << number;
        EXPECT_EQ(named.setArchivedObject(number, test.key + "/archived"), test.accepted) << number;
    }
    number = 0;
    for (auto& test : cases) {
        ApplicationDataStore named(test.identifier, device.platform().dataStores);
        ++number;
        EXPECT_EQ(named.objectForKey(test.key), test.accepted ? Value(number) : Value()) << number;
        EXPECT_EQ(named.archivedObjectForKey(test.key + "/archived"), test.accepted ? Value(number) : Value())
            << number;
        EXPECT_EQ(named.removeObjectForKey(test.key), test.accepted) << number;
    }
    EXPECT_EQ(ApplicationDataStore::applicationsWithStores(),
        (std::vector<std::string> { "com.example.app", nul,
            std::string(ApplicationDataStoreDatabase::maximumNameLength, 'i'), longest }));
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
