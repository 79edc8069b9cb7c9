#include "support/TemporaryDirectory.h"

#include "platform/bulletins/SectionInfoDatabase.h"
#include "platform/files/FileManager.h"
#include "platform/sim/CapturedSystemLog.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

using namespace tessel;

namespace {

class SectionInfoDatabaseFile : public ::testing::Test {
protected:
    TemporaryDirectory directory;
    std::string path = directory / "ApplicationDataStore.sqlite";
    std::shared_ptr<CapturedSystemLog> log = std::make_shared<CapturedSystemLog>();

    SectionInfo section(const std::string& sectionID, uint64_t pushSettings = 7 | 56)
    {
        SectionInfo info;
        info.sectionID = sectionID;
        info.pushSettings = pushSettings;
        return info;
    }

    // Writes rows the way another program (or a damaged disk) might.
    void execute(const std::string& sql)
    {
        sqlite3* database = nullptr;
        ASSERT_EQ(sqlite3_open(path.c_str(), &database), SQLITE_OK);
        char* error = nullptr;
        EXPECT_EQ(sqlite3_exec(database, sql.c_str(), nullptr, nullptr, &error), SQLITE_OK)
            << (error ? error : "");
        sqlite3_free(error);
        sqlite3_close(database);
    }
};

TEST_F(SectionInfoDatabaseFile, AFileThatIsNoDatabaseIsAnsweredEmptyUntilItIsReplaced)
{
    ASSERT_TRUE(FileManager::writeAtomically(path, Bytes(8192, 0x5a)));
    {
        SectionInfoDatabase database(path, log);
        EXPECT_EQ(database.sectionInfo("com.example.a"), std::nullopt);
        EXPECT_TRUE(database.allSectionInfos().empty());
        EXPECT_FALSE(database.setSectionInfo(section("com.example.a")));
        EXPECT_TRUE(log->contains("SectionInfoDatabase: cannot open"));

        // Whoever owns the file moves it aside; the next use starts afresh.
        ASSERT_TRUE(FileManager::removeItemAtPath(path));
        EXPECT_TRUE(database.setSectionInfo(section("com.example.a")));
        EXPECT_EQ(database.sectionInfo("com.example.a"), section("com.example.a"));
    }
}

TEST_F(SectionInfoDatabaseFile, RowsWrittenByOthersAreKeptToWhatARecordCanMean)
{
    {
        SectionInfoDatabase database(path, log);
        ASSERT_TRUE(database.setSectionInfo(section("com.example.a")));
    }
    execute("INSERT INTO section_info VALUES (zeroblob(5000), 0, 1, 7, 1, 1, 1);"
            "INSERT INTO section_info VALUES (CAST('com.example.b' AS BLOB), 0, 1, -1, 1, 1, 1);"
            "INSERT INTO section_info VALUES (CAST('com.example.c' AS BLOB), 'x', 'yes', 'lots', 1e300, "
            "'no', X'00');");
    SectionInfoDatabase database(path, log);
    auto all = database.allSectionInfos();
    ASSERT_EQ(all.size(), 3u) << "the overlong identifier is left out";
    EXPECT_EQ(all[0], section("com.example.a"));
    EXPECT_EQ(all[1].pushSettings, 63u) << "only the six meaningful bits";
    EXPECT_EQ(all[2].sectionID, "com.example.c");
    EXPECT_EQ(all[2].pushSettings, 0u);
    EXPECT_FALSE(all[2].showsInLockScreen);
    EXPECT_EQ(database.sectionInfo(std::string(5000, '\0')), std::nullopt);
    EXPECT_FALSE(database.setSectionInfo(section(std::string(5000, 'a'))));
    EXPECT_TRUE(log->contains("write refused: section identifier of 5000 bytes"));
}

} // namespace
